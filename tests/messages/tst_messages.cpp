// Messages, their center, the strip.

#include <QPaintEvent>
#include <QPushButton>
#include <QShortcut>
#include <QSignalSpy>
#include <QTest>
#include <gtest/gtest.h>

#include <kestrixkit/foundation/KXClock.h>
#include <kestrixkit/messages/KXMessageCenter.h>
#include <kestrixkit/messages/views/KXMessageCenterDetailsViewController.h>
#include <kestrixkit/messages/views/KXMessageCenterViewController.h>
#include <kestrixkit/theme/KXDarkTheme.h>
#include <kestrixkit/theme/KXThemeManager.h>
#include <kestrixkit/toolkit/KXAnimationGroup.h>
#include <kestrixkit/toolkit/KXHTMLView.h>
#include <kestrixkit/toolkit/KXPopoverController.h>
#include <support/KXTestLog.h>
#include <support/KXTestPrint.h>

using namespace Qt::StringLiterals;

/// A host that keeps the strip in a window.
class MessageHost : public KXMessageCenterViewControllerDelegate
{
public:
    void messageCenterViewShouldBeShown(KXMessageCenterViewController *controller) override
    {
        ++shown;
        controller->view()->show();
    }
    void messageCenterViewShouldBeHidden(KXMessageCenterViewController *controller) override
    {
        ++hidden;
        controller->view()->hide();
    }
    int shown = 0, hidden = 0;
};

namespace {

class PaintCounter : public QObject
{
public:
    bool eventFilter(QObject *, QEvent *event) override
    {
        paints += event->type() == QEvent::Paint;
        return false;
    }
    int paints = 0;
};

KXError messageError(int code, const QString &domain = u"D"_s) { return KXError(domain, code, u"bad"_s); }
KXMessage::Ref messageNews(const QString &title) { return KXMessage::messageWithType(KXMessageTypeInfo, title, {}); }

}

class MessageTest : public ::testing::Test
{
protected:
    MessageTest() { KXAnimationGroup::setAnimationsEnabled(false); }
    ~MessageTest() override
    {
        center.clearMessages(center.messages());
        KXAnimationGroup::setAnimationsEnabled(true);
        QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    }
    QStringList titles() const
    {
        QStringList titles;
        for (const KXMessage::Ref &message : center.messages())
            titles.append(message->title());
        return titles;
    }
    KXMessageCenter &center = KXMessageCenter::sharedInstance();
};

class StripTest : public MessageTest
{
protected:
    StripTest()
    {
        controller.setDelegate(&host);
        controller.view()->setParent(&window);
        window.resize(401, 200);
        window.show();
        controller.view()->setGeometry(0, 0, 401, 31);
        strip = controller.messageView();
    }
    bool showsDetails() const { return controller.messageDetailsPopover()->isShown(); }
    MessageHost host;
    QWidget window;
    KXMessageCenterViewController controller;
    KXMessageView *strip = nullptr;
};

TEST_F(MessageTest, textsOfMessages)
{
    KXClockPin pin(QDateTime(QDate(2026, 3, 4), QTime(23, 30), Qt::UTC));
    KXClock::setTimeZone(QTimeZone(3600));
    KXClock::setLocale(QLocale(u"de_DE"_s));
    const KXError error(
        u"com.example"_s, -7, u"a < b"_s, { { KXErrorStackTraceKey, QStringList { u"f()"_s, u"g()"_s } } });
    const auto message = KXMessage::messageWithError(error);
    EXPECT_EQ(message->title(), u"a < b"_s);
    EXPECT_EQ(message->info(), u"[com.example] (-7): a < b\n\n"_s);
    EXPECT_EQ(message->infoAsHTMLString(),
        u"[com.example] (-7): a < b\n\n<h4>Stack Trace: </h4><code>f()\n</br>g()\n</br></code>"_s);
    EXPECT_EQ(message->timestampAsString(), u"05.03.26 00:30"_s);
    EXPECT_EQ(KXMessage::messageWithTitle(u"mine"_s, error)->title(), u"mine"_s);

    const auto none = KXMessage::messageWithTitle(u"alone"_s, {});
    EXPECT_TRUE(none->info().isNull() && !none->representedError() && none->type() == KXMessageTypeError);
    EXPECT_EQ(KXMessage::messageWithType(KXMessageTypeInfo, u"t"_s, u"<b>i</b>"_s)->infoAsHTMLString(), u"<b>i</b>"_s);

    // A copy of an error has the stack of where it was copied, and everything else of the first.
    const KXError copy = KXError::errorWithError(error);
    EXPECT_EQ(copy.domain() + copy.localizedDescription(), u"com.examplea < b"_s);
    const QStringList stack = copy.userInfo().value(KXErrorStackTraceKey).toStringList();
    EXPECT_TRUE(stack.size() > 1 && stack.size() <= 100 && !stack.contains(u"f()"_s));
}

