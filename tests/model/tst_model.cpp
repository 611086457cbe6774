// Models as files: what they keep, how versions and bundles come together, what is wrong with bad ones.

#include <QDir>
#include <QFile>
#include <gtest/gtest.h>

#include <kestrixkit/entity/KXModelPath.h>
#include <kestrixkit/foundation/KXBundle.h>
#include <kestrixkit/foundation/KXException.h>

#include "store/Library.h"
#include "support/KXTestLog.h"
#include "support/KXTestPrint.h"

using namespace Qt::StringLiterals;
using Coordinator = KXPersistentStoreCoordinator;
using Property = KXPropertyDescription;

TEST(Models, roundTripAsJSON)
{
    KXError error;
    const auto model = KXManagedObjectModel::modelWithJSON(Library::model()->toJSON(), &error);
    ASSERT_TRUE(model) << error.localizedDescription().toStdString();
    EXPECT_EQ(model->versionHashes(), Library::model()->versionHashes());
    EXPECT_EQ(model->toJSON(), Library::model()->toJSON());
    EXPECT_EQ(model->fetchTemplate(u"commentedBy"_s).predicate.predicateFormat(),
        Library::model()->fetchTemplate(u"commentedBy"_s).predicate.predicateFormat());
    const Property *rule = model->entity(u"Tag"_s)->property(u"members");
    EXPECT_EQ(rule->deleteRule(), KXDeleteRule::Deny);
    EXPECT_EQ(model->entity(u"Producer"_s)->property(u"name")->defaultValue(), QVariant(u"Nobody"_s));
    EXPECT_EQ(model->entity(u"Person"_s)->residence(), KXResidence::Resident);

    // The order of declaration does not make another model; the type, the optionality and the inverse do.
    const auto hash = [](const Property &a, const Property &b) {
        return KXManagedObjectModel::make({ KXEntityDescription(u"E"_s).add(a).add(b) })->versionHashes().value(u"E"_s);
    };
    const Property a = Property::attribute(u"a"_s, KXAttributeType::Integer32);
    const Property b = Property::attribute(u"b"_s, KXAttributeType::Integer32);
    EXPECT_EQ(hash(a, b), hash(b, a));
    EXPECT_EQ(hash(Property(a).indexed(), b), hash(a, b));
    EXPECT_NE(hash(Property(a).required(), b), hash(a, b));
    EXPECT_NE(hash(Property::attribute(u"a"_s, KXAttributeType::Integer64), b), hash(a, b));
}

