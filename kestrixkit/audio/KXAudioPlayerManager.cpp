#include <kestrixkit/audio/KXAudioPlayerManager.h>

#include <QCoreApplication>

namespace {

constexpr double managerRestartSeconds = 0.5;

std::shared_ptr<KXAudioPlayerManager> &sharedAudioPlayerManager()
{
    static std::shared_ptr<KXAudioPlayerManager> manager;
    return manager;
}

void endSharedAudioPlayerManager() { KXAudioPlayerManager::setSharedInstance(nullptr); }

}

KXAudioPlayerQueue::~KXAudioPlayerQueue() = default;

KXAudioPlayerQueueContentProvider::~KXAudioPlayerQueueContentProvider() = default;

KXAudioPlayerManagerDelegate::~KXAudioPlayerManagerDelegate() = default;

KXAudioPlayerQueueDelegate::~KXAudioPlayerQueueDelegate() = default;

KXAudioPlayerManager::KXAudioPlayerManager(QObject *parent)
    : KXObject(parent)
{
}

KXAudioPlayerManager::~KXAudioPlayerManager() = default;

std::shared_ptr<KXAudioPlayerManager> KXAudioPlayerManager::sharedInstance() { return sharedAudioPlayerManager(); }

void KXAudioPlayerManager::setSharedInstance(std::shared_ptr<KXAudioPlayerManager> manager)
{
    // A player must not outlive the application object, nor the sound libraries.
    static const bool registered = (qAddPostRoutine(endSharedAudioPlayerManager), true);
    Q_UNUSED(registered)
    const std::shared_ptr<KXAudioPlayerManager> former = sharedAudioPlayerManager();
    if (const auto player = former ? former->m_audioPlayer : nullptr)
        player->stop();
    sharedAudioPlayerManager() = std::move(manager);
}

void KXAudioPlayerManager::setQueue(std::shared_ptr<KXAudioPlayerQueue> queue)
{
    if (queue)
        queue->setAudioPlayerManager(this);
    m_queue = std::move(queue);
}

void KXAudioPlayerManager::togglePlayback()
{
    const auto player = m_audioPlayer; // an observer may have the manager replace it
    if (!player)
        return;
    const KXAudioPlayerState state = player->state();
    if (state == KXAudioPlayerStateStopped || state == KXAudioPlayerStateFinished)
        player->resume();
    else
        player->stop();
}

void KXAudioPlayerManager::playNext(bool userInitiated)
{
    m_userInitiatedPlayerChange = userInitiated;
    if (const auto player = m_audioPlayer)
        player->playNext();
}

void KXAudioPlayerManager::playPrevious(bool userInitiated)
{
    m_userInitiatedPlayerChange = userInitiated;
    const auto player = m_audioPlayer;
    if (!player)
        return;
    if (player->currentTime() > managerRestartSeconds)
        player->playItem(player->currentItem());
    else
        player->playPrevious();
}

void KXAudioPlayerManager::scanForward(double seconds)
{
    if (m_audioPlayer)
        m_audioPlayer->scanForward(seconds);
}

void KXAudioPlayerManager::scanBackward(double seconds)
{
    if (m_audioPlayer)
        m_audioPlayer->scanBackward(seconds);
}

void KXAudioPlayerManager::playItem(
    const KXAudioPlayerItemPointer &, const std::shared_ptr<KXAudioPlayerQueueContentProvider> &, bool)
{
}

void KXAudioPlayerManager::playQueueEntry(const QVariant &) { }

void KXAudioPlayerManager::addItemsToQueue(
    const QList<KXAudioPlayerItemPointer> &, const std::shared_ptr<KXAudioPlayerQueueContentProvider> &)
{
}

void KXAudioPlayerManager::audioPlayerQueueDidFinish(KXAudioPlayerQueue *) { }
