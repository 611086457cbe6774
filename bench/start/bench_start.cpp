// The browser, from the start of its process on, beside a plain window on the same store; and what it costs while
// nobody touches it.

#include <thread>

#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>

#include "BenchProgram.h"
#include "peer/hand_rules.h"
#include "start/StartLibrary.h"
#include "start/StartedProcess.h"

using namespace Qt::StringLiterals;

namespace {

constexpr std::chrono::seconds settling(10); // after the last badge: files that are new are looked for after five
constexpr std::chrono::seconds watched(10);

QStringList browserArguments() { return { u"--store"_s, StartLibrary::path(), u"--report-start"_s }; }

/// The sum of all presets' counts, as the browser answered it when the library was made.
QString sumPath() { return StartLibrary::path() + u".sum"_s; }

qint64 rightSum()
{
    QFile file(sumPath());
    return file.open(QIODevice::ReadOnly) ? file.readAll().toLongLong() : -1;
}

void prepareStart()
{
    StartLibrary::prepare();
    if (QFile::exists(sumPath()))
        return;
    const auto browser = [](const QStringList &arguments) {
        QProcess process;
        process.setProcessEnvironment(StartedProcess::environment());
        process.start(QStringLiteral(KX_BROWSER), QStringList { u"--store"_s, StartLibrary::path() } + arguments);
        if (!process.waitForFinished(600'000) || process.exitCode() != 0)
            qFatal("the browser: %s", process.readAllStandardError().constData());
        return process.readAllStandardOutput();
    };
    qint64 sum = 0;
    const QJsonArray presets
        = QJsonDocument::fromJson(browser({ u"--report"_s })).object().value(u"presets"_s).toArray();
    for (const QJsonValue &preset : presets)
        sum += preset.toObject().value(u"count"_s).toInteger();
    if (presets.size() != hand::Rules)
        qFatal("not all presets");
    // The first window adds to the library what the later ones find there.
    browser({ u"--screenshot"_s, StartLibrary::folder() + u"/start.png"_s });
    QFile file(sumPath());
    if (!file.open(QIODevice::WriteOnly) || file.write(QByteArray::number(sum)) < 1)
        qFatal("%s cannot be written", qPrintable(file.fileName()));
}

void shownOurs(benchmark::State &state)
{
    StartedProcess browser(QStringLiteral(KX_BROWSER), browserArguments());
    const double time = browser.waitFor(u"shown"_s);
    if (time < 0)
        return state.SkipWithError("no picture");
    BenchProgram::report(state, time);
}

void shownPeer(benchmark::State &state)
{
    StartedProcess window(QStringLiteral(KX_PLAIN_WINDOW), { StartLibrary::path() });
    const double time = window.waitFor(u"shown"_s);
    if (time < 0 || window.told().value(u"rows"_s).toInt() == 0)
        return state.SkipWithError("no picture");
    BenchProgram::report(state, time);
}

void badgesOurs(benchmark::State &state)
{
    StartedProcess browser(QStringLiteral(KX_BROWSER), browserArguments());
    const double time = browser.waitFor(u"counted"_s);
    if (time < 0 || browser.told().value(u"counts"_s).toInt() < hand::Rules)
        return state.SkipWithError("no counts");
    BenchProgram::report(state, time);
}

void badgesPeer(benchmark::State &state)
{
    StartedProcess window(QStringLiteral(KX_PLAIN_WINDOW), { StartLibrary::path(), u"--counts"_s });
    const double time = window.waitFor(u"counted"_s);
    if (time < 0 || window.told().value(u"sum"_s).toInteger() != rightSum())
        return state.SkipWithError("wrong counts");
    BenchProgram::report(state, time);
}

/// Once everything is shown and nothing is left to do.
template <typename Value> void atRest(benchmark::State &state, Value &&value)
{
    StartedProcess browser(QStringLiteral(KX_BROWSER), browserArguments());
    if (browser.waitFor(u"counted"_s) < 0)
        return state.SkipWithError("no counts");
    std::this_thread::sleep_for(settling);
    BenchProgram::report(state, value(browser));
}

void wakeups(benchmark::State &state)
{
    atRest(state, [](const StartedProcess &browser) {
        const qint64 before = browser.contextSwitches();
        std::this_thread::sleep_for(watched);
        return double(browser.contextSwitches() - before);
    });
}

void bytes(benchmark::State &state)
{
    atRest(state, [](const StartedProcess &browser) { return double(browser.anonymousBytes()) / (1 << 20); });
}

}

int main(int argc, char **argv)
{
    BenchProgram::add("start.shown/ours", shownOurs);
    BenchProgram::add("start.shown/peer", shownPeer);
    BenchProgram::add("start.badges/ours", badgesOurs);
    BenchProgram::add("start.badges/peer", badgesPeer);
    BenchProgram::add("start.wakeups/ours", wakeups);
    BenchProgram::add("start.bytes/ours", bytes);
    return BenchProgram::run(argc, argv, prepareStart);
}
