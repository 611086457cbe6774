#include <kestrixkit/foundation/KXObserver.h>

#include <kestrixkit/foundation/KXObserver_p.h>

// ---------------------------------------------------------------------------------------------- the chain

KXKeyPathChain::KXKeyPathChain(KXObserverPrivate &observer, KXKeyPathLink *owner, const QString &keyPath)
    : m_observer(observer)
    , m_owner(owner)
    , m_keyPath(keyPath)
    , m_keys(keyPath.split(u'.'))
{
}

KXKeyPathChain::~KXKeyPathChain() = default;

void KXKeyPathChain::attach(KXObservable *root)
{
    m_start = root;
    m_links.push_back(std::make_unique<KXKeyPathLink>(*this, 0, root));
    extend(1);
}

bool KXKeyPathChain::repeats(const KXObservable *root, const QString &keyPath) const
{
    for (const KXKeyPathChain *chain = this; chain; chain = chain->m_owner ? &chain->m_owner->m_chain : nullptr) {
        if (chain->m_keyPath == keyPath && chain->m_start == root)
            return true;
    }
    return false;
}

// Makes the links from the given one on fit the objects that the path leads to now.
void KXKeyPathChain::extend(size_t from)
{
    for (; from < size_t(m_keys.size()); ++from) {
        KXObservable *previous = m_links[from - 1]->object();
        // The variant may be what keeps the object alive until its link is there.
        const QVariant value = previous ? previous->valueForKey(key(from - 1)) : QVariant();
        if (m_links.size() < from) // reading the value changed the path: whoever did that has extended it
            return;
        KXObservable *object = KXObservableFromVariant(value);
        if (object && from < m_links.size() && m_links[from]->object() == object)
            return;
        // The new link comes before the old one goes, so that an object on both is observed throughout.
        auto link = object ? std::make_unique<KXKeyPathLink>(*this, from, object) : nullptr;
        dropLinks(from);
        if (!link || m_links.size() != from)
            return;
        m_links.push_back(std::move(link));
    }
}

void KXKeyPathChain::dropLinks(size_t from)
{
    std::vector<std::unique_ptr<KXKeyPathLink>> dropped;
    if (from < m_links.size()) {
        dropped.assign(
            std::make_move_iterator(m_links.begin() + qptrdiff(from)), std::make_move_iterator(m_links.end()));
        m_links.resize(from);
    }
    for (auto &link : dropped) {
        link->detach();
        if (m_observer.busy > 0)
            m_observer.retired.push_back(std::move(link));
    }
}

/// As the chain passes it on: members come and go only where the path itself ends at the to-many key.
KXKeyAnnouncement KXKeyPathChain::passed(size_t index, const KXKeyAnnouncement &announcement) const
{
    const bool last = index + 1 == size_t(m_keys.size());
    KXKeyAnnouncement passed = announcement;
    if (!last || m_owner || announcement.key != m_keys.last())
        passed.kind = KXChangeKind::Setting;
    return passed;
}

void KXKeyPathChain::linkWillChange(size_t index, const KXKeyAnnouncement &announcement)
{
    if (m_owner)
        m_owner->willChange(passed(index, announcement));
    else
        m_observer.willChange(passed(index, announcement));
}

void KXKeyPathChain::linkDidChange(size_t index, const KXKeyAnnouncement &announcement)
{
    if (index + 1 < size_t(m_keys.size()))
        extend(index + 1);
    if (m_owner)
        m_owner->didChange(passed(index, announcement));
    else
        m_observer.didChange(passed(index, announcement));
}

// ----------------------------------------------------------------------------------------------- the link

KXKeyPathLink::KXKeyPathLink(KXKeyPathChain &chain, size_t index, KXObservable *object)
    : m_chain(chain)
    , m_index(index)
    , m_object(object)
    , m_keys { chain.key(index) }
{
    QStringList paths;
    for (qsizetype at = 0; at < m_keys.size(); ++at) { // m_keys grows: dependencies of dependencies
        for (const QString &path : object->keyPathsForValuesAffectingKey(m_keys[at])) {
            QStringList &found = path.contains(u'.') ? paths : m_keys;
            if (!found.contains(path))
                found.append(path);
        }
    }
    KXObservableData &data = object->data();
    data.links.push_back(this);
    const bool first = ++data.linkCount == 1;
    if (first)
        object->observationDidBegin();
    for (const QString &path : paths) {
        if (chain.repeats(object, path))
            continue;
        m_dependencies.push_back(std::make_unique<KXKeyPathChain>(chain.observer(), this, path));
        m_dependencies.back()->attach(object);
    }
}

KXKeyPathLink::~KXKeyPathLink() { detach(); }

bool KXKeyPathLink::concerns(QStringView key) const
{
    return std::any_of(m_keys.begin(), m_keys.end(), [key](const QString &mine) { return mine == key; });
}

void KXKeyPathLink::willChange(const KXKeyAnnouncement &announcement)
{
    const KXObserverPrivate::Busy busy(m_chain.m_observer);
    m_chain.linkWillChange(m_index, announcement);
}

