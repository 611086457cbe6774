// Models as files: what they keep, how versions and bundles come together, what is wrong with bad ones.

#include <QDir>
#include <QFile>
#include <gtest/gtest.h>

#include <kestrixkit/foundation/KXBundle.h>

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

TEST(Models, mergeTheCurrentVersionsOfTheBundles)
{
    const QTemporaryDir folder;
    KXBundle &bundle = KXBundle::mainBundle();
    const QStringList before = bundle.resourceFolders();
    struct Restore
    {
        KXBundle &bundle;
        const QStringList folders;
        ~Restore() { bundle.setResourceFolders(folders); }
    } restore { bundle, before };
    bundle.setResourceFolders({ folder.path() });
    const auto model = [](const char *attribute, const char *entity = "Crate") {
        return QByteArray(R"({"entities": [{"name": ")") + entity + R"(", "attributes": [{"name": ")" + attribute
            + R"(", "type": "string"}]}]})";
    };
    KXError error;
    EXPECT_FALSE(KXManagedObjectModel::mergedModelFromBundles({ &bundle }, &error));
    EXPECT_TRUE(error);

    QDir(folder.path()).mkdir(u"Crates.momd"_s);
    Library::write(folder.filePath(u"Crates.momd/Crates.mom"_s), model("first"));
    Library::write(folder.filePath(u"Crates.momd/Crates 2.mom"_s), model("second"));
    Library::write(folder.filePath(u"Crates.momd/Crates 3.mom"_s), model("third"));
    Library::write(folder.filePath(u"Labels.mom"_s), model("name", "Label"));
    const auto attribute = [](const char *entity) {
        KXError problem;
        const auto merged = KXManagedObjectModel::mergedModelFromBundles({}, &problem);
        return merged && merged->entity(QString::fromLatin1(entity))
            ? merged->entity(QString::fromLatin1(entity))->properties().first().name()
            : problem.localizedDescription();
    };
    Library::write(folder.filePath(u"Crates.momd/current"_s), "Crates 2.mom\n");
    EXPECT_EQ(attribute("Crate"), u"second"_s);
    EXPECT_EQ(attribute("Label"), u"name"_s);
    Library::write(folder.filePath(u"Crates.momd/current"_s), "Crates 9.mom\n");
    EXPECT_EQ(attribute("Crate"), u"first"_s) << "sorts last";
    const auto coordinator = Coordinator::persistentStoreCoordinatorWithStoreURL(
        QUrl::fromLocalFile(folder.filePath(u"store.db"_s)), QList<const KXBundle *> {}, {}, &error);
    ASSERT_TRUE(coordinator);
    EXPECT_TRUE(KXManagedObjectContext::contextWithPersistentStoreCoordinator(coordinator)
                    ->managedObjectForEntity(u"Crate"_s)
                    ->setValueForKey(u"first"_s, u"x"_s));

    // The same entity in two models must be the same.
    Library::write(folder.filePath(u"More.mom"_s), model("first"));
    EXPECT_EQ(attribute("Crate"), u"first"_s);
    Library::write(folder.filePath(u"More.mom"_s), model("other"));
    EXPECT_TRUE(attribute("Crate").contains(u"Crate"_s));

    const char *const bad[] = { "", "[]", "{\"entities\": [", R"({"entities": [{"name": ""}]})",
        R"({"entities": [{"name": "A", "parent": "B"}]})",
        R"({"entities": [{"name": "A", "attributes": [{"name": "a", "type": "text"}]}]})",
        R"({"entities": [{"name": "A", "attributes": [{"name": "kx_id", "type": "string"}]}]})",
        R"({"entities": [{"name": "A"}, {"name": "A"}]})",
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
