#include <kestrixkit/web/engine/KXWebTrackerPage_p.h>

#include <QWebEngineLoadingInfo>
#include <QWebEngineSettings>

#include <kestrixkit/foundation/KXStringWithFormat.h>

using namespace Qt::StringLiterals;

namespace {

/// Asks the user nothing, whatever the page would.
class TrackerHiddenPage : public QWebEnginePage
{
public:
    using QWebEnginePage::QWebEnginePage;

protected:
    void javaScriptAlert(const QUrl &, const QString &) override { }
    bool javaScriptConfirm(const QUrl &, const QString &) override { return false; }
    bool javaScriptPrompt(const QUrl &, const QString &, const QString &, QString *) override { return false; }
    void javaScriptConsoleMessage(JavaScriptConsoleMessageLevel, const QString &, int, const QString &) override { }
    QStringList chooseFiles(FileSelectionMode, const QStringList &, const QStringList &) override { return {}; }
};

}

KXWebTrackerPage::KXWebTrackerPage(Failed failed)
    : m_page(std::make_unique<TrackerHiddenPage>(&m_profile))
    , m_failed(std::move(failed))
{
    m_page->setAudioMuted(true);
    m_page->settings()->setAttribute(QWebEngineSettings::AutoLoadIconsForPage, false);
    QObject::connect(m_page.get(), &QWebEnginePage::loadingChanged, m_page.get(),
        [this](const QWebEngineLoadingInfo &info) { follow(info); });
    QObject::connect(m_page.get(), &QWebEnginePage::renderProcessTerminated, m_page.get(),
        [this](QWebEnginePage::RenderProcessTerminationStatus, int code) {
            m_isLoading = false;
            m_failed(KXStringWithFormat(u"the page's process has ended (%d)", code));
        });
}

KXWebTrackerPage::~KXWebTrackerPage() = default;

void KXWebTrackerPage::setUserAgent(const QString &userAgent)
{
    m_profile.setHttpUserAgent(userAgent.isEmpty() ? m_ownUserAgent : userAgent);
}

void KXWebTrackerPage::load(const QUrl &url)
{
    m_isLoading = true;
    m_page->load(url);
}

void KXWebTrackerPage::follow(const QWebEngineLoadingInfo &info)
{
    using Info = QWebEngineLoadingInfo;
    m_isLoading = info.status() == Info::LoadStartedStatus;
    // What never came in is an error page of the engine's (which it must be allowed to make, else it does not tell). An
    // answer such as "not found" is a page like any other.
    if (info.status() == Info::LoadFailedStatus && !info.isErrorPage()
        && info.errorDomain() != Info::HttpStatusCodeDomain)
        m_failed(KXStringWithFormat(u"%@ (%@ %d)", info.url(), info.errorString(), info.errorCode()));
}
