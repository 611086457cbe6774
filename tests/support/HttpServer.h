#pragma once

#include <atomic>
#include <mutex>
#include <set>
#include <thread>
#include <vector>

#include <QByteArray>
#include <QUrl>

/// Serves one file on loopback, well or badly. Each connection is answered once, by a thread of its own.
class HttpServer
{
public:
    enum Mode {
        Normal, ///< byte ranges
        NoRanges, ///< always the whole file
        NotFound,
        Stall, ///< takes the request and says nothing
        StallInBody, ///< stops in the middle of the file, and keeps the connection
        StallInBodyOnce, ///< and this one only the first time
        Cut, ///< closes the connection in the middle of the file, every time
        CutOnce, ///< and this one only the first time
        Redirect, ///< to the address that is its body
        RedirectLater, ///< there from the second request on
        RedirectSeeks, ///< to `elsewhere`, who asks for the second half alone
        Lie, ///< promises twice the length, without ranges
        NoLength, ///< ends where it ends, without ranges
    };

    HttpServer(QByteArray body, Mode mode, QByteArray elsewhere = {});
    ~HttpServer();
    HttpServer(const HttpServer &) = delete;
    HttpServer &operator=(const HttpServer &) = delete;

    [[nodiscard]] QUrl url() const;
    [[nodiscard]] int requests() const { return m_requests; }
    /// The heads of the requests, as they came.
    [[nodiscard]] std::vector<QByteArray> requestHeads() const;

private:
    void serve();
    void answer(int connection);
    void forget(int connection);

    const QByteArray m_body;
    const QByteArray m_elsewhere;
    const Mode m_mode;
    int m_socket = -1;
    int m_port = 0;
    std::atomic<int> m_requests = 0;
    std::atomic<bool> m_ends = false;
    mutable std::mutex m_mutex;
    std::vector<QByteArray> m_heads;
    std::set<int> m_connections;
    std::vector<std::thread> m_answers;
    std::thread m_thread;
};