void KXKeyPathLink::didChange(const KXKeyAnnouncement &announcement)
{
    const KXObserverPrivate::Busy busy(m_chain.m_observer);
    if (m_object)
        m_chain.linkDidChange(m_index, announcement);
}

void KXKeyPathLink::objectIsGone()
{
    const KXObserverPrivate::Busy busy(m_chain.m_observer);
    m_object = nullptr;
    for (const auto &dependency : m_dependencies)
        dependency->detach();
    m_chain.dropLinks(m_index + 1);
}

void KXKeyPathLink::detach()
{
    for (const auto &dependency : m_dependencies)
        dependency->detach();
    KXObservable *object = std::exchange(m_object, nullptr);
    if (!object)
        return;
    KXObservableData &data = *object->m_data;
    const auto at = std::find(data.links.begin(), data.links.end(), this);
    if (at == data.links.end()) // the object is going and has let go of us
        return;
    if (data.announcing > 0)
        *at = nullptr;
    else
        data.links.erase(at);
    if (--data.linkCount == 0)
        object->observationDidEnd(); // may end the object
}

// ------------------------------------------------------------------------------------------- the observer

KXObserverPrivate::KXObserverPrivate(
    KXObserver *observer, const QString &path, KXObservingOptions wanted, KXObserverBlock action)
    : q(observer)
    , keyPath(path)
    , options(wanted)
    , block(std::move(action))
    , chain(*this, nullptr, path)
{
}

std::shared_ptr<KXObserver> KXObserverPrivate::make(
    const QString &path, KXObservingOptions wanted, KXObserverBlock action)
{
    const std::shared_ptr<KXObserver> observer(new KXObserver);
    observer->d = std::make_unique<KXObserverPrivate>(observer.get(), path, wanted, std::move(action));
    return observer;
}

void KXObserverPrivate::start(const std::shared_ptr<KXObserver> &observer, KXObservable *object)
{
    KXObserverPrivate &d = *observer->d;
    d.chain.attach(object);
    if (d.options & KXObservingOptionInitial) {
        const Busy busy(d);
        d.call({ KXChangeKind::Setting, {},
            d.options & KXObservingOptionNew ? object->valueForKeyPath(d.keyPath) : QVariant(), d.keyPath });
    }
}

void KXObserverPrivate::willChange(const KXKeyAnnouncement &announcement)
{
    KXObservable *root = chain.root();
    if (stopped || !root || !(options & KXObservingOptionOld)
        || std::exchange(lastWill, announcement.serial) == announcement.serial)
        return;
    pending.push_back({ announcement.object, announcement.key.toString(),
        announcement.kind == KXChangeKind::Setting ? root->valueForKeyPath(keyPath) : QVariant() });
}

void KXObserverPrivate::didChange(const KXKeyAnnouncement &announcement)
{
    if (stopped || !chain.root() || std::exchange(lastDid, announcement.serial) == announcement.serial)
        return;
    KXKeyValueChange change { announcement.kind, {}, {}, keyPath };
    const bool members = announcement.kind != KXChangeKind::Setting;
    if (options & KXObservingOptionOld) {
        // The newest that fits: announcements nest, and one that was never completed must not confuse others.
        const auto at = std::find_if(pending.rbegin(), pending.rend(),
            [&](const Pending &value) { return value.object == announcement.object && value.key == announcement.key; });
        if (at != pending.rend()) {
            change.oldValue = std::move(at->oldValue);
            pending.erase(std::next(at).base());
        }
        if (members)
            change.oldValue = announcement.oldMembers;
    }
    if (options & KXObservingOptionNew)
        change.newValue = members ? QVariant(announcement.newMembers) : chain.root()->valueForKeyPath(keyPath);
    call(std::move(change));
}

void KXObserverPrivate::call(KXKeyValueChange change)
{
    if (block && !stopped)
        block(change);
}

KXObserverPrivate::Busy::Busy(KXObserverPrivate &observer)
    : m_observer(observer)
    , m_self(observer.q->weak_from_this().lock()) // none while the observer is being destroyed
{
    ++m_observer.busy;
}

KXObserverPrivate::Busy::~Busy()
{
    if (--m_observer.busy > 0)
        return;
    const auto retired = std::move(m_observer.retired);
    m_observer.retired.clear();
    if (m_observer.stopped)
        m_observer.block = nullptr;
}

KXObserver::KXObserver() = default;

KXObserver::~KXObserver() { stop(); }

std::shared_ptr<KXObserver> KXObserver::observerFor(
    KXObservable *object, const QString &keyPath, KXObservingOptions options, KXObserverBlock block)
{
    auto observer = KXObserverPrivate::make(keyPath, options, std::move(block));
    if (object)
        KXObserverPrivate::start(observer, object);
    return observer;
}

KXObservable *KXObserver::observee() const { return d->stopped ? nullptr : d->chain.root(); }

QString KXObserver::keypath() const { return d->keyPath; }

void KXObserver::stop()
{
    if (std::exchange(d->stopped, true))
        return;
    const KXObserverPrivate::Busy busy(*d);
    d->pending.clear();
    d->chain.detach();
}
