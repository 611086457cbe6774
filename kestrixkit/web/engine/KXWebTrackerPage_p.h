#pragma once

#include <memory>

#include <QWebEnginePage>
#include <QWebEngineProfile>

#include <kestrixkit/web/KXGATrackerPage_p.h>

class KXWebTrackerPage final : public KXGATrackerPage
{
public:
    explicit KXWebTrackerPage(Failed failed);
    ~KXWebTrackerPage() override;
    Q_DISABLE_COPY_MOVE(KXWebTrackerPage)

    void setUserAgent(const QString &userAgent) override;
    void load(const QUrl &url) override;
    [[nodiscard]] bool isLoading() const override { return m_isLoading; }
    void evaluate(const QString &script) override { m_page->runJavaScript(script); }

private:
    void follow(const QWebEngineLoadingInfo &info);

    QWebEngineProfile m_profile; // outlives the page
    std::unique_ptr<QWebEnginePage> m_page;
    const QString m_ownUserAgent { m_profile.httpUserAgent() };
    Failed m_failed;
    bool m_isLoading = false;
};
