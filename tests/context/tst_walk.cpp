// Long random walks in two contexts on one store, beside a plain model of what should be there.

#include <map>
#include <optional>
#include <set>

#include <QDebug>
#include <gtest/gtest.h>

#include <kestrixkit/store/KXPersistentStore.h>

#include "store/Library.h"
#include "store/PlainModel.h"
#include "support/KXTestLog.h"
#include "support/KXTestPrint.h"
#include "support/KXTestRandom.h"

using namespace Qt::StringLiterals;
using Key = PlainModel::Key;
using Property = KXPropertyDescription;
using PlainModel::Edit;
using PlainModel::Pending;
using PlainModel::Row;
using PlainModel::Rows;

namespace {

/// A context and what the model knows of it.
struct Side
{
    KXManagedObjectContext::Ref context;
    std::map<Key, Pending> pending;
};

class Walk
{
public:
    explicit Walk(KXTestRandom &r)
        : random(r)
    {
        reopen();
    }

    /// One random step in one of the contexts.
    void step()
    {
        side = &sides[random.between(0, 1)];
        const int kind = random.between(0, 99);
        if (kind < 15)
            insert();
        else if (kind < 35)
            setAttribute();
        else if (kind < 65)
            setLink();
        else if (kind < 70)
            remove();
        else if (kind < 85)
            fetch();
        else if (kind < 88)
            compareView();
        else if (kind < 97)
            save();
        else if (kind < 99)
            rollback();
        else if (sides[0].pending.empty() && sides[1].pending.empty())
            reopen();
    }

private:
    template <typename Container> const auto &oneOf(const Container &container)
    {
        return *std::next(std::begin(container), random.between<ptrdiff_t>(0, ptrdiff_t(std::size(container)) - 1));
    }

    const Side &other() const { return side == &sides[0] ? sides[1] : sides[0]; }

    /// What the context should see.
    Rows view() const
    {
        Rows rows = committed;
        for (const auto &[key, pending] : side->pending) {
            rows.erase(key);
            if (pending.now)
                rows[key] = *pending.now;
        }
        return rows;
    }

    /// Whether the context has changes to a row that was changed or deleted in the store since: it sees a mixture.
    bool isContested(Key key) const
    {
        const auto found = side->pending.find(key);
        if (found == side->pending.end() || !found->second.base)
            return false;
        const auto row = committed.find(key);
        return row == committed.end() || row->second != *found->second.base;
    }

    KXRef<KXManagedObject> object(Key key, const KXEntityDescription *entity) const
    {
        return side->context->objectWithID(KXManagedObjectID(coordinator->store()->identity(), entity, key));
    }

    static Row rowOf(const KXManagedObject &object)
    {
        Row row { object.entity(), {}, {} };
        for (const Property &property : object.entity()->properties()) {
            if (property.isAttribute()) {
                if (const QVariant value = object.valueForKey(property.name());
                    value.isValid() && !property.isTransient())
                    row.values[property.name()] = value;
                continue;
            }
            QList<KXRef<KXManagedObject>> members;
            if (property.isToMany())
                members = object.objectsForKey(property.name());
            else if (const auto member = object.valueForKey(property.name()).value<KXRef<KXManagedObject>>())
                members.append(member);
            for (const auto &member : members)
                row.links[property.name()].insert(member->objectID().key());
        }
        return row;
    }

    static std::string text(const Row &row)
    {
        QString text;
        QDebug(&text).nospace() << row.entity->name() << ' ' << row.values << ' ' << row.links;
        return text.toStdString();
    }

    /// A relationship that nothing leads back from keeps members that are gone in the model; they do not count, and
    /// nor do those of which the other context knows better.
    Row withoutGone(Row row, const Rows &view) const
    {
        for (const Property &property : row.entity->properties()) {
            if (!property.isToMany() || property.inverse() || !row.links.contains(property.name()))
                continue;
            QSet<Key> &members = row.links[property.name()];
            members.removeIf([&](Key key) { return !view.contains(key) || isContested(key); });
            if (members.isEmpty())
                row.links.remove(property.name());
        }
        return row;
    }

