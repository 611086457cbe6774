#include <kestrixkit/web/engine/KXWebHTMLBackend_p.h>

#include <QWebEnginePage>
#include <QWebEngineSettings>
#include <QWebEngineView>

#include <kestrixkit/foundation/KXLog.h>
#include <kestrixkit/foundation/KXMainQueue.h>

using namespace Qt::StringLiterals;

namespace {

// The page travels percent-encoded in an address, and the engine drops longer ones without a word.
constexpr qsizetype webLongestPage = 2'000'000;

}

class KXWebHTMLBackend::Page : public QWebEnginePage
{
public:
    Page(QWebEngineProfile *profile, KXHTMLView *view, QObject *parent)
        : QWebEnginePage(profile, parent)
        , m_view(view)
    {
    }

protected:
    bool acceptNavigationRequest(const QUrl &url, NavigationType type, bool isMainFrame) override
    {
        if (type == NavigationTypeLinkClicked)
            Q_EMIT m_view->linkActivated(url);
        return isMainFrame && type == NavigationTypeTyped; // what setHTML() asks for
    }

private:
    KXHTMLView *const m_view; // its backend ends before it
};

void KXWebHTMLBackend::NoRequests::interceptRequest(QWebEngineUrlRequestInfo &info)
{
    info.block(info.requestUrl().scheme() != "data"_L1);
}

KXWebHTMLBackend::KXWebHTMLBackend(KXHTMLView *view)
    : m_engineView(new QWebEngineView(view))
{
    m_profile.setUrlRequestInterceptor(&m_noRequests);
    auto *const page = new Page(&m_profile, view, m_engineView);
    using Settings = QWebEngineSettings;
    for (const auto off : { Settings::JavascriptEnabled, Settings::PluginsEnabled, Settings::LocalStorageEnabled,
             Settings::LocalContentCanAccessFileUrls, Settings::LocalContentCanAccessRemoteUrls,
             Settings::AutoLoadImages, Settings::AutoLoadIconsForPage, Settings::DnsPrefetchEnabled,
             Settings::HyperlinkAuditingEnabled, Settings::ErrorPageEnabled, Settings::NavigateOnDropEnabled })
        page->settings()->setAttribute(off, false);
    page->setBackgroundColor(view->palette().color(QPalette::Base)); // no white flash before the page
    QObject::connect(page, &QWebEnginePage::renderProcessTerminated, view,
        [view](QWebEnginePage::RenderProcessTerminationStatus status, int code) {
            KXLogError(web, "The web engine's process for a page has ended (%d, %d)", int(status), code);
            KXMainQueue::async(view, [view] { view->fallBack(); }); // this ends with it
        });
    m_engineView->setPage(page);
    m_engineView->setContextMenuPolicy(Qt::NoContextMenu);
}

KXWebHTMLBackend::~KXWebHTMLBackend() { delete m_engineView.data(); }

QWidget *KXWebHTMLBackend::widget() { return m_engineView; }

void KXWebHTMLBackend::setHTML(const QString &html)
{
    if (const QByteArray encoded = html.toUtf8().toPercentEncoding(); encoded.size() > webLongestPage) {
        KXLogError(web, "A page of %lld bytes is too long for the web engine", encoded.size());
        m_engineView->setHtml({});
        return;
    }
    m_engineView->setHtml(html);
}