TEST_F(MessageTest, substitutesStandOnceAndInFront)
{
    const auto offline = messageNews(u"offline"_s);
    center.substituteMessagesWithError(messageError(1, u"Net"_s), messageNews(u"replaced later"_s));
    center.substituteMessagesWithError(messageError(1, u"Net"_s), offline);
    center.substituteMessagesWithError(messageError(10, u"D"_s), messageNews(u"shared key"_s));
    QStringList posted;
    const auto token = KXNotificationCenter::defaultCenter().addObserver(
        KXMessageCenterDidPostMessageNotification, &center, [&](const KXNotification &notification) {
            const auto message = notification.userInfo.value(u"message"_s).value<KXMessage::Ref>();
            EXPECT_EQ(*notification.payloadAs<KXMessage::Ref>(), message);
            EXPECT_EQ(center.newestMessage(), message);
            posted.append(message->title());
        });
    const std::pair<KXMessage::Ref, QStringList> steps[] {
        { KXMessage::messageWithError(messageError(1, u"Net"_s)), { u"offline"_s } },
        { nullptr, { u"offline"_s } },
        { messageNews(u"news"_s), { u"news"_s, u"offline"_s } },
        { KXMessage::messageWithTitle(u"lost"_s, messageError(1, u"Net"_s)), { u"offline"_s, u"news"_s } },
        { KXMessage::messageWithError(messageError(10, u"Net"_s)), { u"bad"_s, u"offline"_s, u"news"_s } },
        { KXMessage::messageWithError(messageError(0, u"D1"_s)),
            { u"shared key"_s, u"bad"_s, u"offline"_s, u"news"_s } },
    };
    for (const auto &[message, expected] : steps) {
        center.postMessage(message);
        EXPECT_EQ(titles(), expected);
    }
    EXPECT_EQ(posted.join(u' '), u"offline news offline bad shared key"_s);

    // Twice is two entries, and clearing takes both; what is not there changes nothing.
    const auto twice = messageNews(u"twice"_s);
    center.postMessage(twice);
    center.postMessage(twice);
    center.clearMessages({ twice, offline, messageNews(u"news"_s), nullptr });
    EXPECT_EQ(titles(), QStringList({ u"shared key"_s, u"bad"_s, u"news"_s }));
    KXTestLog log;
    center.substituteMessagesWithError(messageError(3), nullptr);
    EXPECT_EQ(log.lines().size(), 1);
}