    void expectRow(Key key, const Row &expected, const Rows &view, const char *when) const
    {
        const auto held = object(key, expected.entity);
        ASSERT_TRUE(held);
        const Row found = withoutGone(rowOf(*held), view);
        const Row wanted = withoutGone(expected, view);
        EXPECT_TRUE(found == wanted) << when << ": object " << key << "\nfound  " << text(found) << "\nwanted "
                                     << text(wanted);
    }

    void apply(const Edit &edit, bool linked)
    {
        for (const auto &[key, row] : edit.changed) {
            const bool fresh = !side->pending.contains(key);
            Pending &pending = side->pending[key];
            if (const auto found = committed.find(key); fresh && found != committed.end())
                pending.base = found->second;
            if (!row)
                pending.last = pending.now ? pending.now : pending.base;
            pending.now = row;
            pending.linked = pending.linked || linked;
        }
    }

    /// Relationships change only where the other context has nothing unsaved, and nothing that is gone is involved.
    bool mayApply(const Edit &edit) const
    {
        return std::none_of(edit.changed.begin(), edit.changed.end(),
            [this](const auto &change) { return other().pending.contains(change.first) || isContested(change.first); });
    }

    void insert()
    {
        const KXEntityDescription *entity = oneOf(coordinator->model()->entities());
        const auto object = side->context->managedObjectForEntity(entity->name());
        ASSERT_TRUE(object);
        const Key key = object->objectID().key();
        EXPECT_TRUE(keys.insert(key).second) << "key " << key << " was given out before";
        const QString name = entity->property(u"title") ? u"title"_s : u"name"_s;
        object->setValueForKey(name, QString::number(random.between(0, 9)));
        Row row { entity, { { name, object->valueForKey(name) } }, {} };
        if (entity->name() == "Track"_L1)
            row.values.insert({ { u"plays"_s, QVariant(qint64(0)) }, { u"loved"_s, false } });
        side->pending[key] = { {}, row, {}, true };
    }

    void setAttribute()
    {
        const Rows rows = view();
        if (rows.empty())
            return;
        const auto &[key, row] = oneOf(rows);
        if (const auto theirs = other().pending.find(key); theirs != other().pending.end() && theirs->second.linked)
            return;
        QList<const Property *> attributes;
        for (const Property &property : row.entity->properties()) {
            const auto type = property.type();
            if (property.isAttribute() && !property.isTransient()
                && (type == KXAttributeType::String || type == KXAttributeType::Double
                    || type == KXAttributeType::Integer64))
                attributes.append(&property);
        }
        const Property &property = *oneOf(attributes);
        QVariant value;
        if (!property.isOptional() || random.chance(0.8)) {
            const int number = random.between(0, 9);
            value = property.type() == KXAttributeType::String ? QVariant(QString::number(number))
                : property.type() == KXAttributeType::Double   ? QVariant(double(number))
                                                               : QVariant(qint64(number));
        }
        Edit edit(rows);
        if (value.isValid())
            edit.row(key)->values[property.name()] = value;
        else
            edit.row(key)->values.remove(property.name());
        if (*edit.row(key) == row && !side->pending.contains(key))
            return; // no change: stays clean
        EXPECT_TRUE(object(key, row.entity)->setValueForKey(property.name(), value));
        apply(edit, false);
    }

    void setLink()
    {
        const Rows rows = view();
        if (rows.empty())
            return;
        const auto &[key, row] = oneOf(rows);
        QList<const Property *> relationships;
        for (const Property &property : row.entity->properties()) {
            if (property.isRelationship())
                relationships.append(&property);
        }
        if (relationships.isEmpty())
            return;
        const Property &property = *oneOf(relationships);
        QList<Key> candidates;
        for (const auto &[candidate, its] : rows) {
            if (its.entity->isKindOf(property.destinationEntity()))
                candidates.append(candidate);
        }
        const QSet<Key> before = row.links.value(property.name());
        const auto held = object(key, row.entity);
        Edit edit(rows);
        (void)edit.row(key);
        if (!before.isEmpty() && random.chance(0.4)) {
            const Key gone = oneOf(before);
            if (!rows.contains(gone))
                return;
            edit.unlink(key, property, gone);
            if (!mayApply(edit))
                return;
            if (property.isToOne()) {
                held->setValueForKey(property.name(), {});
            } else {
                QVariantList rest = held->valueForKey(property.name()).toList();
                rest.removeIf([gone](const QVariant &member) {
                    return member.value<KXRef<KXManagedObject>>()->objectID().key() == gone;
                });
                held->setValueForKey(property.name(), rest);
            }
        } else {
            if (candidates.isEmpty())
                return;
            const Key added = oneOf(candidates);
            edit.link(key, property, added);
            if (!mayApply(edit))
                return;
            const auto partner = object(added, rows.at(added).entity);
            if (property.isToOne())
                held->setValueForKey(property.name(), KXVariantFromRef(partner));
            else
                addMember(held, property, partner);
        }
        std::erase_if(edit.changed, [&rows](const auto &change) { return *change.second == rows.at(change.first); });
        apply(edit, true);
    }

