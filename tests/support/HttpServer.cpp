#include "HttpServer.h"

#include <algorithm>

#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

HttpServer::HttpServer(QByteArray body, Mode mode, QByteArray elsewhere)
    : m_body(std::move(body))
    , m_elsewhere(std::move(elsewhere))
    , m_mode(mode)
{
    m_socket = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t size = sizeof address;
    auto *plain = reinterpret_cast<sockaddr *>(&address);
    if (bind(m_socket, plain, size) != 0 || listen(m_socket, 16) != 0 || getsockname(m_socket, plain, &size) != 0)
        qFatal("no loopback server");
    m_port = ntohs(address.sin_port);
    qunsetenv("http_proxy"); // holds for loopback as well
    m_thread = std::thread(&HttpServer::serve, this);
}

HttpServer::~HttpServer()
{
    m_ends = true;
    shutdown(m_socket, SHUT_RDWR);
    m_thread.join();
    {
        const std::lock_guard lock(m_mutex);
        for (const int connection : m_connections)
            shutdown(connection, SHUT_RDWR);
    }
    for (std::thread &thread : m_answers)
        thread.join();
    close(m_socket);
}

QUrl HttpServer::url() const { return QUrl(QStringLiteral("http://127.0.0.1:%1/music").arg(m_port)); }

void HttpServer::serve()
{
    while (!m_ends) {
        const int connection = accept4(m_socket, nullptr, nullptr, SOCK_CLOEXEC);
        if (connection < 0)
            continue;
        const std::lock_guard lock(m_mutex);
        m_connections.insert(connection);
        m_answers.emplace_back(&HttpServer::answer, this, connection);
    }
}

void HttpServer::answer(int connection)
{
    const auto sendAll = [&](const QByteArray &bytes) {
        for (qsizetype at = 0; at < bytes.size();) {
            const ssize_t sent = send(connection, bytes.constData() + at, size_t(bytes.size() - at), MSG_NOSIGNAL);
            if (sent <= 0)
                return;
            at += sent;
        }
    };
    QByteArray request;
    char bytes[4096];
    for (ssize_t got = 1; got > 0 && !request.contains("\r\n\r\n");) {
        got = recv(connection, bytes, sizeof bytes, 0);
        if (got > 0)
            request.append(bytes, got);
    }
    if (request.isEmpty()) // a connection opened in advance
        return forget(connection);
    {
        const std::lock_guard lock(m_mutex);
        m_heads.push_back(request);
    }
    const int number = ++m_requests;
    const bool ranges = m_mode != NoRanges && m_mode != Lie && m_mode != NoLength;
    const qsizetype at = request.indexOf("bytes=");
    const qsizetype from = ranges && at > 0
        ? std::min<qsizetype>(request.mid(at + 6, request.indexOf('-', at) - at - 6).toLongLong(), m_body.size())
        : 0;
    const auto waitForTheEnd = [&] { return recv(connection, bytes, sizeof bytes, 0); };
    if (m_mode == Stall) {
        waitForTheEnd();
    } else if (m_mode == Redirect || (m_mode == RedirectLater && number > 1)
        || (m_mode == RedirectSeeks && from > m_body.size() / 2)) {
        sendAll("HTTP/1.1 302 Found\r\nContent-Length: 0\r\nConnection: close\r\nLocation: "
            + (m_mode == RedirectSeeks ? m_elsewhere : m_body) + "\r\n\r\n");
    } else if (m_mode == NotFound) {
        sendAll("HTTP/1.1 404 Not Found\r\nContent-Length: 0\r\nConnection: close\r\n\r\n");
    } else {
        QByteArray head = from > 0 || (ranges && at > 0) ? "HTTP/1.1 206 Partial Content\r\n" : "HTTP/1.1 200 OK\r\n";
        const qsizetype length = (m_body.size() - from) * (m_mode == Lie ? 2 : 1);
        head += "Connection: close\r\n";
        if (m_mode != NoLength)
            head += "Content-Length: " + QByteArray::number(length) + "\r\n";
        if (ranges && at > 0)
            head += "Content-Range: bytes " + QByteArray::number(from) + '-' + QByteArray::number(m_body.size() - 1)
                + '/' + QByteArray::number(m_body.size()) + "\r\n";
        if (ranges)
            head += "Accept-Ranges: bytes\r\n";
        const bool stalls = m_mode == StallInBody || (m_mode == StallInBodyOnce && number == 1);
        const bool cuts = m_mode == Cut || stalls || (m_mode == CutOnce && number == 1);
        const qsizetype end = cuts ? std::max(from, m_body.size() / 2) : m_body.size();
        sendAll(head + "\r\n" + m_body.mid(from, end - from));
        if (stalls)
            waitForTheEnd();
    }
    forget(connection);
}

void HttpServer::forget(int connection)
{
    const std::lock_guard lock(m_mutex);
    m_connections.erase(connection);
    shutdown(connection, SHUT_WR);
    close(connection);
}

std::vector<QByteArray> HttpServer::requestHeads() const
{
    const std::lock_guard lock(m_mutex);
    return m_heads;
}
