// The machinery of key-path observation. An observer is a chain of links, one for each object along its path;
// a key that depends on values of other objects hangs further chains on its link.
#pragma once

#include <memory>
#include <vector>

#include <kestrixkit/foundation/KXObserver.h>

class KXKeyPathChain;

// One call of willChange… or didChange…, as it travels from the object to its observers.
struct KXKeyAnnouncement
{
    const KXObservable *object;
    QStringView key;
    KXChangeKind kind;
    const QVariantList &oldMembers;
    const QVariantList &newMembers;
    quint64 serial; // a key may reach an observer by several ways; it is called once
};

// What an object owns from its first observer or weak handle on.
class KXObservableData
{
public:
    std::vector<KXKeyPathLink *> links; // null where one was removed during an announcement
    int linkCount = 0;
    int announcing = 0;
    bool orphaned = false; // the object went during an announcement, which will delete this
    QHash<QString, QList<std::shared_ptr<KXObserver>>> observers;
    std::shared_ptr<KXWeakAnchor> anchor;
};

// Listens to one object for the keys that affect one key of a path.
class KXKeyPathLink
{
public:
    KXKeyPathLink(KXKeyPathChain &chain, size_t index, KXObservable *object);
    ~KXKeyPathLink();
    Q_DISABLE_COPY_MOVE(KXKeyPathLink)

    KXObservable *object() const { return m_object; }
    bool concerns(QStringView key) const;
    void willChange(const KXKeyAnnouncement &announcement);
    void didChange(const KXKeyAnnouncement &announcement);
    void objectIsGone();
    void detach();

private:
    friend class KXKeyPathChain;

    KXKeyPathChain &m_chain;
    const size_t m_index;
    KXObservable *m_object;
    QStringList m_keys; // the key itself and those of the same object it depends on
    std::vector<std::unique_ptr<KXKeyPathChain>> m_dependencies; // those that lie in other objects
};

class KXKeyPathChain
{
public:
    // `owner` is the link that this chain tells about changes; null for an observer's own chain.
    KXKeyPathChain(KXObserverPrivate &observer, KXKeyPathLink *owner, const QString &keyPath);
    virtual ~KXKeyPathChain();
    Q_DISABLE_COPY_MOVE(KXKeyPathChain)

    void attach(KXObservable *root);
    void detach() { dropLinks(0); }
    KXObservable *root() const { return m_links.empty() ? nullptr : m_links.front()->object(); }

    const QString &key(size_t index) const { return m_keys[qsizetype(index)]; }
    KXObserverPrivate &observer() const { return m_observer; }
    // Whether this chain hangs, however deep, on one from the same object along the same path: objects that
    // depend on each other in a ring.
    bool repeats(const KXObservable *root, const QString &keyPath) const;

    void linkWillChange(size_t index, const KXKeyAnnouncement &announcement);
    void linkDidChange(size_t index, const KXKeyAnnouncement &announcement);
    void dropLinks(size_t from);

private:
    [[nodiscard]] KXKeyAnnouncement passed(size_t index, const KXKeyAnnouncement &announcement) const;
    void extend(size_t from);

    KXObserverPrivate &m_observer;
    KXKeyPathLink *m_owner;
    const QString m_keyPath;
    const QStringList m_keys;
    const KXObservable *m_start = nullptr; // only to compare with
    std::vector<std::unique_ptr<KXKeyPathLink>> m_links;
    friend class KXKeyPathLink;
};

class KXObserverPrivate
{
public:
    KXObserverPrivate(KXObserver *observer, const QString &path, KXObservingOptions wanted, KXObserverBlock action);

    static std::shared_ptr<KXObserver> make(const QString &path, KXObservingOptions wanted, KXObserverBlock action);
    static void start(const std::shared_ptr<KXObserver> &observer, KXObservable *object);

    void willChange(const KXKeyAnnouncement &announcement);
    void didChange(const KXKeyAnnouncement &announcement);
    void call(KXKeyValueChange change);

    // While a change passes through, the observer and its links stay in memory, whatever the block does.
    class Busy
    {
    public:
        explicit Busy(KXObserverPrivate &observer);
        ~Busy();
        Q_DISABLE_COPY_MOVE(Busy)

    private:
        KXObserverPrivate &m_observer;
        std::shared_ptr<KXObserver> m_self; // declared last: goes when everything else is done
    };

    KXObserver *q;
    const QString keyPath;
    const KXObservingOptions options;
    KXObserverBlock block;
    KXKeyPathChain chain;
    bool stopped = false;
    int busy = 0;
    std::vector<std::unique_ptr<KXKeyPathLink>> retired; // detached while busy

    struct Pending // an old value waiting for its didChange
    {
        const KXObservable *object;
        QString key;
        QVariant oldValue;
    };
    std::vector<Pending> pending;
    quint64 lastWill = 0;
    quint64 lastDid = 0;
};