    /// By the typed accessors, which do not read the other members.
    static void addMember(
        const KXRef<KXManagedObject> &object, const Property &property, const KXRef<KXManagedObject> &member)
    {
        const QString name = property.name();
        if (const auto track = Track::cast(object))
            name == "genres"_L1     ? track->addToGenres(member)
                : name == "tags"_L1 ? track->addToTags(member)
                                    : track->addToNeighbours(member);
        else if (const auto album = Album::cast(object))
            album->addToTracks(member);
        else if (const auto genre = Genre::cast(object))
            genre->addToTracks(member);
        else if (const auto tag = Tag::cast(object))
            tag->addToMembers(member);
        else
            Person::cast(object)->addToAlbums(member);
    }

    void remove()
    {
        const Rows rows = view();
        if (rows.empty())
            return;
        const auto &[key, row] = oneOf(rows);
        Edit edit(rows);
        edit.remove(key);
        std::erase_if(edit.changed,
            [&rows](const auto &change) { return change.second && *change.second == rows.at(change.first); });
        // A row that the other context only changed values of may go; what stands around it may not have changed.
        Edit around(edit);
        std::erase_if(around.changed, [this](const auto &change) {
            const auto theirs = other().pending.find(change.first);
            return !change.second && theirs != other().pending.end() && !theirs->second.linked
                && !isContested(change.first);
        });
        if (!mayApply(around))
            return;
        side->context->removeManagedObject(object(key, row.entity));
        apply(edit, true);
    }

