#pragma once

#include <QHash>

#include "library/Library.h"
#include "tags/TrackTags.h"

/// Objects of an entity by their names, made when a name is new. It keeps identifiers, not objects, and reads the names
/// that there are when it is first asked.
template <class Class> class NameIndex
{
public:
    explicit NameIndex(KXManagedObjectContext &context)
        : m_context(context)
    {
    }

    /// fill sets a new object's values. Empty where the store gives no identifier.
    template <class Fill> KXRef<Class> object(const QString &key, const Fill &fill, KXError *error)
    {
        if (!std::exchange(m_isRead, true))
            read();
        if (const KXManagedObjectID id = m_ids.value(key)) {
            if (const KXRef<Class> known = Class::cast(m_context.objectWithID(id));
                known && !known->isMissing() && !known->isDeleted())
                return known;
        }
        const KXRef<Class> made = Class::createInContext(m_context, error);
        if (made) {
            fill(*made);
            m_ids.insert(key, made->objectID());
        }
        return made;
    }

    QList<KXRef<KXManagedObject>> objects(const QStringList &names, KXError *error)
    {
        QList<KXRef<KXManagedObject>> result;
        for (const QString &name : names) {
            if (const KXRef<Class> named = object(
                    TagValues::nameKey(name), [&](Class &made) { made.setName(name); }, error))
                result.append(named);
        }
        return result;
    }

private:
    void read()
    {
        for (const KXRef<KXManagedObject> &object : m_context.fetchAllForEntity(QString(Class::entityName))) {
            if (const KXRef<Class> typed = Class::cast(object))
                m_ids.insert(keyOf(*typed), typed->objectID());
        }
    }
    static QString keyOf(const Class &object)
    {
        if constexpr (requires { object.artistText(); })
            return TagValues::nameKey(object.title()) + u'\n' + TagValues::nameKey(object.artistText());
        else
            return TagValues::nameKey(object.name());
    }

    KXManagedObjectContext &m_context;
    QHash<QString, KXManagedObjectID> m_ids;
    bool m_isRead = false;
};

/// What tracks refer to by name: artists, albums, genres, labels and keys. On the context's thread; the context is
/// borrowed.
class TrackNames
{
public:
    explicit TrackNames(KXManagedObjectContext &context);

    NameIndex<Artist> artists;
    NameIndex<Genre> genres;
    NameIndex<Label> labels;
    /// Empty for no title. Two albums of different artists may share one.
    KXRef<Album> album(const QString &title, const QString &artist, KXError *error = nullptr);
    KXRef<Key> key(const std::optional<MusicalKey> &key, KXError *error = nullptr);

private:
    NameIndex<Album> m_albums;
    NameIndex<Key> m_keys;
};
