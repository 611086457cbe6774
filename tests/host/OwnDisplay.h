#pragma once

#include <functional>

#include <QCoreApplication>
#include <QPoint>
#include <QProcess>
#include <QStandardPaths>
#include <QTest>
#include <gtest/gtest.h>

#include <support/KXTestProcess.h>

/// Drags with the display's pointer from one place of the screen to another at the pace of a hand, which rests there
/// before it lets go, until `isDone`.
inline void dragWithPointer(QPoint from, QPoint to, const std::function<bool()> &isDone)
{
    using namespace Qt::StringLiterals;
    const auto moveTo = [](QPoint place) {
        return QStringList { u"mousemove"_s, QString::number(place.x()), QString::number(place.y()) };
    };
    QStringList steps = moveTo(from) << u"mousedown"_s << u"1"_s;
    for (int i = 1; i <= 20; ++i)
        steps << moveTo(from + (to - from) * i / 20) << u"sleep"_s << u"0.02"_s;
    steps << u"sleep"_s << u"0.2"_s << u"mouseup"_s << u"1"_s;
    QProcess hand;
    startWithFork(hand);
    hand.start(u"xdotool"_s, steps);
    EXPECT_TRUE(QTest::qWaitFor(isDone, 60'000)) << "nothing was dropped";
    EXPECT_TRUE(QTest::qWaitFor([&] { return hand.state() == QProcess::NotRunning; }, 60'000));
}

/// Runs one (disabled) test of this program on a display of its own, where a real pointer moves; skips where the
/// machine has none. As the last thing that a test does.
inline void runOnOwnDisplay(const QString &test)
{
    using namespace Qt::StringLiterals;
#ifdef KX_SANITIZED
    GTEST_SKIP() << "what the display's libraries do is not ours to check";
#endif
    for (const QString &program : { u"Xvfb"_s, u"xdotool"_s }) {
        if (QStandardPaths::findExecutable(program).isEmpty())
            GTEST_SKIP() << program.toStdString() << " is not installed";
    }
    QProcess display;
    startWithFork(display);
    display.start(
        u"Xvfb"_s, { u"-displayfd"_s, u"1"_s, u"-screen"_s, u"0"_s, u"1600x1000x24"_s, u"-nolisten"_s, u"tcp"_s });
    QByteArray number;
    while (!number.endsWith('\n') && display.waitForReadyRead(30'000))
        number += display.readAllStandardOutput();
    if (!number.endsWith('\n'))
        GTEST_SKIP() << "Xvfb does not start: " << display.readAllStandardError().toStdString();

    QProcess program;
    startWithFork(program);
    auto environment = QProcessEnvironment::systemEnvironment();
    environment.insert(u"DISPLAY"_s, u':' + QString::fromLatin1(number.trimmed()));
    environment.insert(u"QT_QPA_PLATFORM"_s, u"xcb"_s);
    program.setProcessEnvironment(environment);
    program.setProcessChannelMode(QProcess::MergedChannels);
    program.start(
        QCoreApplication::applicationFilePath(), { u"--gtest_also_run_disabled_tests"_s, u"--gtest_filter="_s + test });
    EXPECT_TRUE(program.waitForFinished(180'000));
    const QByteArray said = program.readAll();
    if (said.contains("no Qt platform plugin could be initialized"))
        GTEST_SKIP() << "the toolkit cannot use the display";
    EXPECT_EQ(program.exitCode(), 0) << said.toStdString();
    EXPECT_TRUE(said.contains("[       OK ]")) << said.toStdString();
    display.terminate();
    display.waitForFinished(30'000);
}
