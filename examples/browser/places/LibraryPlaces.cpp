#include "places/LibraryPlaces.h"

#include <kestrixkit/filters/KXDateFilter.h>
#include <kestrixkit/foundation/KXMainQueue.h>

#include "files/Sounds.h"
#include "filters/Presets.h"
#include "library/OwnChange.h"

using namespace Qt::StringLiterals;

namespace {

/// Stays where it is, and is not copied.
class FixedPlace : public KXViewState
{
public:
    bool canBeRepositioned() const override { return false; }
};

const QString allTracksIdentifier = u"all"_s;

} // namespace

void LibraryPlaces::registerEntity()
{
    KXManagedObject::registerClass(
        QString(KXViewState::entityName), []() -> KXManagedObject * { return new FixedPlace; });
}

LibraryPlaces::LibraryPlaces(KXManagedObjectContext::Ref context, QObject *parent)
    : QObject(parent)
    , m_context(std::move(context))
    , m_genres(m_context,
          KXFetchRequest(QString(Genre::entityName))
              .setSortDescriptors({ { u"name"_s, true, KXCaseInsensitive | KXDiacriticInsensitive } }),
          this)
{
    makePlaces();
    followGenres();
}

LibraryPlaces::~LibraryPlaces() = default;

KXTreeRequest LibraryPlaces::request(bool withShop)
{
    QVariantList tags { qint64(AllTracks), qint64(RecentlyAdded), qint64(Genres), qint64(Duplicates) };
    if (withShop)
        tags.append(qint64(Shop));
    KXTreeRequest request { QString(KXViewState::entityName) };
    request.rootPredicate = KXPredicate::predicateWithFormat("parent == nil AND tag IN %@", QVariant(tags));
    request.sortDescriptors = { { u"position"_s } };
    return request;
}

KXRef<KXViewState> LibraryPlaces::make(const QString &title, qint64 tag, const KXRef<KXViewState> &parent)
{
    const auto place = KXViewState::createInContext(*m_context);
    if (place) {
        place->setTitle(title);
        place->setTag(tag);
        // Behind those that are recent, in older libraries too, and before the genres, which are many.
        place->setPosition(tag == Duplicates || tag == Shop ? qint64(RecentlyAdded) : tag);
        place->setParent(parent);
    }
    return place;
}

void LibraryPlaces::makePlaces()
{
    const OwnChange change(*m_context);
    for (const auto &place : KXViewState::findAllInContext(*m_context)) {
        if (!place || place->parent())
            continue;
        if (m_places.contains(place->tag()))
            m_context->removeManagedObject(place); // two windows made it at once
        else
            m_places.insert(place->tag(), place);
    }
    makeMissing({ { AllTracks, tr("All Tracks") }, { RecentlyAdded, tr("Recently Added") },
        { Duplicates, tr("Duplicates") }, { Genres, tr("Genres") } });
}

void LibraryPlaces::makeShop()
{
    const OwnChange change(*m_context);
    makeMissing({ { Shop, tr("Shop") } });
}

void LibraryPlaces::makeMissing(const std::vector<std::pair<Tag, QString>> &wanted)
{
    for (const auto &[tag, title] : wanted) {
        if (const auto place = m_places.value(tag)) {
            if (place->title() != title) // made in another language
                place->setTitle(title);
        } else if (const auto made = make(title, tag, {})) {
            m_places.insert(tag, made);
        }
    }
}

void LibraryPlaces::setHasStartingPresets()
{
    if (hasStartingPresets())
        return;
    const OwnChange change(*m_context);
    if (const auto made = make(u"Starting presets"_s, StartingPresets, {}))
        m_places.insert(StartingPresets, made);
}

// Genres

void LibraryPlaces::listDidChange(const KXListStep &)
{
    if (!std::exchange(m_followIsDue, true))
        KXMainQueue::async(this, [this] { followGenres(); });
}

