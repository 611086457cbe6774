#pragma once

#include <deque>
#include <memory>

#include <QDateTime>
#include <QSet>

#include <kestrixkit/foundation/KXObject.h>

class KXGATrackerPage;

/// Something that left for the analytics service, or would have left.
struct KXGAPayload
{
    QDateTime time;
    QString text; ///< the very line of script, or the address of the tracking page
    bool sent = false; ///< false: the user has not agreed, or there is no page yet
};

/// Reports page views and events to an analytics service: each report is a line of script in a tracking page of the
/// host's, which nobody sees and which leaves no traces (an off-the-record profile). A report that cannot be evaluated
/// at once is dropped.
///
/// Nothing is loaded and nothing evaluated without the user's consent, which is the host's to ask for and to remember.
/// What would be sent can be read beforehand, from scriptForPageView(), scriptForEvent() and payloads(). The web engine
/// is started when the tracking page is loaded, not before.
///
/// Names are put into the script as they are: a quote or backslash makes the line invalid and the report is lost, so
/// hosts pass plain identifiers. Main thread.
class KX_WEB_EXPORT KXGATracker : public KXObject
{
    Q_OBJECT
    Q_PROPERTY(bool consent READ hasConsent WRITE setConsent NOTIFY consentChanged)
    Q_PROPERTY(QString userAgent READ userAgent WRITE setUserAgent)
public:
    static constexpr qsizetype keptPayloads = 100;

    [[nodiscard]] static KXGATracker &sharedTracker();
    /// A tracker of its own, for a host with several services.
    explicit KXGATracker(QObject *parent = nullptr);
    ~KXGATracker() override;

    /// False at first. With consent the tracking page is loaded, if one was named; when it is withdrawn the page goes.
    [[nodiscard]] bool hasConsent() const { return m_consent; }
    void setConsent(bool consent);

    /// How the service sees the application; empty for the engine's own. To be set before the tracker is started.
    [[nodiscard]] const QString &userAgent() const { return m_userAgent; }
    void setUserAgent(const QString &userAgent);

    /// Loads the tracking page, again if it was loaded before.
    void startTrackerUsingInitURL(const QString &initURL);
    /// Set for good once the tracking page has failed to load after it had begun to come in, or its process has ended,
    /// or the engine cannot be started: all later reports are dropped. A page that cannot be reached at all leaves it.
    [[nodiscard]] bool initPageDidFailToLoad() const { return m_initPageDidFailToLoad; }
    [[nodiscard]] bool isLoading() const;

    void trackPageView(const QString &pageName);
    /// An event with `onlyOnce` is sent once in the process for the same category, action and label, joined by hyphens.
    void trackEvent(
        const QString &category, const QString &action, const QString &label, qint64 value, bool onlyOnce = false);

    // What is evaluated in the page.
    [[nodiscard]] static QString scriptForPageView(const QString &pageName);
    [[nodiscard]] static QString scriptForEvent(
        const QString &category, const QString &action, const QString &label, qint64 value);

    /// The last ones, oldest first, sent or kept back.
    [[nodiscard]] QList<KXGAPayload> payloads() const { return { m_payloads.cbegin(), m_payloads.cend() }; }

Q_SIGNALS:
    void consentChanged();
    /// Before it leaves, if it does.
    void payloadRecorded(const KXGAPayload &payload);

private:
    [[nodiscard]] bool canReport() const { return !isLoading() && !m_initPageDidFailToLoad; }
    /// False without consent.
    bool send(const QString &script);
    bool record(const QString &text, bool leaves);
    void load();
    void fail(const QString &reason);

    QString m_userAgent;
    QString m_initURL; // null before the start
    bool m_consent = false;
    bool m_initPageDidFailToLoad = false;
    QSet<QString> m_eventTracker; // keys of events that were sent and are not to be sent again
    std::deque<KXGAPayload> m_payloads;
    std::unique_ptr<KXGATrackerPage> m_page; // with consent, once started
};