    void fetch()
    {
        struct Query
        {
            const char *entity;
            const char *format;
            bool (*matches)(const Row &row, const Rows &rows);
        };
        static constexpr auto linked
            = [](const Row &row, const Rows &rows, const char *name, const char *attribute, const QString &value) {
                  const QSet<Key> members = row.links.value(QString::fromLatin1(name));
                  return std::any_of(members.begin(), members.end(), [&](Key key) {
                      const auto found = rows.find(key);
                      return found != rows.end()
                          && found->second.values.value(QString::fromLatin1(attribute)) == QVariant(value);
                  });
              };
        static constexpr Query queries[] = {
            { "Track", "title == '3'", [](const Row &row, const Rows &) { return row.values[u"title"_s] == u"3"_s; } },
            { "Track", "plays >= 3 AND (bpm < 5 OR comment == nil)",
                [](const Row &row, const Rows &) {
                    const QVariant bpm = row.values.value(u"bpm"_s);
                    return row.values.value(u"plays"_s).toLongLong() >= 3 && row.values.contains(u"plays"_s)
                        && ((bpm.isValid() && bpm.toDouble() < 5) || !row.values.contains(u"comment"_s));
                } },
            { "Track", "NOT bpm > 5",
                [](const Row &row, const Rows &) { return row.values.value(u"bpm"_s, 0.0).toDouble() <= 5; } },
            { "Track", "album == nil", [](const Row &row, const Rows &) { return !row.links.contains(u"album"_s); } },
            { "Track", "album.title == '1'",
                [](const Row &row, const Rows &rows) { return linked(row, rows, "album", "title", u"1"_s); } },
            { "Track", "ANY genres.name == '2'",
                [](const Row &row, const Rows &rows) { return linked(row, rows, "genres", "name", u"2"_s); } },
            { "Track", "ANY neighbours.title == '2' OR remix.title == '4'",
                [](const Row &row, const Rows &rows) {
                    return linked(row, rows, "neighbours", "title", u"2"_s)
                        || linked(row, rows, "remix", "title", u"4"_s);
                } },
            { "Track", "album.artist.name == '5'",
                [](const Row &row, const Rows &rows) {
                    for (const Key album : row.links.value(u"album"_s)) {
                        if (const auto found = rows.find(album);
                            found != rows.end() && linked(found->second, rows, "artist", "name", u"5"_s))
                            return true;
                    }
                    return false;
                } },
            { "Album", "tracks.@count >= 2",
                [](const Row &row, const Rows &) { return row.links.value(u"tracks"_s).size() >= 2; } },
            { "Person", "name != '0'",
                [](const Row &row, const Rows &) { return row.values.value(u"name"_s) != u"0"_s; } },
            { "Tag", "ANY members.title == '2'",
                [](const Row &row, const Rows &rows) { return linked(row, rows, "members", "title", u"2"_s); } },
            { "Tag", "members.@count == 1",
                [](const Row &row, const Rows &rows) {
                    const QSet<Key> members = row.links.value(u"members"_s);
                    return std::count_if(members.begin(), members.end(), [&rows](Key key) {
                        return rows.contains(key);
                    }) == 1;
                } },
            { "Producer", "studio == nil",
                [](const Row &row, const Rows &) { return !row.values.contains(u"studio"_s); } },
        };
        const Query &query = oneOf(queries);
        const Rows rows = view();
        if (!contested().empty())
            return; // SQL sees one half of the mixture, memory the other
        const KXEntityDescription *entity = coordinator->model()->entity(QString::fromLatin1(query.entity));
        std::vector<Key> wanted;
        for (const auto &[key, row] : rows) {
            if (row.entity->isKindOf(entity) && query.matches(row, rows))
                wanted.push_back(key);
        }
        KXFetchRequest request(entity->name(), KXPredicate::predicateWithFormat(query.format));
        const QString sortKey = entity->property(u"title") ? u"title"_s : u"name"_s;
        const bool ascending = random.chance(0.5);
        const bool sorted = random.chance(0.7);
        if (sorted) {
            request.setSortDescriptors({ { sortKey, ascending } });
            std::stable_sort(wanted.begin(), wanted.end(), [&](Key a, Key b) {
                const QString left = rows.at(a).values[sortKey].toString();
                const QString right = rows.at(b).values[sortKey].toString();
                return ascending ? left < right : right < left;
            });
            if (random.chance(0.3)) {
                const auto offset = random.between<size_t>(0, 3);
                const auto limit = random.between<size_t>(1, 5);
                request.setFetchOffset(qint64(offset)).setFetchLimit(qint64(limit));
                wanted.erase(wanted.begin(), wanted.begin() + ptrdiff_t(std::min(offset, wanted.size())));
                wanted.resize(std::min(limit, wanted.size()));
            }
        }
        EXPECT_EQ(side->context->count(request), qint64(wanted.size())) << query.format;
        std::vector<Key> found = side->context->fetch(request).keys();
        if (!sorted)
            std::sort(found.begin(), found.end());
        EXPECT_EQ(found, wanted) << query.format << (sorted ? " sorted" : "");
    }

    void compareView()
    {
        const Rows rows = view();
        for (const auto &[key, row] : rows) {
            if (!isContested(key))
                expectRow(key, row, rows, "pending");
        }
    }

