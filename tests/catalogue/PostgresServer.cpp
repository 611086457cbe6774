#include "PostgresServer.h"

#include <csignal>
#include <vector>

#include <fcntl.h>
#include <libpq-fe.h>
#include <pwd.h>
#include <spawn.h>
#include <sys/wait.h>
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
        const pid_t maker = spawn(u"initdb"_s,
            { u"-D"_s, m_path + u"/data"_s, u"-U"_s, u"kx"_s, u"-A"_s, u"trust"_s, u"-E"_s, u"UTF8"_s, u"--locale=C"_s,
                u"--no-sync"_s, u"--no-instructions"_s });
        int status = -1;
        if (maker <= 0 || waitpid(maker, &status, 0) != maker || status != 0)
            qFatal("No server in %s", qPrintable(m_path));
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

pid_t PostgresServer::spawn(const QString &name, const QStringList &arguments) const
{
    QByteArrayList texts { "setpriv", "--pdeathsig", "QUIT" }; // nothing is left of a test that is killed
    if (geteuid() == 0)
        texts += { "--reuid", serverUser()->pw_name, "--regid", QByteArray::number(serverUser()->pw_gid),
            "--clear-groups" };
    texts.append(program(name).toLocal8Bit());
    for (const QString &argument : arguments)
        texts.append(argument.toLocal8Bit());
    std::vector<char *> pointers;
    for (QByteArray &text : texts)
        pointers.push_back(text.data());
    pointers.push_back(nullptr);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    for (const int stream : { STDOUT_FILENO, STDERR_FILENO })
        posix_spawn_file_actions_addopen(&actions, stream, "/dev/null", O_WRONLY, 0);
    posix_spawn_file_actions_addchdir_np(&actions, m_path.toLocal8Bit().constData());
    pid_t process = 0;
    if (posix_spawnp(&process, pointers[0], &actions, nullptr, pointers.data(), environ) != 0)
        process = -1;
    posix_spawn_file_actions_destroy(&actions);
    return process;
}

bool PostgresServer::start()
{
    const QString buffers = m_temporary ? u"shared_buffers=16MB"_s : u"shared_buffers=256MB"_s;
    m_process = spawn(u"postgres"_s,
        { u"-D"_s, m_path + u"/data"_s, u"-k"_s, m_path, u"-c"_s, u"listen_addresses="_s, u"-c"_s, u"fsync=off"_s,
            u"-c"_s, buffers, u"-c"_s, u"max_connections=40"_s, u"-c"_s, u"unix_socket_permissions=0777"_s });
    for (int i = 0; i < 600 && m_process > 0; ++i) {
        if (PQping(address().toUtf8().constData()) == PQPING_OK)
            return true;
        if (waitpid(m_process, nullptr, WNOHANG) == m_process)
            m_process = 0;
        usleep(50'000);
    }
    return false;
}

void PostgresServer::stop()
{
    if (!isRunning())
        return;
    kill(m_process, m_temporary ? SIGQUIT : SIGINT); // what stays is closed in order
    waitpid(m_process, nullptr, 0);
    m_process = 0;
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
