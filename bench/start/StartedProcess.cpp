#include "start/StartedProcess.h"

#include <QDir>
#include <QFile>
#include <QJsonDocument>

#include "start/StartLibrary.h"

using namespace Qt::StringLiterals;

namespace {

constexpr int longestSilence = 600'000; // ms: counting by SQL takes its time

/// The number behind a name in one of the kernel's files about a process.
qint64 kernelNumber(const QString &path, const QByteArray &name)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return 0; // a thread that has just ended
    for (const QByteArray &line : file.readAll().split('\n')) {
        if (line.startsWith(name + ':'))
            return line.mid(name.size() + 1).simplified().split(' ').constFirst().toLongLong();
    }
    return 0;
}

}

QProcessEnvironment StartedProcess::environment()
{
    const QString home = StartLibrary::folder() + u"/start-home"_s;
    QDir().mkpath(home);
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert(u"HOME"_s, home);
    for (const auto &[name, folder] : std::initializer_list<std::pair<QString, QString>> {
             { u"XDG_CONFIG_HOME"_s, u"config"_s }, { u"XDG_DATA_HOME"_s, u"data"_s },
             { u"XDG_CACHE_HOME"_s, u"cache"_s }, { u"XDG_STATE_HOME"_s, u"state"_s } })
        environment.insert(name, home + u'/' + folder);
    environment.insert(u"QT_QPA_PLATFORM"_s, u"offscreen"_s);
    return environment;
}

StartedProcess::StartedProcess(const QString &program, const QStringList &arguments)
{
    m_process.setProcessEnvironment(environment());
    m_process.setProcessChannelMode(QProcess::ForwardedErrorChannel);
    m_clock.start();
    m_process.start(program, arguments);
}

StartedProcess::~StartedProcess()
{
    m_process.terminate();
    if (!m_process.waitForFinished(30'000)) {
        m_process.kill();
        m_process.waitForFinished();
    }
}

double StartedProcess::waitFor(const QString &key)
{
    for (;;) {
        while (m_process.canReadLine()) {
            m_told = QJsonDocument::fromJson(m_process.readLine()).object();
            if (m_told.contains(key))
                return double(m_clock.nsecsElapsed()) * 1e-6;
        }
        if (!m_process.waitForReadyRead(longestSilence))
            return -1;
    }
}

QString StartedProcess::processFolder() const { return u"/proc/%1"_s.arg(m_process.processId()); }

qint64 StartedProcess::contextSwitches() const
{
    qint64 sum = 0;
    const QString threads = processFolder() + u"/task"_s;
    for (const QString &thread : QDir(threads).entryList(QDir::Dirs | QDir::NoDotAndDotDot)) {
        const QString status = threads + u'/' + thread + u"/status"_s;
        sum += kernelNumber(status, "voluntary_ctxt_switches") + kernelNumber(status, "nonvoluntary_ctxt_switches");
    }
    return sum;
}

qint64 StartedProcess::anonymousBytes() const { return kernelNumber(processFolder() + u"/status"_s, "RssAnon") * 1024; }
