// What waits until the window has been drawn.

#include <QCoreApplication>
#include <QTest>
#include <gtest/gtest.h>

#include <window/FirstPicture.h>

TEST(FirstPicture, comesOnceAndBehindEverythingThatIsDrawn)
{
    class Part : public QWidget
    {
    public:
        using QWidget::QWidget;
        int drawn = 0;

    protected:
        void paintEvent(QPaintEvent *) override { ++drawn; }
    };
    QWidget window;
    window.resize(100, 50);
    Part first(&window), last(&window);
    first.setGeometry(0, 0, 50, 50);
    last.setGeometry(50, 0, 50, 50);
    int calls = 0, drawnBefore = 0;
    FirstPicture::then(&first, [&] {
        ++calls;
        drawnBefore = last.drawn;
    });
    QCoreApplication::processEvents();
    EXPECT_EQ(calls, 0);
    window.show();
    ASSERT_TRUE(QTest::qWaitFor([&] { return calls > 0; }));
    EXPECT_EQ(drawnBefore, 1);
    first.repaint();
    QTest::qWait(20);
    EXPECT_EQ(calls, 1);
}

TEST(FirstPicture, isNotWaitedForInVainAndIsNothingToWhoIsGone)
{
    QWidget covered;
    auto *const gone = new QWidget;
    bool isCalled = false;
    FirstPicture::then(gone, [] { ADD_FAILURE() << "called for a view that is gone"; });
    FirstPicture::then(&covered, [&] { isCalled = true; });
    delete gone;
    EXPECT_TRUE(QTest::qWaitFor([&] { return isCalled; }, 60'000));

    auto *window = new QWidget; // ends while it is told
    FirstPicture::then(window, [&] { delete std::exchange(window, nullptr); });
    window->show();
    EXPECT_TRUE(QTest::qWaitFor([&] { return !window; }));
}