TEST(Models, thatAreTooLargeAreRefusedWithTheLimit)
{
    const auto entity = [](const QString &name, const QString &parent, int properties) {
        KXEntityDescription made(name, parent);
        for (int i = 0; i < properties; ++i)
            made.add(Property::attribute(name + QString::number(i), KXAttributeType::Integer32));
        return made;
    };
    const auto refusal = [](const QList<KXEntityDescription> &entities) {
        try {
            return KXManagedObjectModel::make(entities) ? QString() : u"nothing"_s;
        } catch (const KXException &mistake) {
            return mistake.reason();
        }
    };
    const int most = KXManagedObjectModel::MostProperties;
    EXPECT_EQ(refusal({ entity(u"A"_s, {}, most) }), QString());
    EXPECT_TRUE(refusal({ entity(u"A"_s, {}, most + 1) }).contains(u"more than 256"_s));
    EXPECT_TRUE(refusal({ entity(u"A"_s, {}, most), entity(u"B"_s, u"A"_s, 1) }).contains(u"\"B\""_s));

    // At the limit all works: a setter of the last property, undo and a save.
    const QTemporaryDir folder;
    KXError error;
    const auto coordinator
        = Coordinator::persistentStoreCoordinatorWithStoreURL(QUrl::fromLocalFile(folder.filePath(u"wide.db"_s)),
            KXManagedObjectModel::make({ entity(u"A"_s, {}, most) }), &error);
    const auto context = KXManagedObjectContext::contextWithPersistentStoreCoordinator(coordinator);
    ASSERT_TRUE(context) << error.localizedDescription().toStdString();
    const auto object = context->managedObjectForEntity(u"A"_s);
    EXPECT_TRUE(object->setValueForKey(u"A255"_s, 7));
    EXPECT_TRUE(context->save(&error)) << error.localizedDescription().toStdString();

    // The names of indexes are those of entity and property.
    const Property ofA = Property::attribute(u"b_C"_s, KXAttributeType::String);
    const Property ofB = Property::toOne(u"c"_s, u"A"_s);
    const auto both = [&](const Property &a) {
        return refusal({ KXEntityDescription(u"A"_s).add(a), KXEntityDescription(u"A_b"_s).add(ofB) });
    };
    EXPECT_EQ(both(ofA), QString());
    EXPECT_TRUE(both(Property(ofA).indexed()).contains(u"index"_s));
    EXPECT_EQ(both(Property(ofA).indexedFolded(KXCaseInsensitive)), QString());
    EXPECT_TRUE(both(Property(ofA).indexedFolded(4)).contains(u"folded"_s));
    EXPECT_TRUE(both(Property(ofA).indexedFolded(1).transient()).contains(u"folded"_s));
    EXPECT_TRUE(both(Property::attribute(u"n"_s, KXAttributeType::URI).indexedFolded(1)).contains(u"folded"_s));

    QList<KXEntityDescription> family { entity(u"A"_s, {}, 0) };
    for (int i = 0; i < 8; ++i)
        family.append(entity(u"B%1_"_s.arg(i), u"A"_s, 250));
    EXPECT_TRUE(refusal(family).contains(u"more than 1900"_s));
    family.removeLast();
    EXPECT_EQ(refusal(family), QString());
    const auto wide = Coordinator::persistentStoreCoordinatorWithStoreURL(
        QUrl::fromLocalFile(folder.filePath(u"family.db"_s)), KXManagedObjectModel::make(family), &error);
    ASSERT_TRUE(wide) << error.localizedDescription().toStdString();
    const auto other = KXManagedObjectContext::contextWithPersistentStoreCoordinator(wide);
    EXPECT_TRUE(other->managedObjectForEntity(u"B6_"_s)->setValueForKey(u"B6_249"_s, 7));
    EXPECT_TRUE(other->save(&error)) << error.localizedDescription().toStdString();
    EXPECT_EQ(other->countForEntity(u"A"_s), 1);

    QList<KXEntityDescription> chain;
    for (int i = 20'000; i > 0; --i)
        chain.append(KXEntityDescription(u"E%1"_s.arg(i), i > 1 ? u"E%1"_s.arg(i - 1) : QString()));
    EXPECT_TRUE(refusal(chain).contains(u"20000 entities, more than 1000"_s)) << refusal(chain).toStdString();
    EXPECT_EQ(refusal(chain.last(1000)), QString());
}

/// A folder of models as the main bundle's resources, the second of three versions being the current one.
class BundledModels : public ::testing::Test
{
protected:
    BundledModels()
    {
        KXBundle::mainBundle().setResourceFolders({ folder.path() });
        QDir(folder.path()).mkdir(u"Crates.momd"_s);
        write(u"Crates.momd/Crates.mom"_s, model("first"));
        write(u"Crates.momd/Crates 2.mom"_s, model("second"));
        write(u"Crates.momd/Crates 3.mom"_s, model("third"));
        write(u"Labels.mom"_s, model("name", "Label"));
        write(u"Crates.momd/current"_s, "Crates 2.mom\n");
    }
    ~BundledModels() override { KXBundle::mainBundle().setResourceFolders(before); }
    void write(const QString &file, const QByteArray &bytes) { Library::write(folder.filePath(file), bytes); }
    static QByteArray model(const char *attribute, const char *entity = "Crate")
    {
        return QByteArray(R"({"entities": [{"name": ")") + entity + R"(", "attributes": [{"name": ")" + attribute
            + R"(", "type": "string"}]}]})";
    }
    static QByteArray box(const char *parent)
    {
        return QByteArray(R"({"entities": [{"name": "Box", "parent": ")") + parent + R"("}]})";
    }
    /// The entity's first attribute in what the bundles have together, or what is wrong with them.
    static QString attribute(const char *entity)
    {
        KXError problem;
        const auto merged = KXManagedObjectModel::mergedModelFromBundles({}, &problem);
        return merged && merged->entity(QString::fromLatin1(entity))
            ? merged->entity(QString::fromLatin1(entity))->properties().first().name()
            : problem.localizedDescription();
    }

    const QTemporaryDir folder;
    const QStringList before = KXBundle::mainBundle().resourceFolders();
    KXError error;
};

