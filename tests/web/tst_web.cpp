// The web engine behind the framework's views, and the tracker, beside a server that tells what they ask for.

#include <QDir>
#include <QFile>
#include <QTemporaryDir>
#include <QTest>
#include <QTextBrowser>
#include <QWebEnginePage>
#include <QWebEngineView>
#include <gtest/gtest.h>

#include <kestrixkit/foundation/KXBundle.h>
#include <kestrixkit/messages/KXMessageCenter.h>
#include <kestrixkit/messages/views/KXMessageCenterDetailsViewController.h>
#include <kestrixkit/messages/views/KXMessageCenterViewController.h>
#include <kestrixkit/toolkit/KXHTMLView.h>
#include <kestrixkit/toolkit/KXInterfaceLoader.h>
#include <kestrixkit/web/KXGATracker.h>
#include <kestrixkit/web/KXWeb.h>
#include <kestrixkit/web/KXWebEngine.h>
#include <support/HttpServer.h>
#include <support/KXTestLog.h>
#include <support/KXTestPrint.h>

#include "HostileTexts.h"

using namespace Qt::StringLiterals;

namespace {

constexpr int webPatience = 60'000; // milliseconds

/// Whether threads of the engine run in this process.
bool isEngineStarted()
{
    for (const QString &task : QDir(u"/proc/self/task"_s).entryList(QDir::Dirs | QDir::NoDotAndDotDot)) {
        QFile name(u"/proc/self/task/%1/comm"_s.arg(task));
        if (name.open(QIODevice::ReadOnly) && name.readAll().startsWith("Chrome"))
            return true;
    }
    return false;
}

QString shownText(QWebEngineView *view)
{
    QString shown;
    bool answered = false;
    view->page()->toPlainText([&](const QString &text) {
        shown = text;
        answered = true;
    });
    EXPECT_TRUE(QTest::qWaitFor([&] { return answered; }, webPatience));
    return shown;
}

/// Whether the page shows `text` before long. That a page is not loading says little: it may not have begun.
bool waitForText(KXHTMLView &view, const QString &text)
{
    auto *const page = qobject_cast<QWebEngineView *>(view.pageWidget());
    return page && QTest::qWaitFor([&] { return shownText(page).contains(text); }, webPatience);
}

/// A page whose queue hands each command to the server, one after another.
QByteArray trackingPage(const QByteArray &more = {})
{
    return "<!DOCTYPE html><meta charset='utf-8'><script>var _gaq = { push: function (command) {"
           "var request = new XMLHttpRequest();"
           "request.open('GET', '/queue?' + encodeURIComponent(JSON.stringify(command)), false); request.send(); } };"
           "</script>"
        + more;
}

/// The commands that have reached the server, as JSON.
QStringList commands(const HttpServer &server)
{
    QStringList commands;
    for (const QByteArray &head : server.requestHeads()) {
        const QByteArray path = head.split(' ').value(1);
        if (path.startsWith("/queue?"))
            commands.append(QString::fromUtf8(QByteArray::fromPercentEncoding(path.mid(7))));
    }
    return commands;
}

}

class WebTest : public ::testing::Test
{
protected:
    void SetUp() override
    {
        if (!KXWebEngine::canStart())
            GTEST_SKIP() << "run by scripts/test, which switches the engine's sandbox off";
        KXWeb::registerViews();
    }
    ~WebTest() override
    {
        KXMessageCenter &center = KXMessageCenter::sharedInstance();
        center.clearMessages(center.messages());
    }
    static bool waitForPage(const KXGATracker &tracker)
    {
        return QTest::qWaitFor([&] { return !tracker.isLoading(); }, webPatience);
    }
};

// First of all tests: no other has started the engine yet.
TEST_F(WebTest, theEngineStartsWithTheFirstPage)
{
    KXMessageCenterViewController strip;
    KXMessageCenterDetailsViewController details;
    EXPECT_TRUE(strip.view() && details.view());
    for (const QString &path : KXBundle::frameworkBundle().resourcePaths(u"ui"_s, u"interfaces"_s))
        EXPECT_TRUE(std::unique_ptr<QWidget>(KXInterfaceLoader::shared().load(path))) << path.toStdString();
    KXGATracker tracker;
    tracker.setUserAgent(u"test"_s);
    tracker.startTrackerUsingInitURL(u"http://127.0.0.1:9/"_s);
    tracker.trackPageView(u"start"_s);
    QTest::qWait(20);
    EXPECT_FALSE(isEngineStarted());
    details.popoverWillShow();
    EXPECT_TRUE(isEngineStarted());
}