TEST_F(StripTest, showsTheNewestAndHowMany)
{
    KXThemeManager::sharedManager().setTheme(std::make_shared<KXDarkTheme>());
    const KXDarkTheme theme;
    center.postMessage(messageNews(u"Scanning & sorting"_s));
    EXPECT_EQ(strip->message(), u"Scanning & sorting"_s);
    EXPECT_EQ(strip->messageButton()->accessibleName(), u"Scanning & sorting"_s);
    EXPECT_EQ(strip->backgroundGradient(), QBrush(theme.messageViewInfoGradient()));
    center.postMessage(KXMessage::messageWithError(messageError(1)));
    EXPECT_EQ(strip->message(), u"bad (2)"_s);
    EXPECT_EQ(strip->backgroundGradient(), QBrush(theme.messageViewErrorGradient()));
    KXThemeManager::sharedManager().setTheme(nullptr);
    EXPECT_EQ(host.shown, 2);

    // Of a long text, and one that looks like markup, the strip shows a line of plain characters.
    strip->setMessage(QString(50'000'000, u'x'));
    EXPECT_LT(strip->messageButton()->text().size(), 1000);
    EXPECT_LT(strip->messageButton()->geometry().right(), strip->hideButton()->x());
    strip->setMessage(u"<img src='http://127.0.0.1'>\nline"_s);
    EXPECT_TRUE(strip->messageButton()->toolTip().contains(u"&lt;img"_s));
    EXPECT_EQ(strip->messageButton()->accessibleName(), u"<img src='http://127.0.0.1'> line"_s);
    strip->setMessage(u"Scanning"_s);
    EXPECT_EQ(strip->messageButton()->toolTip(), u"Scanning"_s);

    // Placed by the pixel, mirrored where texts run from the right.
    const QSize hide = strip->hideButton()->size();
    strip->setMessage(u"short"_s);
    const QRect text = strip->messageButton()->geometry();
    EXPECT_EQ(strip->hideButton()->pos(), QPoint(401 - 5 - hide.width(), (31 - hide.height()) / 2));
    EXPECT_EQ(text.topLeft(), QPoint(5, (31 - text.height()) / 2 + 1));
    EXPECT_EQ(text.size(), strip->messageButton()->sizeHint());
    window.setLayoutDirection(Qt::RightToLeft);
    EXPECT_EQ(strip->hideButton()->x(), 5);
    EXPECT_EQ(strip->messageButton()->geometry().right(), 400 - 5);
}

TEST_F(StripTest, selectingClearsAndHidingClearsAll)
{
    int selected = 0;
    const auto act = [&](const KXMessage::Ref &message) {
        ++selected;
        EXPECT_EQ(center.newestMessage(), message);
    };
    center.postMessage(messageNews(u"old"_s));
    center.postMessage(messageNews(u"new"_s));
    center.newestMessage()->setOnSelectionBlock(act);
    QShortcut elsewhere(Qt::Key_Space, &window); // has the window play something
    window.activateWindow();
    ASSERT_TRUE(QTest::qWaitForWindowActive(&window));
    strip->setFocus();
    QTest::keyClick(strip->messageButton(), Qt::Key_Space);
    EXPECT_EQ(selected, 1);
    EXPECT_EQ(titles(), QStringList(u"old"_s));
    EXPECT_EQ(host.hidden, 1); // although one is left
    EXPECT_EQ(strip->message(), u"new (2)"_s); // until the next one

    center.postMessage(messageNews(u"next"_s));
    QTest::keyClick(strip->hideButton(), Qt::Key_Return);
    EXPECT_EQ(host.hidden, 2);
    EXPECT_TRUE(titles().isEmpty());
    controller.messageWasSelected(strip); // nothing is left to select
    EXPECT_FALSE(controller.messageDetailsPopover());

    // The message's own action may end the strip.
    auto *brief = new KXMessageCenterViewController;
    std::unique_ptr<QWidget> view(brief->view());
    center.postMessage(messageNews(u"last"_s));
    center.newestMessage()->setOnSelectionBlock([&](const KXMessage::Ref &) {
        view.release(); // ends with its controller
        delete brief;
    });
    brief->messageWasSelected(brief->messageView());
    EXPECT_TRUE(titles().isEmpty());
}

