#pragma once

#include <memory>

#include <QStringList>
#include <QTemporaryDir>

#include <sys/types.h>

/// A PostgreSQL of its own: data in a temporary folder, reachable by a socket there, run by a user without privileges.
///
/// A test asks isAvailable() first, and is skipped with the reason where it cannot run here.
class PostgresServer
{
public:
    /// Makes the data and starts the server; in a folder that is there for good, or in one of its own.
    explicit PostgresServer(const QString &folder = {});
    ~PostgresServer();
    Q_DISABLE_COPY_MOVE(PostgresServer)

    /// Whether one can run on this machine; otherwise why not.
    [[nodiscard]] static bool isAvailable(QString *reason);

    /// Whether it was started and not stopped.
    [[nodiscard]] bool isRunning() const { return m_process > 0; }
    bool start();
    /// Connections are cut at once.
    void stop();
    /// For libpq, through the server's own socket or one that lies in another folder.
    [[nodiscard]] QString address(const QString &folder = {}) const;
    [[nodiscard]] QString socketPath() const { return socketIn(m_path); }
    [[nodiscard]] static QString socketIn(const QString &folder) { return folder + QStringLiteral("/.s.PGSQL.5432"); }
    /// Runs SQL in a session of its own; the first value of the last result.
    QString run(const QString &sql) const;

private:
    [[nodiscard]] static QString program(const QString &name);
    /// Starts one of PostgreSQL's programs. Not by a QProcess: after a fork the thread sanitizer loses track of locks.
    [[nodiscard]] pid_t spawn(const QString &name, const QStringList &arguments) const;

    std::unique_ptr<QTemporaryDir> m_temporary; ///< none where the folder stays
    QString m_path;
    pid_t m_process = 0;
};
