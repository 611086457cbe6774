#pragma once

#include <atomic>
#include <thread>

#include <QTemporaryDir>

/// A slow network: passes everything between a socket of its own and a server's, until it is told to hold it back.
class StallingProxy
{
public:
    explicit StallingProxy(const QString &serverSocket);
    ~StallingProxy();
    Q_DISABLE_COPY_MOVE(StallingProxy)

    /// The folder of its socket.
    [[nodiscard]] QString folder() const { return m_folder.path(); }
    /// Takes connections and bytes, and passes nothing on. How many bytes of answers may still pass before.
    void stall(qint64 afterBytes = 0) { m_left = afterBytes; }
    void goOn() { m_left = -1; }

private:
    void run();

    QTemporaryDir m_folder;
    const QString m_server;
    int m_socket = -1;
    std::atomic<qint64> m_left = -1;
    std::atomic<bool> m_ends = false;
    std::thread m_thread;
};
