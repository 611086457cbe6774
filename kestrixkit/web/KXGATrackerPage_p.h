#pragma once

#include <functional>

#include <QUrl>

#include <kestrixkit/foundation/KXGlobal.h>

/// A page that nobody sees, with scripts and network, in a profile of its own that leaves nothing behind.
class KX_WEB_EXPORT KXGATrackerPage
{
public:
    /// Told when a page fails to load after its first bytes have come, or the page's process ends.
    using Failed = std::function<void(const QString &reason)>;

    virtual ~KXGATrackerPage();

    /// Empty: the engine's own.
    virtual void setUserAgent(const QString &userAgent) = 0;
    virtual void load(const QUrl &url) = 0;
    /// From the moment of load() until the page is there or has failed.
    [[nodiscard]] virtual bool isLoading() const = 0;
    /// In the order of the calls; results and errors are ignored.
    virtual void evaluate(const QString &script) = 0;
};