TEST_F(StripTest, detailsClearWhatTheyShowed)
{
    center.postMessage(messageNews(u"seen"_s));
    QTest::mouseClick(strip->messageButton(), Qt::LeftButton);
    ASSERT_TRUE(showsDetails());
    center.postMessage(messageNews(u"late"_s));
    controller.messageDetailsPopover()->close();
    EXPECT_EQ(titles(), QStringList(u"late"_s));
    EXPECT_EQ(host.hidden, 0);
    EXPECT_EQ(strip->message(), u"late"_s);
    QTest::mouseClick(strip->messageButton(), Qt::LeftButton);
    controller.messageDetailsPopover()->close();
    EXPECT_TRUE(titles().isEmpty());
    EXPECT_EQ(host.hidden, 1);

    // Selecting it while they are shown closes them; there are new ones only if there is more.
    center.postMessage(messageNews(u"seen"_s));
    QTest::mouseClick(strip->messageButton(), Qt::LeftButton);
    controller.messageWasSelected(strip);
    EXPECT_FALSE(showsDetails());
    EXPECT_TRUE(titles().isEmpty());
    EXPECT_EQ(host.hidden, 2);
    center.postMessage(messageNews(u"seen"_s));
    QTest::mouseClick(strip->messageButton(), Qt::LeftButton);
    center.postMessage(messageNews(u"late"_s));
    controller.messageWasSelected(strip);
    EXPECT_TRUE(showsDetails());
    EXPECT_EQ(titles(), QStringList(u"late"_s));
    controller.messageDetailsPopover()->close();

    // The strip ends, with its window perhaps, while they are shown.
    center.postMessage(messageNews(u"seen"_s));
    QTest::mouseClick(strip->messageButton(), Qt::LeftButton);
    center.postMessage(messageNews(u"late"_s));
    delete strip;
    EXPECT_FALSE(showsDetails());
    EXPECT_EQ(titles(), QStringList(u"late"_s));
}

TEST_F(StripTest, messagesGoByThemselvesOnlyAsTheNewest)
{
    const auto passing = [&](const QString &title) {
        const auto message = messageNews(title);
        message->setAutoClear(true);
        center.postMessage(message);
        return message;
    };
    const auto first = passing(u"first"_s);
    EXPECT_TRUE(controller.clearTimer().isPending());
    center.postMessage(messageNews(u"stays"_s));
    EXPECT_FALSE(controller.clearTimer().isPending());
    controller.autoClearMessage(first);
    EXPECT_EQ(titles(), QStringList({ u"stays"_s, u"first"_s }));

    const auto second = passing(u"second"_s);
    QTest::mouseClick(strip->messageButton(), Qt::LeftButton);
    ASSERT_TRUE(showsDetails());
    controller.autoClearMessage(second);
    EXPECT_EQ(titles().size(), 3);
    controller.messageDetailsPopover()->close();
    const auto third = passing(u"third"_s);
    controller.autoClearMessage(third);
    EXPECT_TRUE(titles().isEmpty());
    EXPECT_EQ(host.hidden, 2);
}

// However many errors a turn brings, the strip is painted once and no page is made.
TEST_F(StripTest, aStormCostsOnePaintAndNoPage)
{
    center.postMessage(messageNews(u"calm"_s));
    QTest::mouseClick(strip->messageButton(), Qt::LeftButton);
    ASSERT_TRUE(showsDetails());
    auto *const page = static_cast<KXMessageCenterDetailsViewController *>(
        controller.messageDetailsPopover()->contentViewController())
                           ->detailsWebView();
    const QString before = page->html();
    ASSERT_TRUE(QTest::qWaitForWindowExposed(&window));
    QTest::qWait(0);
    PaintCounter strips, pages;
    strip->installEventFilter(&strips);
    page->pageWidget()->installEventFilter(&pages);
    for (int i = 0; i < 10'000; ++i)
        center.postMessage(KXMessage::messageWithError(messageError(i)));
    EXPECT_EQ(strips.paints, 0);
    QTest::qWait(0);
    QTest::qWait(20);
    EXPECT_EQ(strips.paints, 1);
    EXPECT_EQ(pages.paints, 0);
    EXPECT_EQ(page->html(), before);
    EXPECT_EQ(strip->message(), u"bad (10001)"_s);
}