TEST_F(BundledModels, areMergedInTheirCurrentVersions)
{
    EXPECT_EQ(attribute("Crate"), u"second"_s);
    EXPECT_EQ(attribute("Label"), u"name"_s);
    write(u"Crates.momd/current"_s, "Crates 9.mom\n");
    EXPECT_EQ(attribute("Crate"), u"first"_s) << "sorts last";
    const auto coordinator = Coordinator::persistentStoreCoordinatorWithStoreURL(
        QUrl::fromLocalFile(folder.filePath(u"store.db"_s)), QList<const KXBundle *> {}, {}, &error);
    ASSERT_TRUE(coordinator);
    EXPECT_TRUE(KXManagedObjectContext::contextWithPersistentStoreCoordinator(coordinator)
                    ->managedObjectForEntity(u"Crate"_s)
                    ->setValueForKey(u"first"_s, u"x"_s));
    const QTemporaryDir empty;
    KXBundle::mainBundle().setResourceFolders({ empty.path() });
    EXPECT_FALSE(KXManagedObjectModel::mergedModelFromBundles({ &KXBundle::mainBundle() }, &error));
    EXPECT_TRUE(error);
}

TEST_F(BundledModels, haveTheSameEntityOnceOnly)
{
    write(u"More.mom"_s, model("second"));
    EXPECT_EQ(attribute("Crate"), u"second"_s);
    write(u"More.mom"_s, model("other"));
    EXPECT_TRUE(attribute("Crate").contains(u"Crate"_s));
}

// For a store that was written so as well.
TEST_F(BundledModels, areJoinedWhereAnEntityDerivesFromAnotherFiles)
{
    write(u"A box.mom"_s, box("Crate"));
    const auto merged = KXManagedObjectModel::mergedModelFromBundles({});
    ASSERT_TRUE(merged && merged->entity(u"Box"_s));
    EXPECT_EQ(merged->entity(u"Box"_s)->parent(), merged->entity(u"Crate"_s));
    KXStoreMetadata metadata;
    metadata.versionHashes = merged->versionHashes();
    const auto found = KXManagedObjectModel::mergedModelFromBundles({}, metadata);
    EXPECT_TRUE(found && found->versionHashes() == merged->versionHashes());
    write(u"A box.mom"_s, box("Nobody"));
    EXPECT_TRUE(attribute("Crate").contains(u"Nobody"_s));
}

