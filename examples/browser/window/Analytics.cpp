#include "window/Analytics.h"

#include <QCoreApplication>

#include "window/Settings.h"

#if BROWSER_HAS_WEB
#include <kestrixkit/web/KXGATracker.h>
#include <kestrixkit/web/KXWeb.h>
#endif

using namespace Qt::StringLiterals;

#if BROWSER_HAS_WEB

bool Analytics::isAvailable() { return true; }

void Analytics::start()
{
    KXWeb::registerViews();
    KXGATracker &tracker = KXGATracker::sharedTracker();
    tracker.setUserAgent(u"KestrixKit Music Browser"_s);
    tracker.setConsent(Settings::analyticsConsent());
    tracker.startTrackerUsingInitURL(u"qrc:/browser/tracking.html"_s);
}

void Analytics::setConsent(bool consent)
{
    Settings::setAnalyticsConsent(consent);
    KXGATracker::sharedTracker().setConsent(consent);
}

void Analytics::windowWasOpened() { KXGATracker::sharedTracker().trackPageView(u"library"_s); }

void Analytics::importFinished(qint64 added)
{
    KXGATracker::sharedTracker().trackEvent(u"import"_s, u"finished"_s, {}, added);
}

QStringList Analytics::lines()
{
    QStringList lines;
    for (const KXGAPayload &payload : KXGATracker::sharedTracker().payloads()) {
        lines.append((payload.sent ? QCoreApplication::translate("Analytics", "Sent: %1")
                                   : QCoreApplication::translate("Analytics", "Kept back: %1"))
                         .arg(payload.text));
    }
    return lines;
}

void Analytics::onLine(QObject *receiver, std::function<void()> function)
{
    QObject::connect(&KXGATracker::sharedTracker(), &KXGATracker::payloadRecorded, receiver, std::move(function));
}

#else

bool Analytics::isAvailable() { return false; }
void Analytics::start() { }
void Analytics::setConsent(bool) { }
void Analytics::windowWasOpened() { }
void Analytics::importFinished(qint64) { }
QStringList Analytics::lines() { return {}; }
void Analytics::onLine(QObject *, std::function<void()>) { }

#endif
