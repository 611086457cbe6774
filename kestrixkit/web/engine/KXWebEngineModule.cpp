#include <qtwebenginecoreglobal.h>

#include <kestrixkit/web/KXWebModule_p.h>
#include <kestrixkit/web/engine/KXWebHTMLBackend_p.h>
#include <kestrixkit/web/engine/KXWebTrackerPage_p.h>

namespace {

class WebEngine final : public KXWebModule
{
public:
    std::unique_ptr<KXHTMLBackend> backend(KXHTMLView *view) const override
    {
        return std::make_unique<KXWebHTMLBackend>(view);
    }
    std::unique_ptr<KXGATrackerPage> trackerPage(KXGATrackerPage::Failed failed) const override
    {
        return std::make_unique<KXWebTrackerPage>(std::move(failed));
    }
    QString version() const override { return QString::fromLatin1(qWebEngineChromiumVersion()); }
};

}

/// What KXWebModule::shared() asks for.
extern "C" Q_DECL_EXPORT const KXWebModule *KXWebEngineModule()
{
    static const WebEngine engine;
    return &engine;
}
