#include <kestrixkit/web/KXWeb.h>

#include <kestrixkit/foundation/KXLog.h>
#include <kestrixkit/web/KXWebEngine.h>
#include <kestrixkit/web/KXWebModule_p.h>

void KXWeb::registerViews()
{
    static auto *const registered
        = new KXScopeToken(KXHTMLView::setBackendFactory([](KXHTMLView *view) -> std::unique_ptr<KXHTMLBackend> {
              if (QString reason; !KXWebEngine::canStart(&reason)) {
                  KXLogWarning(web, "Pages are shown as plain rich text: %@", reason);
                  return nullptr;
              }
              const KXWebModule *const engine = KXWebModule::shared();
              return engine ? engine->backend(view) : nullptr;
          }));
    Q_UNUSED(registered)
}