TEST_F(BundledModels, areRefusedByNameWhenTheyAreBad)
{
    const char *const bad[] = { "", "[]", "{\"entities\": [", R"({"entities": [{"name": ""}]})",
        R"({"entities": [{"name": "A", "parent": "B"}]})",
        R"({"entities": [{"name": "A", "attributes": [{"name": "a", "type": "text"}]}]})",
        R"({"entities": [{"name": "A", "attributes": [{"name": "kx_id", "type": "string"}]}]})",
        R"({"entities": [{"name": "A"}, {"name": "A"}]})", R"({"entities": [{"name": "A"}, {"name": "a"}]})",
        R"({"entities": [{"name": "kx_metadata"}]})", R"({"entities": [{"name": "KX_Sequence"}]})",
        R"({"entities": [{"name": "sqlite_master"}]})", "{\"entities\": [{\"name\": \"A\\u0000B\"}]}",
        R"({"entities": [{"name": "A", "attributes": [{"name": "KX_id", "type": "string"}]}]})",
        R"({"entities": [{"name": "A", "relationships": [{"name": "r", "destination": "A", "toMany": true},
            {"name": "R", "destination": "A", "toMany": true}]}]})",
        R"({"entities": [{"name": "A.b", "relationships": [{"name": "c", "destination": "A", "toMany": true}]},
            {"name": "A", "relationships": [{"name": "b.c", "destination": "A", "toMany": true}]}]})",
        R"({"entities": [{"name": "A", "attributes": [{"name": "x", "type": "string"}, {"name": "x@A", "type": "string"},
            {"name": "X", "type": "string"}]}]})",
        R"({"entities": [{"name": "A", "relationships": [{"name": "r", "destination": "B"}]}]})",
        R"({"entities": [{"name": "A", "relationships": [{"name": "r", "destination": "A", "inverse": "s"}]}]})",
        R"({"entities": [{"name": "A"}], "templates": [{"name": "t", "entity": "A", "predicate": "x =="}]})" };
    const KXTestLog log;
    for (const char *json : bad) {
        const QString path = folder.filePath(u"Bad.mom"_s);
        Library::write(path, json);
        error = {};
        EXPECT_FALSE(KXManagedObjectModel::modelWithContentsOfFile(path, &error)) << json;
        EXPECT_TRUE(error.localizedDescription().contains(path)) << json;
        EXPECT_FALSE(Coordinator::persistentStoreCoordinatorWithStoreURL(
            QUrl::fromLocalFile(folder.filePath(u"store.db"_s)), QList<const KXBundle *> {}, {}, &error));
    }
    EXPECT_FALSE(KXManagedObjectModel::modelWithContentsOfFile(folder.filePath(u"missing.mom"_s), &error));
    EXPECT_TRUE(error.localizedDescription().contains(u"missing.mom"_s));
}

TEST(ModelPath, followsKeysAsFarAsTheModelKnowsThem)
{
    const auto model = Library::model();
    struct Row
    {
        const char *from, *path;
        size_t steps;
        bool known, count, toMany;
        const char *destination;
    };
    for (const Row &row : { Row { "Track", "title", 1, true, false, false, nullptr },
             Row { "Track", "album", 1, true, false, false, "Album" },
             Row { "Track", "album.tracks.genres", 3, true, false, true, "Genre" },
             Row { "Track", "genres.@count", 1, true, true, false, nullptr },
             Row { "Track", "album.tracks.@count", 2, true, true, false, nullptr },
             Row { "Track", "neighbours.genres.@count", 2, true, true, true, nullptr },
             Row { "Track", "album.@count", 1, false, false, false, nullptr },
             Row { "Track", "genres.@count.x", 1, false, false, true, nullptr },
             Row { "Track", "title.length", 1, false, false, false, nullptr },
             Row { "Track", "", 0, false, false, false, nullptr },
             Row { "Track", "no", 0, false, false, false, nullptr },
             Row { "Person", "studio", 1, true, false, false, nullptr } }) {
        const KXModelPath path(*model->entity(QLatin1StringView(row.from)), QString::fromLatin1(row.path));
        EXPECT_EQ(path.steps().size(), row.steps) << row.path;
        EXPECT_EQ(path.isKnown(), row.known) << row.path;
        EXPECT_EQ(path.isCount(), row.count) << row.path;
        EXPECT_EQ(path.isToMany(), row.toMany) << row.path;
        EXPECT_EQ(path.destination(), row.destination ? model->entity(QLatin1StringView(row.destination)) : nullptr)
            << row.path;
    }
}
