#pragma once

#include <kestrixkit/audio/KXAudioPlayer.h>
#include <kestrixkit/foundation/KXWeakDelegate.h>

class KXAudioPlayerManager;

/// The host's play queue.
class KX_AUDIO_EXPORT KXAudioPlayerQueue
{
public:
    virtual ~KXAudioPlayerQueue();
    /// The manager owns the queue: hold it weakly.
    virtual void setAudioPlayerManager(KXAudioPlayerManager *manager) = 0;
};

/// What hosts put into their queues; the framework does nothing with it.
class KX_AUDIO_EXPORT KXAudioPlayerQueueContentProvider
{
public:
    virtual ~KXAudioPlayerQueueContentProvider();
};

/// The host's own; the framework asks it nothing.
class KX_AUDIO_EXPORT KXAudioPlayerManagerDelegate
{
public:
    virtual ~KXAudioPlayerManagerDelegate();
};

/// Learns of the end of a queue.
class KX_AUDIO_EXPORT KXAudioPlayerQueueDelegate
{
public:
    virtual ~KXAudioPlayerQueueDelegate();
    virtual void audioPlayerQueueDidFinish(KXAudioPlayerQueue *queue) = 0;
};

/// Owns the player that the transport controls of a host talk to. Hosts subclass it, choose a player and fill in the
/// hooks of their queue, which do nothing here. Without a player everything answers nothing and does nothing.
///
/// Threads: the main thread.
class KX_AUDIO_EXPORT KXAudioPlayerManager : public KXObject, public KXAudioPlayerQueueDelegate
{
    Q_OBJECT
public:
    explicit KXAudioPlayerManager(QObject *parent = nullptr);
    ~KXAudioPlayerManager() override;

    /// The manager of the process; null at first, and again when the application object goes.
    [[nodiscard]] static std::shared_ptr<KXAudioPlayerManager> sharedInstance();
    /// Stops the player of the one before, also when that is the same.
    static void setSharedInstance(std::shared_ptr<KXAudioPlayerManager> manager);

    [[nodiscard]] std::shared_ptr<KXAudioPlayer> audioPlayer() const { return m_audioPlayer; }
    [[nodiscard]] std::shared_ptr<KXAudioPlayerQueue> queue() const { return m_queue; }
    /// Makes itself known to the queue first.
    void setQueue(std::shared_ptr<KXAudioPlayerQueue> queue);
    /// Whether the last change of item was asked for by the user.
    [[nodiscard]] bool isUserInitiatedPlayerChange() const { return m_userInitiatedPlayerChange; }
    void setUserInitiatedPlayerChange(bool byUser) { m_userInitiatedPlayerChange = byUser; }
    /// Held as by KXWeakDelegate.
    [[nodiscard]] KXAudioPlayerManagerDelegate *delegate() const { return m_delegate.get(); }
    void setDelegate(KXAudioPlayerManagerDelegate *delegate) { m_delegate.set(delegate); }
    [[nodiscard]] std::shared_ptr<KXAudioPlayerQueueContentProvider> queueContentProvider() const { return m_provider; }
    void setQueueContentProvider(std::shared_ptr<KXAudioPlayerQueueContentProvider> provider)
    {
        m_provider = std::move(provider);
    }

    /// Resumes what is stopped or finished, stops anything else.
    void togglePlayback();
    void playNext(bool userInitiated);
    /// Goes back to the start of the item after its first half second.
    void playPrevious(bool userInitiated);
    void scanForward(double seconds);
    void scanBackward(double seconds);

    // Hooks of the host's
    virtual void playItem(const KXAudioPlayerItemPointer &item,
        const std::shared_ptr<KXAudioPlayerQueueContentProvider> &fromProvider, bool userInitiated);
    virtual void playQueueEntry(const QVariant &entry);
    virtual void addItemsToQueue(const QList<KXAudioPlayerItemPointer> &items,
        const std::shared_ptr<KXAudioPlayerQueueContentProvider> &fromProvider);
    void audioPlayerQueueDidFinish(KXAudioPlayerQueue *queue) override;

protected:
    void setAudioPlayer(std::shared_ptr<KXAudioPlayer> player) { m_audioPlayer = std::move(player); }

private:
    std::shared_ptr<KXAudioPlayer> m_audioPlayer;
    std::shared_ptr<KXAudioPlayerQueue> m_queue;
    std::shared_ptr<KXAudioPlayerQueueContentProvider> m_provider;
    KXWeakDelegate<KXAudioPlayerManagerDelegate> m_delegate;
    bool m_userInitiatedPlayerChange = false;
};
