#include "PostgresServer.h"

#include <csignal>

#include <grp.h>
#include <libpq-fe.h>
#include <pwd.h>
#include <unistd.h>

#include <QDir>

using namespace Qt::StringLiterals;

namespace {

/// Who runs the server when the tests run as root, which it refuses.
const passwd *serverUser()
{
    const passwd *user = getpwnam("postgres");
    return user ? user : getpwnam("nobody");
}

}

QString PostgresServer::program(const QString &name)
{
    QStringList versions = QDir(u"/usr/lib/postgresql"_s).entryList(QDir::Dirs | QDir::NoDotAndDotDot, QDir::Name);
    for (; !versions.isEmpty(); versions.removeLast()) {
        const QString path = u"/usr/lib/postgresql/%1/bin/%2"_s.arg(versions.last(), name);
        if (QFile::exists(path))
            return path;
    }
    return {};
}

bool PostgresServer::isAvailable(QString *reason)
{
    if (program(u"initdb"_s).isEmpty()) {
        *reason = u"PostgreSQL is not installed below /usr/lib/postgresql (package postgresql)"_s;
        return false;
    }
    if (geteuid() == 0 && !serverUser()) {
        *reason = u"root may not run PostgreSQL, and there is no other user"_s;
        return false;
    }
    return true;
}

PostgresServer::PostgresServer(const QString &folder)
    : m_path(folder)
{
    if (folder.isEmpty()) {
        // Not below a folder of the tests: sockets have short paths, and other users must get there.
        m_temporary = std::make_unique<QTemporaryDir>(u"/tmp/kxpg-XXXXXX"_s);
        m_path = m_temporary->path();
    }
    if (!QDir().mkpath(m_path)
        || (geteuid() == 0 && chown(m_path.toLocal8Bit().constData(), serverUser()->pw_uid, serverUser()->pw_gid)))
        qFatal("No folder for a server");
    if (!QFile::exists(m_path + u"/data/PG_VERSION"_s)) {
        const auto maker = prepared();
        maker->start(program(u"initdb"_s),
            { u"-D"_s, m_path + u"/data"_s, u"-U"_s, u"kx"_s, u"-A"_s, u"trust"_s, u"-E"_s, u"UTF8"_s, u"--locale=C"_s,
                u"--no-sync"_s, u"--no-instructions"_s });
        if (!maker->waitForFinished(120'000) || maker->exitCode() != 0)
            qFatal("No server: %s", maker->readAllStandardError().constData());
    }
    if (!start())
        qFatal("The server in %s does not start", qPrintable(m_path));
}

PostgresServer::~PostgresServer()
{
    stop();
    if (m_temporary)
        QDir(m_path).removeRecursively(); // it belongs to somebody else
}

std::unique_ptr<QProcess> PostgresServer::prepared() const
{
    auto process = std::make_unique<QProcess>();
    process->setWorkingDirectory(m_path);
    if (geteuid() == 0) {
        const passwd *user = serverUser();
        process->setChildProcessModifier([id = user->pw_uid, group = user->pw_gid] {
            if (setgroups(0, nullptr) || setgid(group) || setuid(id))
                _exit(1);
        });
    }
    return process;
}

bool PostgresServer::start()
{
    m_process = prepared();
    m_process->setStandardErrorFile(QProcess::nullDevice());
    m_process->setStandardOutputFile(QProcess::nullDevice());
    m_process->start(program(u"postgres"_s),
        { u"-D"_s, m_path + u"/data"_s, u"-k"_s, m_path, u"-c"_s, u"listen_addresses="_s, u"-c"_s, u"fsync=off"_s,
            u"-c"_s, m_temporary ? u"shared_buffers=16MB"_s : u"shared_buffers=256MB"_s, u"-c"_s,
            u"max_connections=40"_s, u"-c"_s, u"unix_socket_permissions=0777"_s });
    for (int i = 0; i < 600; ++i) {
        if (PQping(address().toUtf8().constData()) == PQPING_OK)
            return true;
        if (!m_process->waitForStarted(1000) || m_process->state() != QProcess::Running)
            return false;
        usleep(50'000);
    }
    return false;
}

void PostgresServer::stop()
{
    if (!isRunning())
        return;
    kill(pid_t(m_process->processId()), m_temporary ? SIGQUIT : SIGINT); // what stays is closed in order
    m_process->waitForFinished(30'000);
}

QString PostgresServer::address(const QString &folder) const
{
    return u"host=%1 port=5432 user=kx dbname=postgres"_s.arg(folder.isEmpty() ? m_path : folder);
}

QString PostgresServer::run(const QString &sql) const
{
    PGconn *const connection = PQconnectdb(address().toUtf8().constData());
    PGresult *const result = PQexec(connection, sql.toUtf8().constData());
    if (PQresultStatus(result) != PGRES_TUPLES_OK && PQresultStatus(result) != PGRES_COMMAND_OK)
        qWarning("%s", PQerrorMessage(connection));
    const QString value = PQntuples(result) > 0 ? QString::fromUtf8(PQgetvalue(result, 0, 0)) : QString();
    PQclear(result);
    PQfinish(connection);
    return value;
}
