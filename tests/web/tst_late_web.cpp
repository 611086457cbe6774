// What a program loads only when it is needed: the engine with the first page.

#include <QFile>
#include <QTest>
#include <gtest/gtest.h>

#include <kestrixkit/toolkit/KXHTMLView.h>
#include <kestrixkit/web/KXGATracker.h>
#include <kestrixkit/web/KXWeb.h>
#include <kestrixkit/web/KXWebEngine.h>

using namespace Qt::StringLiterals;

namespace {

bool isLoaded(const char *library)
{
    QFile maps(u"/proc/self/maps"_s);
    return maps.open(QIODevice::ReadOnly) && maps.readAll().contains(library);
}

}

TEST(LateWeb, theEngineComesWithTheFirstPage)
{
    KXWeb::registerViews();
    KXGATracker tracker;
    tracker.trackPageView(u"library"_s);
    EXPECT_TRUE(KXWebEngine::canStart());
    KXHTMLView view;
    EXPECT_FALSE(isLoaded("libQt6WebEngineCore"));
    EXPECT_FALSE(isLoaded("libavformat")); // what decodes, which the libraries below bring

    view.setHTML(u"<title>Crate</title><p>Tech House"_s);
    view.show();
    EXPECT_TRUE(isLoaded("libQt6WebEngineCore"));
    EXPECT_STREQ(view.pageWidget()->metaObject()->className(), "QWebEngineView");
    EXPECT_TRUE(QTest::qWaitFor([&] { return view.pageWidget()->property("title") == u"Crate"_s; }, 60'000));
    EXPECT_EQ(KXWebEngine::version().count(u'.'), 3);

    tracker.setConsent(true);
    tracker.startTrackerUsingInitURL(u"data:text/html,here"_s);
    EXPECT_TRUE(tracker.isLoading());
    EXPECT_TRUE(QTest::qWaitFor([&] { return !tracker.isLoading(); }, 60'000));
    EXPECT_FALSE(tracker.initPageDidFailToLoad());
}
