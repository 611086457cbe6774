#include "StallingProxy.h"

#include <algorithm>
#include <vector>

#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include "PostgresServer.h"

namespace {

sockaddr_un proxyAddress(const QString &path)
{
    sockaddr_un address {};
    address.sun_family = AF_UNIX;
    qstrncpy(address.sun_path, path.toLocal8Bit().constData(), sizeof address.sun_path);
    return address;
}

}

StallingProxy::StallingProxy(const QString &serverSocket)
    : m_folder(QStringLiteral("/tmp/kxproxy-XXXXXX"))
    , m_server(serverSocket)
{
    const sockaddr_un address = proxyAddress(PostgresServer::socketIn(m_folder.path()));
    m_socket = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (::bind(m_socket, reinterpret_cast<const sockaddr *>(&address), sizeof address) || ::listen(m_socket, 20))
        qFatal("No proxy");
    m_thread = std::thread([this] { run(); });
}

StallingProxy::~StallingProxy()
{
    m_ends = true;
    m_thread.join();
    ::close(m_socket);
}

void StallingProxy::run()
{
    std::vector<pollfd> sockets { { m_socket, POLLIN, 0 } }; // then pairs: who asks, and the server
    while (!m_ends) {
        const bool isStalled = m_left == 0;
        for (size_t i = 1; i < sockets.size(); ++i)
            sockets[i].events = isStalled ? 0 : POLLIN;
        if (::poll(sockets.data(), nfds_t(sockets.size()), 10) <= 0)
            continue;
        if (sockets[0].revents) {
            const int client = ::accept(m_socket, nullptr, nullptr);
            const int server = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
            const sockaddr_un address = proxyAddress(m_server);
            (void)::connect(server, reinterpret_cast<const sockaddr *>(&address), sizeof address);
            sockets.push_back({ client, POLLIN, 0 });
            sockets.push_back({ server, POLLIN, 0 });
            continue;
        }
        for (size_t i = 1; i < sockets.size(); ++i) {
            if (!(sockets[i].revents & (POLLIN | POLLHUP)) || m_left == 0)
                continue;
            const size_t other = i % 2 ? i + 1 : i - 1;
            char buffer[4096];
            size_t most = sizeof buffer;
            const bool isAnswer = i % 2 == 0;
            const qint64 left = isAnswer ? m_left.load() : -1;
            if (left > 0)
                most = std::min(most, size_t(left));
            const ssize_t size = ::read(sockets[i].fd, buffer, most);
            if (size <= 0 || ::send(sockets[other].fd, buffer, size_t(size), MSG_NOSIGNAL) != size) {
                ::close(sockets[i].fd);
                ::close(sockets[other].fd);
                const auto first = sockets.begin() + qsizetype(std::min(i, other));
                sockets.erase(first, first + 2);
                break;
            }
            if (left > 0)
                m_left -= size;
        }
    }
    for (size_t i = 1; i < sockets.size(); ++i)
        ::close(sockets[i].fd);
}
