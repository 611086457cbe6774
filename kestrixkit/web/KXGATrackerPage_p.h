#pragma once

#include <functional>
#include <memory>

#include <QWebEnginePage>
#include <QWebEngineProfile>

/// A page that nobody sees, with scripts and network, in a profile of its own that leaves nothing behind.
class KXGATrackerPage
{
public:
    using Failed = std::function<void(const QString &reason)>;

    /// Told when a page fails to load after its first bytes have come, or the page's process ends.
    explicit KXGATrackerPage(Failed failed);
    ~KXGATrackerPage();
    Q_DISABLE_COPY_MOVE(KXGATrackerPage)

    void setUserAgent(const QString &userAgent);
    void load(const QUrl &url);
    /// From the moment of load() until the page is there or has failed.
    [[nodiscard]] bool isLoading() const { return m_isLoading; }
    /// In the order of the calls; results and errors are ignored.
    void evaluate(const QString &script) { m_page->runJavaScript(script); }

private:
    void follow(const QWebEngineLoadingInfo &info);

    QWebEngineProfile m_profile; // outlives the page
    std::unique_ptr<QWebEnginePage> m_page;
    const QString m_ownUserAgent { m_profile.httpUserAgent() };
    Failed m_failed;
    bool m_isLoading = false;
};
