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
    if (former && former->m_audioPlayer)
        former->m_audioPlayer->stop();
    sharedAudioPlayerManager() = std::move(manager);
}

void KXAudioPlayerManager::setQueue(const std::shared_ptr<KXAudioPlayerQueue> &queue)
{
    if (queue)
        queue->setAudioPlayerManager(this);
    m_queue = queue;
}

void KXAudioPlayerManager::togglePlayback()
{
    if (!m_audioPlayer)
        return;
    const KXAudioPlayerState state = m_audioPlayer->state();
    if (state == KXAudioPlayerStateStopped || state == KXAudioPlayerStateFinished)
        m_audioPlayer->resume();
    else
        m_audioPlayer->stop();
}

void KXAudioPlayerManager::playNext(bool userInitiated)
{
    m_userInitiatedPlayerChange = userInitiated;
    if (m_audioPlayer)
        m_audioPlayer->playNext();
}

void KXAudioPlayerManager::playPrevious(bool userInitiated)
{
    m_userInitiatedPlayerChange = userInitiated;
    if (!m_audioPlayer)
        return;
    if (m_audioPlayer->currentTime() > managerRestartSeconds)
        m_audioPlayer->playItem(m_audioPlayer->currentItem());
    else
        m_audioPlayer->playPrevious();
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
