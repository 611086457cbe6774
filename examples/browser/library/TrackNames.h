#pragma once

#include <QHash>

#include "library/Library.h"
#include "library/OtherSaves.h"
#include "tags/TrackTags.h"

/// Objects of an entity by their names, made when a name is new. It keeps identifiers, not objects, and reads the names
/// that there are when it is first asked, and when somebody else may have made one since.
template <class Class> class NameIndex
{
public:
    NameIndex(KXManagedObjectContext &context, const OtherSaves &others)
        : m_context(context)
        , m_others(others)
    {
    }

    /// fill sets a new object's values. Empty where the store does not answer, or gives no identifier.
    template <class Fill> KXRef<Class> object(const QString &key, const Fill &fill, KXError *error)
    {
        if (const KXRef<Class> found = known(key))
            return found;
        if (const int saves = m_others.count(); saves != m_savesRead) {
            if (!read(error))
                return {};
            m_savesRead = saves;
            if (const KXRef<Class> found = known(key))
                return found;
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
    KXRef<Class> known(const QString &key)
    {
        const KXManagedObjectID id = m_ids.value(key);
        const KXRef<Class> object = id ? Class::cast(m_context.objectWithID(id)) : KXRef<Class>();
        return object && !object->isMissing() && !object->isDeleted() ? object : KXRef<Class>();
    }
    bool read(KXError *error)
    {
        KXError problem;
        const KXFetchedList all = m_context.fetch(KXFetchRequest(QString(Class::entityName)), &problem);
        if (problem)
            return KXSetError(error, problem);
        for (const KXRef<KXManagedObject> &object : all) {
            if (const KXRef<Class> typed = Class::cast(object))
                m_ids.insert(keyOf(*typed), typed->objectID());
        }
        return true;
    }
    static QString keyOf(const Class &object)
    {
        if constexpr (requires { object.artistText(); })
            return TagValues::nameKey(object.title()) + u'\n' + TagValues::nameKey(object.artistText());
        else
            return TagValues::nameKey(object.name());
    }

    KXManagedObjectContext &m_context;
    const OtherSaves &m_others;
    QHash<QString, KXManagedObjectID> m_ids;
    int m_savesRead = -1; // of the others; none yet
};

/// What tracks refer to by name: artists, albums, genres, labels and keys. On the context's thread; the context is
/// borrowed.
class TrackNames
{
public:
    explicit TrackNames(KXManagedObjectContext &context);

    const OtherSaves others;

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
