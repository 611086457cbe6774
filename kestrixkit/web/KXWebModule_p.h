#pragma once

#include <memory>

#include <kestrixkit/toolkit/KXHTMLView.h>
#include <kestrixkit/web/KXGATrackerPage_p.h>

/// What the web engine does here. Its libraries take a hundred megabytes of addresses and a tenth of a second where the
/// machine has just been started, and most runs of a program show no page: they are in a module (web/engine), which is
/// loaded when the first page is made. Main thread.
class KX_WEB_EXPORT KXWebModule
{
public:
    /// nullptr where the module cannot be loaded, which the log says once.
    [[nodiscard]] static const KXWebModule *shared();

    [[nodiscard]] virtual std::unique_ptr<KXHTMLBackend> backend(KXHTMLView *view) const = 0;
    [[nodiscard]] virtual std::unique_ptr<KXGATrackerPage> trackerPage(KXGATrackerPage::Failed failed) const = 0;
    [[nodiscard]] virtual QString version() const = 0;

protected:
    KXWebModule() = default;
    virtual ~KXWebModule();
};
