// Listens to music files for the browser, and answers a line of JSON for each: {"bpm":124,"file":"a.flac","key":"Am"},
// what was not found is absent; or {"error":"cannot be read: …","file":"a.flac"}.

#include <cstdio>

#include <csignal>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <QCoreApplication>
#include <QJsonDocument>
#include <QJsonObject>

#include <kestrixkit/foundation/KXLog.h>

#include "KeyFinder.h"
#include "TempoFinder.h"

namespace {

/// Whoever plays music, imports or works goes first; and nobody needs this when the browser is gone.
void stepBack()
{
    constexpr int ofProcess = 1;
    constexpr long idle = 3L << 13;
    const rlimit none {};
    setrlimit(RLIMIT_CORE, &none); // files that end it are nothing to keep
    setpriority(PRIO_PROCESS, 0, 15);
    (void)syscall(SYS_ioprio_set, ofProcess, 0, idle);
    prctl(PR_SET_PDEATHSIG, SIGKILL);
}

QJsonObject answerFor(const std::string &path)
{
    QJsonObject answer { { QStringLiteral("file"), QString::fromLocal8Bit(path.c_str()) } };
    QString problem;
    const Music music = MusicReader::read(path, &problem);
    if (!problem.isEmpty()) {
        answer.insert(QStringLiteral("error"), problem);
        return answer;
    }
    if (const auto tempo = TempoFinder::tempo(music))
        answer.insert(QStringLiteral("bpm"), *tempo);
    if (const QString key = KeyFinder::key(music); !key.isEmpty())
        answer.insert(QStringLiteral("key"), key);
    return answer;
}

} // namespace

int main(int argc, char **argv)
{
    const QCoreApplication application(argc, argv);
    if (argc < 2) {
        std::fputs("Usage: browser_analysis FILE…\n"
                   "Prints tempo and key of music files, a line of JSON for each.\n",
            stderr);
        return 2;
    }
    KXKestrixKitLogLevel = 0; // what cannot be read is said in the answer
    stepBack();
    for (int i = 1; i < argc; ++i) {
        const QByteArray line = QJsonDocument(answerFor(argv[i])).toJson(QJsonDocument::Compact) + '\n';
        if (std::fwrite(line.constData(), 1, size_t(line.size()), stdout) != size_t(line.size())
            || std::fflush(stdout) != 0)
            return 1;
    }
    return 0;
}
