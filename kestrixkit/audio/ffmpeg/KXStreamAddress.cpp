#include <kestrixkit/audio/ffmpeg/KXStreamAddress_p.h>

#include <algorithm>
#include <mutex>
#include <system_error>
#include <thread>

#include <QEventLoop>
#include <QHostInfo>
#include <QNetworkAccessManager>
#include <QNetworkProxy>
#include <QNetworkReply>
#include <QTimer>

#include <kestrixkit/audio/ffmpeg/KXFFmpegLibraries_p.h>
#include <kestrixkit/foundation/KXLog.h>

using namespace Qt::StringLiterals;

namespace {

constexpr int streamMostRedirects = 8;
constexpr int streamLookMilliseconds = 20; // between two looks whether it is interrupted

std::mutex streamRuleMutex;

std::function<bool(const QUrl &)> &streamRule()
{
    static std::function<bool(const QUrl &)> rule;
    return rule;
}

/// Follows redirects, on a thread that has nothing else to do.
class StreamResolver
{
public:
    explicit StreamResolver(const KXStreamAddress::Asker &asker)
        : m_asker(asker)
    {
        m_watch.setInterval(streamLookMilliseconds);
        QObject::connect(&m_watch, &QTimer::timeout, &m_loop, [this] {
            m_isInterrupted = m_asker.isInterrupted();
            if (m_isInterrupted)
                m_loop.quit();
        });
        m_watch.start();
        // The decoder minds this variable and nothing else.
        const QUrl proxy(qEnvironmentVariable("http_proxy"));
        m_network.setProxy(proxy.host().isEmpty() ? QNetworkProxy(QNetworkProxy::NoProxy)
                                                  : QNetworkProxy(QNetworkProxy::HttpProxy, proxy.host(),
                                                      quint16(proxy.port(80)), proxy.userName(), proxy.password()));
    }

    KXAudioFileStatus follow(QUrl &address, bool &isFinal)
    {
        const bool staysOutside = !m_asker.followsPrivateRedirects && !leadsInside(address);
        isFinal = staysOutside || m_asker.mayLeadTo;
        if (!isFinal)
            return KXAudioFileNoError;
        QUrl here = address;
        for (int redirects = 0; redirects <= streamMostRedirects && !m_isInterrupted; ++redirects) {
            QUrl next;
            if (const KXAudioFileStatus status = ask(here, next))
                return status;
            if (next.isEmpty()) {
                address = here;
                return KXAudioFileNoError;
            }
            if (next.scheme() != "http"_L1 && next.scheme() != "https"_L1)
                return KXAudioFileForbiddenError;
            if (m_asker.mayLeadTo && !m_asker.mayLeadTo(next)) {
                KXLogError(audio, "%@ leads to %@, where it may not", here.host(), next.host());
                return KXAudioFileForbiddenError;
            }
            if (staysOutside && leadsInside(next)) {
                KXLogError(audio, "%@ leads to %@, in a private network", here.host(), next.host());
                return KXAudioFileForbiddenError;
            }
            here = next;
        }
        return m_isInterrupted ? KXAudioFileInterruptedError : KXAudioFileConnectionError;
    }

private:
    bool leadsInside(const QUrl &address)
    {
        {
            const std::lock_guard lock(streamRuleMutex);
            if (const auto &rule = streamRule())
                return rule(address);
        }
        QList<QHostAddress> found { QHostAddress(address.host()) };
        if (found.first().isNull()) {
            found.clear(); // a name that means nothing here is for a proxy to find
            QHostInfo::lookupHost(address.host(), &m_loop, [&](const QHostInfo &info) {
                found = info.addresses();
                m_loop.quit();
            });
            m_loop.exec();
        }
        return std::any_of(found.begin(), found.end(), KXStreamAddress::isPrivate);
    }

