#include <kestrixkit/web/KXGATracker.h>

#include <QCoreApplication>

#include <kestrixkit/foundation/KXClock.h>
#include <kestrixkit/foundation/KXLog.h>
#include <kestrixkit/web/KXGATrackerPage_p.h>
#include <kestrixkit/web/KXWebEngine.h>
#include <kestrixkit/web/KXWebModule_p.h>

using namespace Qt::StringLiterals;

KXGATracker &KXGATracker::sharedTracker()
{
    static auto *const shared = new KXGATracker; // lives as long as the process; its page does not
    return *shared;
}

KXGATracker::KXGATracker(QObject *parent)
    : KXObject(parent)
{
}

KXGATracker::~KXGATracker() = default;

void KXGATracker::setConsent(bool consent)
{
    if (consent == m_consent)
        return;
    m_consent = consent;
    if (!consent)
        m_page.reset();
    else if (!m_initURL.isNull())
        load();
    Q_EMIT consentChanged();
}

void KXGATracker::setUserAgent(const QString &userAgent)
{
    m_userAgent = userAgent;
    if (m_page)
        m_page->setUserAgent(userAgent);
}

void KXGATracker::startTrackerUsingInitURL(const QString &initURL)
{
    m_initURL = initURL.isNull() ? u""_s : initURL;
    load();
}

void KXGATracker::load()
{
    if (!record(m_initURL, true))
        return;
    if (QString reason; !m_page && !KXWebEngine::canStart(&reason)) {
        fail(reason);
        return;
    }
    if (!m_page) {
        const KXWebModule *const engine = KXWebModule::shared();
        if (!engine) {
            fail(u"the web engine is not installed"_s);
            return;
        }
        m_page = engine->trackerPage([this](const QString &reason) { fail(reason); });
        m_page->setUserAgent(m_userAgent);
        // The page ends before the engine, which has seen to its own end by now: routines run from last to first.
        if (static bool added = false; this == &sharedTracker() && !std::exchange(added, true))
            qAddPostRoutine([] { sharedTracker().m_page.reset(); });
    }
    if (const QUrl url = QUrl::fromUserInput(m_initURL); url.isValid())
        m_page->load(url);
    else
        KXLogError(web, "The tracking page's address makes no sense: %@", m_initURL);
}

void KXGATracker::fail(const QString &reason)
{
    KXLogError(web, "[%@] (initPageFailedToLoad): %@", "KXGATracker", reason);
    m_initPageDidFailToLoad = true;
}

bool KXGATracker::isLoading() const { return m_page && m_page->isLoading(); }

bool KXGATracker::record(const QString &text, bool leaves)
{
    const KXGAPayload payload { KXClock::now(), text, m_consent && leaves };
    m_payloads.push_back(payload);
    if (qsizetype(m_payloads.size()) > keptPayloads)
        m_payloads.pop_front();
    Q_EMIT payloadRecorded(payload);
    return m_consent; // whoever read it may have withdrawn it
}

bool KXGATracker::send(const QString &script)
{
    if (!record(script, bool(m_page)))
        return false;
    if (m_page)
        m_page->evaluate(script);
    return true;
}

QString KXGATracker::scriptForPageView(const QString &pageName)
{
    return KXStringWithFormat("_gaq.push(['_trackPageview', \"%@\"]);", pageName);
}

QString KXGATracker::scriptForEvent(const QString &category, const QString &action, const QString &label, qint64 value)
{
    return KXStringWithFormat(
        "_gaq.push(['_trackEvent', \"%@\", \"%@\", \"%@\", %ld]);", category, action, label, value);
}

void KXGATracker::trackPageView(const QString &pageName)
{
    if (canReport())
        send(scriptForPageView(pageName));
}

void KXGATracker::trackEvent(
    const QString &category, const QString &action, const QString &label, qint64 value, bool onlyOnce)
{
    const QString key = KXStringWithFormat("%@-%@-%@", category, action, label.isNull() ? u"(null)"_s : label);
    if ((onlyOnce && m_eventTracker.contains(key)) || !canReport())
        return;
    if (send(scriptForEvent(category, action, label, value)) && onlyOnce)
        m_eventTracker.insert(key);
}
