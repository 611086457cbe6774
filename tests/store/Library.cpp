#include "store/Library.h"

#include <QDebug>
#include <QFile>
#include <gtest/gtest.h>
#include <sqlite3.h>

#include <kestrixkit/store/KXPredicateSQL_p.h>

using namespace Qt::StringLiterals;
using Property = KXPropertyDescription;
using Type = KXAttributeType;

KXManagedObjectModel::Ref Library::model()
{
    static const KXManagedObjectModel::Ref model = [] {
        Person::registerEntity();
        Producer::registerEntity();
        Track::registerEntity();
        Album::registerEntity();
        Genre::registerEntity();
        Tag::registerEntity();
        return KXManagedObjectModel::make(
            {
                KXEntityDescription(u"Person"_s)
                    .resident()
                    .add(Property::attribute(u"name"_s, Type::String).required().withDefault(u"Nobody"_s).indexed())
                    .add(Property::toMany(u"albums"_s, u"Album"_s, u"artist"_s).deleteRule(KXDeleteRule::Nullify)),
                KXEntityDescription(u"Producer"_s, u"Person"_s).add(Property::attribute(u"studio"_s, Type::String)),
                KXEntityDescription(u"Track"_s)
                    .add(Property::attribute(u"title"_s, Type::String)
                             .required()
                             .indexedFolded(KXCaseInsensitive | KXDiacriticInsensitive))
                    .add(Property::attribute(u"comment"_s, Type::String).indexedFolded(KXCaseInsensitive))
                    .add(Property::attribute(u"identifier"_s, Type::String).indexed())
                    .add(Property::attribute(u"bpm"_s, Type::Double).indexed())
                    .add(Property::attribute(u"year"_s, Type::Integer16))
                    .add(Property::attribute(u"plays"_s, Type::Integer64).withDefault(0))
                    .add(Property::attribute(u"loved"_s, Type::Boolean).withDefault(false))
                    .add(Property::attribute(u"added"_s, Type::Date))
                    .add(Property::attribute(u"price"_s, Type::Decimal).indexed())
                    .add(Property::attribute(u"file"_s, Type::URI))
                    .add(Property::attribute(u"uuid"_s, Type::UUID))
                    .add(Property::attribute(u"cover"_s, Type::Binary))
                    .add(Property::attribute(u"extra"_s, Type::Variant))
                    .add(Property::attribute(u"scratch"_s, Type::String).transient())
                    .add(Property::toOne(u"album"_s, u"Album"_s, u"tracks"_s))
                    .add(Property::toOne(u"original"_s, u"Track"_s, u"remix"_s))
                    .add(Property::toOne(u"remix"_s, u"Track"_s, u"original"_s))
                    .add(Property::toMany(u"genres"_s, u"Genre"_s, u"tracks"_s))
                    .add(Property::toMany(u"neighbours"_s, u"Track"_s, u"neighbours"_s))
                    .add(Property::toMany(u"tags"_s, u"Tag"_s)),
                KXEntityDescription(u"Album"_s)
                    .add(Property::attribute(u"title"_s, Type::String).required())
                    .add(Property::toOne(u"artist"_s, u"Person"_s, u"albums"_s))
                    .add(Property::toMany(u"tracks"_s, u"Track"_s, u"album"_s).deleteRule(KXDeleteRule::Cascade)),
                KXEntityDescription(u"Genre"_s)
                    .add(Property::attribute(u"name"_s, Type::String).required())
                    .add(Property::toMany(u"tracks"_s, u"Track"_s, u"genres"_s)),
                KXEntityDescription(u"Tag"_s)
                    .add(Property::attribute(u"name"_s, Type::String).required())
                    .add(Property::toMany(u"members"_s, u"Track"_s).deleteRule(KXDeleteRule::Deny)),
            },
            {
                { u"byIdentifier"_s, u"Track"_s, KXPredicate::predicateWithFormat("identifier == $IDENTIFIER") },
                { u"commentedBy"_s, u"Track"_s,
                    KXPredicate::predicateWithFormat("identifier == $IDENTIFIER AND comment LIKE $USER") },
                { u"loved"_s, u"Track"_s, KXPredicate::predicateWithFormat("loved == TRUE") },
            });
    }();
    return model;
}

QString Library::describe(const KXManagedObject &object)
{
    const auto keyOf
        = [](const KXManagedObject *other) { return other ? QString::number(other->objectID().key()) : u"-"_s; };
    QString line = object.entity()->name() + u' ' + keyOf(&object);
    for (const Property &property : object.entity()->properties()) {
        if (property.isTransient())
            continue;
        line += u' ' + property.name() + u'=';
        if (property.isToMany()) {
            for (const auto &other : object.objectsForKey(property.name()))
                line += keyOf(other.get()) + u',';
            continue;
        }
        const QVariant value = object.valueForKey(property.name());
        if (property.isToOne())
            line += keyOf(value.value<KXRef<KXManagedObject>>().get());
        else if (value.typeId() == qMetaTypeId<KXDecimal>())
            line += value.value<KXDecimal>().toString();
        else if (value.isValid())
            QDebug(&line).nospace() << value;
    }
    return line;
}

QStringList Library::dump(KXManagedObjectContext &context)
{
    QStringList lines;
    for (const KXEntityDescription *entity : context.persistentStoreCoordinator()->model()->entities()) {
        if (entity->parent())
            continue;
        for (const auto &object : context.fetchAllForEntity(entity->name()))
            lines.append(describe(*object));
    }
    lines.sort();
    return lines;
}

std::string Library::damage(const QString &path)
{
    sqlite3 *database = nullptr;
    std::string text;
    const auto line = [](void *lines, int, char **values, char **) {
        *static_cast<std::string *>(lines) += std::string(values[0]) + '\n';
        return 0;
    };
    sqlite3_open_v2(QFile::encodeName(path).constData(), &database, SQLITE_OPEN_READWRITE, nullptr);
    KXPredicateSQL::registerFunctions(database); // or indexes of decimals and of sorted texts could not be checked
    if (sqlite3_exec(database, "PRAGMA synchronous=OFF; PRAGMA integrity_check", line, &text, nullptr) != SQLITE_OK)
        text += sqlite3_errmsg(database);
    sqlite3_close(database);
    return text == "ok\n" ? std::string() : text;
}

void Library::write(const QString &path, const QByteArray &bytes)
{
    QFile file(path);
    ASSERT_TRUE(file.open(QIODevice::WriteOnly) && file.write(bytes) == bytes.size());
}

void Library::tamper(const QString &path, const char *sql)
{
    sqlite3 *database = nullptr;
    sqlite3_open_v2(
        QFile::encodeName(path).constData(), &database, SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE, nullptr);
    ASSERT_EQ(sqlite3_exec(database, sql, nullptr, nullptr, nullptr), SQLITE_OK)
        << sql << ": " << sqlite3_errmsg(database);
    sqlite3_close(database);
}

LibraryTest::LibraryTest() { open(); }

void LibraryTest::open()
{
    KXError error;
    coordinator = KXPersistentStoreCoordinator::persistentStoreCoordinatorWithStoreURL(url(), Library::model(), &error);
    EXPECT_TRUE(coordinator) << error.localizedDescription().toStdString();
    context = otherContext();
}

void LibraryTest::reopen()
{
    context.reset();
    coordinator.reset();
    open();
}

KXRef<Track> LibraryTest::track(const QString &title)
{
    auto track = Track::createInContext(*context);
    track->setTitle(title);
    return track;
}

KXRef<Genre> LibraryTest::genre(const QString &name)
{
    auto genre = Genre::createInContext(*context);
    genre->setName(name);
    return genre;
}