    /// Where the server sends whoever asks for the file; empty when to the file itself.
    KXAudioFileStatus ask(const QUrl &address, QUrl &next)
    {
        QNetworkRequest request(address);
        request.setAttribute(QNetworkRequest::RedirectPolicyAttribute, QNetworkRequest::ManualRedirectPolicy);
        request.setAttribute(QNetworkRequest::Http2AllowedAttribute, false);
        request.setHeader(QNetworkRequest::UserAgentHeader, m_asker.userAgent);
        request.setRawHeader("Range", "bytes=0-");
        request.setRawHeader("Accept", "*/*");
        const std::unique_ptr<QNetworkReply> reply(m_network.get(request));
        QObject::connect(reply.get(), &QNetworkReply::metaDataChanged, &m_loop, &QEventLoop::quit);
        QObject::connect(reply.get(), &QNetworkReply::finished, &m_loop, &QEventLoop::quit);
        m_loop.exec();
        const int answer = reply->attribute(QNetworkRequest::HttpStatusCodeAttribute).toInt();
        const QByteArray location = reply->rawHeader("Location");
        reply->disconnect(&m_loop);
        reply->abort(); // the rest is the decoder's
        if (answer == 0)
            return m_isInterrupted ? KXAudioFileInterruptedError : KXAudioFileConnectionError;
        if (answer >= 300 && answer < 400 && !location.isEmpty())
            next = address.resolved(QUrl::fromEncoded(location)).adjusted(QUrl::RemoveFragment);
        return KXAudioFileNoError;
    }

    const KXStreamAddress::Asker &m_asker;
    QEventLoop m_loop;
    QTimer m_watch;
    QNetworkAccessManager m_network;
    bool m_isInterrupted = false;
};

}

bool KXStreamAddress::isPrivate(const QHostAddress &address)
{
    bool isIPv4 = false;
    const quint32 number = address.toIPv4Address(&isIPv4); // also of one written as IPv6
    const QHostAddress plain = isIPv4 ? QHostAddress(number) : address;
    static const std::pair<QHostAddress, int> inside[] = { { QHostAddress(u"0.0.0.0"_s), 8 },
        { QHostAddress(u"10.0.0.0"_s), 8 }, { QHostAddress(u"100.64.0.0"_s), 10 }, { QHostAddress(u"127.0.0.0"_s), 8 },
        { QHostAddress(u"169.254.0.0"_s), 16 }, { QHostAddress(u"172.16.0.0"_s), 12 },
        { QHostAddress(u"192.0.0.0"_s), 24 }, { QHostAddress(u"192.168.0.0"_s), 16 },
        { QHostAddress(u"198.18.0.0"_s), 15 }, { QHostAddress(u"224.0.0.0"_s), 3 }, { QHostAddress(u"::"_s), 32 },
        { QHostAddress(u"fc00::"_s), 7 }, { QHostAddress(u"fe80::"_s), 9 }, { QHostAddress(u"ff00::"_s), 8 } };
    return std::any_of(std::begin(inside), std::end(inside),
        [&](const auto &network) { return plain.isInSubnet(network.first, network.second); });
}

void KXStreamAddress::setPrivateRule(std::function<bool(const QUrl &)> rule)
{
    const std::lock_guard lock(streamRuleMutex);
    streamRule() = std::move(rule);
}

KXAudioFileStatus KXStreamAddress::resolve(QUrl &address, bool &isFinal, const Asker &asker)
{
    // On a thread of its own: it takes a loop of events, in which nothing of the caller's may happen.
    KXAudioFileStatus status = KXAudioFileNoError;
    try {
        std::thread([&] { status = StreamResolver(asker).follow(address, isFinal); }).join();
    } catch (const std::system_error &) {
        status = KXAudioFileConnectionError;
    }
    return status;
}

bool KXFFmpegLibraries::isPrivate(const QString &address) const
{
    return KXStreamAddress::isPrivate(QHostAddress(address));
}

void KXFFmpegLibraries::setPrivateRule(std::function<bool(const QUrl &)> rule) const
{
    KXStreamAddress::setPrivateRule(std::move(rule));
}