TEST_F(WebTest, whereTheEngineCannotRunTextIsShown)
{
    if (geteuid() != 0)
        GTEST_SKIP() << "the engine refuses to run as root only";
    const QByteArray before = qgetenv("QTWEBENGINE_DISABLE_SANDBOX");
    qunsetenv("QTWEBENGINE_DISABLE_SANDBOX");
    const KXTestLog log;
    KXHTMLView view;
    view.setHTML(u"<p>plain"_s);
    KXGATracker tracker;
    tracker.setConsent(true);
    tracker.startTrackerUsingInitURL(u"http://127.0.0.1:9/"_s);
    tracker.trackPageView(u"start"_s);
    qputenv("QTWEBENGINE_DISABLE_SANDBOX", before);
    EXPECT_EQ(qobject_cast<QTextBrowser *>(view.pageWidget())->toPlainText(), u"plain"_s);
    EXPECT_TRUE(tracker.initPageDidFailToLoad());
    EXPECT_EQ(log.lines().filter(u"root"_s).size(), 2);
}

TEST_F(WebTest, hostileTextsAreTextsAndNothingIsFetched)
{
    const HttpServer server("x", HttpServer::NoRanges);
    const QStringList hostile = hostileTexts(server.url().toString(), u"file:///etc/hostname"_s);
    for (const QString &text : hostile)
        KXMessageCenter::sharedInstance().postMessage(KXMessage::messageWithType(KXMessageTypeError, u"bad"_s, text));
    KXMessageCenterDetailsViewController details;
    details.popoverWillShow();
    details.view()->show();
    KXHTMLView bare; // the same, looked at by nobody
    bare.setHTML(u"<p>begun<p>"_s + hostile.join(u"<p>"_s));
    bare.show();
    ASSERT_TRUE(waitForText(*details.detailsWebView(), hostile.first().left(12)));
    ASSERT_TRUE(waitForText(bare, u"begun"_s));
    QTest::qWait(1'000); // for what should not come
    auto *const shown = qobject_cast<QWebEngineView *>(details.detailsWebView()->pageWidget());
    const QString text = shownText(shown);
    for (const QString &part : hostile)
        EXPECT_TRUE(text.simplified().contains(QString(part).remove(u"<b>"_s).simplified().left(12)))
            << part.toStdString();
    for (KXHTMLView *view : { details.detailsWebView(), &bare })
        EXPECT_NE(qobject_cast<QWebEngineView *>(view->pageWidget())->title(), u"owned"_s);
    EXPECT_EQ(server.requests(), 0);

    // Links are told of and not followed. A page beyond what the engine takes is left out.
    const KXTestLog log;
    bare.setHTML(QString(3'000'000, u'x'));
    EXPECT_TRUE(log.contains(u"too long"_s));
}

TEST_F(WebTest, aPageWhoseProcessEndsIsShownAsText)
{
    KXHTMLView view;
    view.setHTML(u"<p>words"_s);
    view.show();
    ASSERT_TRUE(waitForText(view, u"words"_s));
    const KXTestLog log;
    qobject_cast<QWebEngineView *>(view.pageWidget())->page()->setUrl(QUrl(u"chrome://kill"_s));
    ASSERT_TRUE(QTest::qWaitFor([&] { return qobject_cast<QTextBrowser *>(view.pageWidget()); }, webPatience))
        << log.lines().join(u'\n').toStdString();
    EXPECT_EQ(qobject_cast<QTextBrowser *>(view.pageWidget())->toPlainText(), u"words"_s);
}

TEST_F(WebTest, reportsArriveByteForByteAndOnlyWithConsent)
{
    const HttpServer server(trackingPage(), HttpServer::NoRanges);
    KXGATracker tracker;
    tracker.setUserAgent(u"KestrixKit/1 (test)"_s);
    // Before the start, nothing is loading and nothing has failed: without consent nothing counts as sent.
    tracker.trackEvent(u"c"_s, u"once"_s, {}, 1, true);
    tracker.startTrackerUsingInitURL(server.url().toString());
    tracker.trackPageView(u"kept back"_s);
    QTest::qWait(300);
    EXPECT_EQ(server.requests(), 0);
    ASSERT_EQ(tracker.payloads().size(), 3);
    EXPECT_EQ(tracker.payloads()[1].text, server.url().toString());
    EXPECT_EQ(tracker.payloads()[2].text, u"_gaq.push(['_trackPageview', \"kept back\"]);"_s);

    QStringList read;
    QObject::connect(&tracker, &KXGATracker::payloadRecorded, &tracker, [&](const KXGAPayload &payload) {
        EXPECT_TRUE(payload.sent);
        read.append(payload.text);
    });
    tracker.setConsent(true);
    EXPECT_TRUE(tracker.isLoading());
    tracker.trackPageView(u"lost while loading"_s);
    tracker.trackEvent(u"c"_s, u"once"_s, {}, 2, true);
    ASSERT_TRUE(waitForPage(tracker));

    const QString odd = u"Größe 'x' – 漢字 & <b>"_s;
    tracker.trackPageView(odd);
    tracker.trackEvent(u"c"_s, u"once"_s, {}, std::numeric_limits<qint64>::min(), true);
    tracker.trackEvent(u"c"_s, u"once"_s, u"(null)"_s, 4, true); // the same key
    tracker.trackEvent(u"a-b"_s, u"c"_s, u"l"_s, 5, true);
    tracker.trackEvent(u"a"_s, u"b-c"_s, u"l"_s, 6, true); // the same key
    tracker.trackEvent(u"a"_s, u"b-c"_s, u"l"_s, 7);
    tracker.trackEvent(u"a\"b"_s, u"invalid"_s, {}, 8); // makes no script
    for (int i = 0; i < 5; ++i)
        tracker.trackPageView(QString::number(i));
    QStringList expected { u"[\"_trackPageview\",\"%1\"]"_s.arg(odd),
        u"[\"_trackEvent\",\"c\",\"once\",\"\",-9223372036854776000]"_s, // as numbers of the page go
        u"[\"_trackEvent\",\"a-b\",\"c\",\"l\",5]"_s, u"[\"_trackEvent\",\"a\",\"b-c\",\"l\",7]"_s };
    for (int i = 0; i < 5; ++i)
        expected.append(u"[\"_trackPageview\",\"%1\"]"_s.arg(i));
    ASSERT_TRUE(QTest::qWaitFor([&] { return commands(server).size() >= expected.size(); }, webPatience));
    EXPECT_EQ(commands(server), expected);
    EXPECT_EQ(read.size(), 1 + 5 + 5); // the page, the reports and the one that made no script
    for (const QByteArray &head : server.requestHeads())
        EXPECT_TRUE(head.contains("User-Agent: KestrixKit/1 (test)\r\n")) << head.data();

    // Withdrawn: the page is gone, and nothing comes any more.
    const int before = server.requests();
    tracker.disconnect();
    tracker.setConsent(false);
    tracker.trackPageView(u"late"_s);
    tracker.startTrackerUsingInitURL(server.url().toString());
    QTest::qWait(300);
    EXPECT_EQ(server.requests(), before);
    for (int i = 0; i < 1000; ++i)
        tracker.trackPageView(u"many"_s);
    EXPECT_EQ(tracker.payloads().size(), KXGATracker::keptPayloads);
}

TEST_F(WebTest, onlyAPageThatBrokeOffSilencesTheTracker)
{
    const QByteArray page = trackingPage(QByteArray(300'000, ' '));
    const HttpServer good(page, HttpServer::NoRanges), cut(page, HttpServer::Cut), missing(page, HttpServer::NotFound),
        silent(page, HttpServer::Stall);
    const std::pair<QString, bool> cases[] { { missing.url().toString(), false }, { u"http://127.0.0.1:1/"_s, false },
        { u"file:///no/such/page.html"_s, false }, { u""_s, false }, { cut.url().toString(), true },
        { u"chrome://kill"_s, true } };
    for (const auto &[url, fails] : cases) {
        SCOPED_TRACE(url.toStdString());
        const KXTestLog log;
        KXGATracker tracker;
        tracker.setConsent(true);
        tracker.startTrackerUsingInitURL(url);
        ASSERT_TRUE(QTest::qWaitFor(
            [&] { return !tracker.isLoading() && (!fails || tracker.initPageDidFailToLoad()); }, webPatience));
        EXPECT_EQ(tracker.initPageDidFailToLoad(), fails);
        EXPECT_EQ(log.contains(u"[KXGATracker] (initPageFailedToLoad): "_s), fails);
        // Started anew with a page that is there: for one that has failed that is no help.
        const qsizetype before = commands(good).size();
        tracker.startTrackerUsingInitURL(good.url().toString());
        ASSERT_TRUE(waitForPage(tracker));
        tracker.trackPageView(u"again"_s);
        const bool came = QTest::qWaitFor([&] { return commands(good).size() > before; }, fails ? 300 : webPatience);
        EXPECT_NE(came, fails);
    }
    // One that never comes is loading for good, until another is asked for.
    KXGATracker tracker;
    tracker.setConsent(true);
    tracker.trackEvent(u"c"_s, u"early"_s, {}, 1, true); // there is no page: it goes nowhere, and that was that
    EXPECT_FALSE(tracker.payloads().constLast().sent);
    tracker.startTrackerUsingInitURL(silent.url().toString());
    QTest::qWait(300);
    EXPECT_TRUE(tracker.isLoading());
    tracker.trackPageView(u"dropped"_s);
    tracker.startTrackerUsingInitURL(good.url().toString());
    EXPECT_TRUE(waitForPage(tracker));
    EXPECT_FALSE(tracker.initPageDidFailToLoad());
    tracker.trackEvent(u"c"_s, u"early"_s, {}, 2, true);
    EXPECT_EQ(tracker.payloads().constLast().text, good.url().toString());
}