    void save()
    {
        bool denied = false;
        const Rows rows = view();
        for (const auto &[key, pending] : side->pending) {
            if (pending.now || !pending.base || pending.last->entity->name() != "Tag"_L1)
                continue; // one that was never stored may always go
            for (const Key member : pending.last->links.value(u"members"_s)) {
                if (isContested(member) || isContested(key))
                    return; // whether it counts depends on what was read when
                denied = denied || rows.contains(member);
            }
        }
        KXError error;
        EXPECT_EQ(side->context->save(&error), !denied) << error.localizedDescription().toStdString();
        if (denied) {
            compareView();
            rollback();
            return;
        }
        EXPECT_FALSE(side->context->hasChanges());
        const std::set<Key> stale = contested();
        std::vector<Key> changed;
        for (const auto &[key, pending] : std::exchange(side->pending, {})) {
            const auto row = committed.find(key);
            if (!pending.now) {
                committed.erase(key);
            } else if (!pending.base) {
                committed[key] = *pending.now;
            } else if (row != committed.end()) { // else somebody deleted it
                const Row stored = row->second;
                for (const Property &property : stored.entity->properties()) {
                    const QString name = property.name();
                    if (pending.now->values.value(name) == pending.base->values.value(name)
                        || stored.values.value(name) != pending.base->values.value(name))
                        continue;
                    if (pending.now->values.contains(name))
                        row->second.values[name] = pending.now->values[name];
                    else
                        row->second.values.remove(name);
                }
                if (pending.linked)
                    row->second.links = pending.now->links;
                if (pending.now->values != pending.base->values)
                    changed.push_back(key);
            }
        }
        for (const Key key : changed)
            expectRow(key, committed[key], committed, "after the save");
        refresh(stale);
        compareStore();
    }

    void rollback()
    {
        const std::set<Key> stale = contested();
        side->context->rollback();
        EXPECT_FALSE(side->context->hasChanges());
        const auto pending = std::exchange(side->pending, {});
        for (const auto &[key, change] : pending) {
            if (const auto row = committed.find(key); row != committed.end() && change.base == row->second)
                expectRow(key, row->second, committed, "after rolling back");
        }
        refresh(stale);
    }

    /// Contexts do not follow each other by themselves: what is clean in the other one is read anew, and in this one
    /// what was contested. Now and then all, as what it has in memory after a save or rollback should be right.
    void refresh(const std::set<Key> &contested)
    {
        const auto read = [this](const Side &each, const std::set<Key> &which) {
            for (const Key key : which) {
                const KXManagedObjectID id(
                    coordinator->store()->identity(), coordinator->model()->entities().first(), key);
                if (const auto held = each.context->registeredObjectWithID(id))
                    each.context->refreshObject(held.get());
            }
        };
        read(other(), keys);
        read(*side, random.chance(0.2) ? keys : contested);
    }

    std::set<Key> contested() const
    {
        std::set<Key> contested;
        for (const auto &[key, pending] : side->pending) {
            if (isContested(key))
                contested.insert(key);
        }
        return contested;
    }

    void compareStore()
    {
        Side fresh { KXManagedObjectContext::contextWithPersistentStoreCoordinator(coordinator), {} };
        Side *const before = std::exchange(side, &fresh);
        Rows left = committed;
        for (const KXEntityDescription *entity : coordinator->model()->entities()) {
            if (entity->parent())
                continue;
            const KXFetchedList list = fresh.context->fetchAllForEntity(entity->name());
            for (const Key key : list.keys())
                EXPECT_EQ(left.erase(key), 1u) << "object " << key << " should not be in the store";
        }
        EXPECT_TRUE(left.empty()) << "object " << left.begin()->first << " is missing in the store";
        for (const auto &[key, row] : committed)
            expectRow(key, row, committed, "in the store");
        side = before;
    }

    void reopen()
    {
        for (Side &each : sides)
            each.context.reset();
        coordinator.reset();
        coordinator = KXPersistentStoreCoordinator::persistentStoreCoordinatorWithStoreURL(
            QUrl::fromLocalFile(folder.filePath(u"library.db"_s)), Library::model());
        for (Side &each : sides)
            each.context = KXManagedObjectContext::contextWithPersistentStoreCoordinator(coordinator);
    }

    KXTestRandom &random;
    const QTemporaryDir folder;
    KXPersistentStoreCoordinator::Ref coordinator;
    Rows committed;
    Side sides[2];
    Side *side = &sides[0];
    std::set<Key> keys; // all that were given out
};

} // namespace

TEST(Walk, agreesWithAPlainModel)
{
    KXTestRandom random;
    const KXTestLog log;
    for (int walk = 0; walk < KXTestRandom::scaled(40); ++walk) {
        Walk walker(random);
        for (int step = 0; step < 600 && !::testing::Test::HasFailure(); ++step) {
            SCOPED_TRACE("step " + std::to_string(step));
            walker.step();
        }
        ASSERT_FALSE(::testing::Test::HasFailure());
    }
}