void LibraryPlaces::followGenres()
{
    m_followIsDue = false;
    const KXRef<KXViewState> genres = place(Genres);
    if (!genres || genres->isDeleted())
        return;
    const OwnChange change(*m_context);
    QHash<qint64, KXRef<KXViewState>> before;
    for (const KXRef<KXViewState> &place : genres->children()) {
        if (before.contains(place->tag()))
            m_context->removeManagedObject(place);
        else
            before.insert(place->tag(), place);
    }
    m_genrePlaces.clear();
    for (qsizetype i = 0; i < m_genres.size(); ++i) {
        const KXRef<Genre> genre = m_genres.as<Genre>(i);
        const qint64 key = m_genres.keys()[size_t(i)];
        KXRef<KXViewState> place = before.take(key);
        if (!genre || (!place && !(place = make(genre->name(), key, genres))))
            continue;
        if (place->title() != genre->name())
            place->setTitle(genre->name());
        if (place->position() != i)
            place->setPosition(i);
        m_genrePlaces.insert(key, place);
        setRule(place);
    }
    for (const KXRef<KXViewState> &gone : std::as_const(before)) {
        const QString identifier = QString::number(gone->objectID().key());
        m_counted.remove(identifier);
        if (m_counts)
            m_counts->removeRule(identifier);
        m_context->removeManagedObject(gone);
    }
    m_context->processPendingChanges();
}

KXRef<Genre> LibraryPlaces::genre(const KXViewState &place) const
{
    const std::vector<qint64> key { place.tag() };
    return place.parent() ? m_genres.as<Genre>(m_genres.indexesOf(key)[0]) : KXRef<Genre>();
}

KXPredicate LibraryPlaces::predicate(const KXViewState &place) const
{
    if (place.parent()) {
        const KXRef<Genre> genre = this->genre(place);
        return genre
            ? KXPredicate::predicateWithFormat("missing == FALSE AND ANY genres == %@", KXVariantFromRef(genre))
            : KXPredicate::falsePredicate();
    }
    switch (place.tag()) {
    case RecentlyAdded: {
        const auto lately = KXDateFilter::createTemporaryInstanceInContext(*m_context);
        lately->setRange(KXDateRange::Last30Days);
        lately->setLocalValuePredicateKeyPath(u"added"_s);
        return KXPredicate::andPredicate({ Presets::base(), lately->representedLocalPredicateWithKeyPath() });
    }
    case Shop: // whose tracks are elsewhere
        return KXPredicate::falsePredicate();
    case Duplicates:
        return Sounds::duplicates();
    case Genres:
        return KXPredicate::predicateWithFormat("missing == FALSE AND genres.@count > 0");
    default:
        return {};
    }
}

// Counts

void LibraryPlaces::countWith(KXLiveCounts &counts)
{
    m_counts = &counts;
    connect(&counts, &KXLiveCounts::countsDidChange, this, [this](const QStringList &identifiers) {
        for (const QString &identifier : identifiers) {
            const KXRef<KXViewState> place = m_counted.value(identifier);
            if (const auto count = place && m_counts ? m_counts->count(identifier) : std::nullopt)
                place->setCount(*count);
        }
    });
    for (const Tag tag : { RecentlyAdded, Duplicates, Genres })
        setRule(place(tag));
    for (const KXRef<KXViewState> &place : std::as_const(m_genrePlaces))
        setRule(place);
    // Every track, those too whose files are gone.
    m_all = std::make_unique<KXLiveCounts>(m_context, QString(Track::entityName));
    connect(m_all.get(), &KXLiveCounts::countsDidChange, this, [this] {
        if (const KXRef<KXViewState> all = place(AllTracks))
            all->setCount(m_all->count(allTracksIdentifier).value_or(0));
    });
    m_all->setRule(allTracksIdentifier, KXPredicate::truePredicate());
}

void LibraryPlaces::updateCounts()
{
    if (m_all)
        m_all->updateSoon();
}

void LibraryPlaces::finishCounting()
{
    if (m_all)
        m_all->update();
}

void LibraryPlaces::setRule(const KXRef<KXViewState> &place)
{
    if (!m_counts || !place)
        return;
    const QString identifier = QString::number(place->objectID().key());
    if (m_counted.contains(identifier))
        return;
    m_counted.insert(identifier, place);
    m_counts->setRule(identifier, [this, place] { return predicate(*place); });
}
