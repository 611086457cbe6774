#include <kestrixkit/web/KXWeb.h>

#include <kestrixkit/foundation/KXLog.h>
#include <kestrixkit/web/KXWebEngine.h>
#include <kestrixkit/web/KXWebHTMLBackend_p.h>

void KXWeb::registerViews()
{
    static auto *const registered
        = new KXScopeToken(KXHTMLView::setBackendFactory([](KXHTMLView *view) -> std::unique_ptr<KXHTMLBackend> {
              if (QString reason; !KXWebEngine::canStart(&reason)) {
                  KXLogWarning(web, "Pages are shown as plain rich text: %@", reason);
                  return nullptr;
              }
              return std::make_unique<KXWebHTMLBackend>(view);
          }));
    Q_UNUSED(registered)
}
