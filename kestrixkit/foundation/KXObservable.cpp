#include <kestrixkit/foundation/KXObservable.h>

#include <kestrixkit/foundation/KXObserver_p.h>

namespace {

constinit thread_local quint64 observableSerial = 0;

QVariant observableValueAt(const QVariant &value, QStringView rest)
{
    if (rest.isEmpty() || !value.isValid())
        return value;
    const qsizetype dot = rest.indexOf(u'.');
    const QString key = (dot < 0 ? rest : rest.first(dot)).toString();
    const QStringView further = dot < 0 ? QStringView() : rest.sliced(dot + 1);
    if (const KXObservable *object = KXObservableFromVariant(value))
        return observableValueAt(object->valueForKey(key), further);
    if (value.metaType() == QMetaType::fromType<QVariantMap>())
        return observableValueAt(value.toMap().value(key), further);
    if (value.metaType() == QMetaType::fromType<QVariantList>()) {
        QVariantList values;
        for (const QVariant &member : value.toList())
            values.append(observableValueAt(member, rest));
        return values;
    }
    return {};
}

// Keeps an object's list of links in order while some of them are called.
class ObservableAnnouncing
{
public:
    explicit ObservableAnnouncing(KXObservableData *data)
        : m_data(data)
    {
        ++m_data->announcing;
    }
    ~ObservableAnnouncing()
    {
        if (--m_data->announcing > 0)
            return;
        if (m_data->orphaned)
            delete m_data;
        else
            std::erase(m_data->links, nullptr);
    }
    Q_DISABLE_COPY_MOVE(ObservableAnnouncing)

    template <typename Function> void forEachLink(QStringView key, Function &&fn)
    {
        // Links added meanwhile are not called.
        for (size_t at = 0, count = m_data->links.size(); at < count && !m_data->orphaned; ++at) {
            KXKeyPathLink *link = m_data->links[at];
            if (link && link->concerns(key))
                fn(link);
        }
    }

private:
    KXObservableData *m_data;
};

}

KXObservable::~KXObservable()
{
    if (!m_data)
        return;
    endWeakHandles();
    m_data->orphaned = true;
    const auto observers = std::exchange(m_data->observers, {});
    for (const auto &list : observers) {
        for (const auto &observer : list)
            observer->stop();
    }
    while (!m_data->links.empty()) { // letting one go may take others with it
        KXKeyPathLink *link = m_data->links.back();
        m_data->links.pop_back();
        if (link)
            link->objectIsGone();
    }
    if (m_data->announcing == 0)
        delete m_data;
}

KXObservableData &KXObservable::data() const
{
    if (!m_data)
        m_data = new KXObservableData;
    return *m_data;
}

std::shared_ptr<KXWeakAnchor> KXObservable::weakAnchor() const
{
    auto &anchor = data().anchor;
    if (!anchor)
        anchor = std::make_shared<KXWeakAnchor>(const_cast<KXObservable *>(this));
    return anchor;
}

void KXObservable::endWeakHandles() const
{
    if (m_data && m_data->anchor)
        m_data->anchor->objectIsGone();
}

bool KXObservable::isObserved() const { return m_data && m_data->linkCount > 0; }

void KXObservable::announceWillChange(QStringView key, KXChangeKind kind, const QVariantList &oldMembers) const
{
    if (m_data->linkCount == 0)
        return;
    const KXKeyAnnouncement announcement { this, key, kind, oldMembers, {}, ++observableSerial };
    ObservableAnnouncing(m_data).forEachLink(key, [&](KXKeyPathLink *link) { link->willChange(announcement); });
}

void KXObservable::announceDidChange(
    QStringView key, KXChangeKind kind, const QVariantList &oldMembers, const QVariantList &newMembers) const
{
    if (m_data->linkCount == 0)
        return;
    const KXKeyAnnouncement announcement { this, key, kind, oldMembers, newMembers, ++observableSerial };
    ObservableAnnouncing(m_data).forEachLink(key, [&](KXKeyPathLink *link) { link->didChange(announcement); });
}

QVariant KXObservable::valueForKey(const QString &) const { return {}; }
bool KXObservable::setValueForKey(const QString &, const QVariant &) { return false; }
QStringList KXObservable::keyPathsForValuesAffectingKey(const QString &) const { return {}; }
void KXObservable::observationDidBegin() const { }
void KXObservable::observationDidEnd() const { }

QVariant KXObservable::valueForKeyPath(const QString &keyPath) const
{
    const qsizetype dot = keyPath.indexOf(u'.');
    if (dot < 0)
        return valueForKey(keyPath);
    return observableValueAt(valueForKey(keyPath.first(dot)), QStringView(keyPath).sliced(dot + 1));
}

std::shared_ptr<KXObserver> KXObservable::onChangeOf(const QString &keyPath, KXObserverBlock block)
{
    return onChangeOf(keyPath, {}, std::move(block));
}

std::shared_ptr<KXObserver> KXObservable::onChangeOf(
    const QString &keyPath, KXObservingOptions options, KXObserverBlock block)
{
    auto observer = KXObserverPrivate::make(keyPath, options, std::move(block));
    data().observers[keyPath].append(observer);
    KXObserverPrivate::start(observer, this); // last: an initial call may end this object
    return observer;
}

void KXObservable::removeKVOBlockObserver(const std::shared_ptr<KXObserver> &observer)
{
    if (!observer || !m_data)
        return;
    const auto list = m_data->observers.find(observer->keypath());
    const bool isHeld = list != m_data->observers.end() && list->removeOne(observer);
    if (isHeld && list->isEmpty())
        m_data->observers.erase(list);
    if (isHeld || observer->observee() == this) // else it was made by observerFor() of another object
        observer->stop(); // may end this object
}

void KXObservable::removeKVOBlockObservers()
{
    if (!m_data)
        return;
    const auto observers = std::exchange(m_data->observers, {});
    for (const auto &list : observers) {
        for (const auto &observer : list)
            observer->stop();
    }
}

QHash<QString, QList<std::shared_ptr<KXObserver>>> KXObservable::observers() const
{
    return m_data ? m_data->observers : QHash<QString, QList<std::shared_ptr<KXObserver>>>();
}

KXObservable *KXObservableFromVariant(const QVariant &value)
{
    const QMetaType type = value.metaType();
    if (type == QMetaType::fromType<KXObservable *>())
        return *static_cast<KXObservable *const *>(value.constData());
    if (type.flags() & QMetaType::PointerToQObject)
        return dynamic_cast<KXObservable *>(*static_cast<QObject *const *>(value.constData()));
    // Built-in types are no objects; handle types have told how to be read.
    if (type.id() >= QMetaType::User && QMetaType::canConvert(type, QMetaType::fromType<KXObservable *>()))
        return value.value<KXObservable *>();
    return nullptr;
}
