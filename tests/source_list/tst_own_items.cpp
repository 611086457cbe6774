// Source lists over a host's own entities.

#include <QTemporaryDir>
#include <gtest/gtest.h>

#include <kestrixkit/context/KXTreeObjectOf.h>
#include <kestrixkit/source_list/KXSourceListViewController.h>

using namespace Qt::StringLiterals;

namespace {

/// A title is all that an item of a list needs.
class Device : public KXManagedObjectOf<Device>, public KXSourceListItem
{
public:
    static constexpr QLatin1StringView entityName { "Device" };
    KX_ATTRIBUTE(QString, title, setTitle)
};

class Shelf : public KXTreeObjectOf<Shelf>
{
public:
    static constexpr QLatin1StringView entityName { "Shelf" };
    KX_ATTRIBUTE(QString, title, setTitle)
};

} // namespace

TEST(OwnItems, needNoMoreThanATitle)
{
    Device::registerEntity();
    Shelf::registerEntity();
    const auto title = KXPropertyDescription::attribute(Shelf::titleKey, KXAttributeType::String);
    const QTemporaryDir folder;
    const auto coordinator = KXPersistentStoreCoordinator::persistentStoreCoordinatorWithStoreURL(
        QUrl::fromLocalFile(folder.filePath(u"own.db"_s)),
        KXManagedObjectModel::make(
            { KXEntityDescription(u"Device"_s).add(title), Shelf::treeDescription().add(title) }));
    const auto context = KXManagedObjectContext::contextWithPersistentStoreCoordinator(coordinator);
    const auto shelf = [&](const QString &name, qint64 position, const KXRef<Shelf> &parent = {}) {
        const auto made = Shelf::createInContext(*context);
        made->setTitle(name);
        made->setPosition(position);
        made->setParent(parent);
        return made;
    };
    const auto house = shelf(u"House"_s, 0), techno = shelf(u"Techno"_s, 1), deep = shelf(u"Deep"_s, 0, house);
    Device::createInContext(*context)->setTitle(u"Left deck"_s);

    KXTreeController shelves(context, { .entityName = u"Shelf"_s, .sortDescriptors = { { Shelf::positionKey } } });
    KXTreeController devices(
        context, { .entityName = u"Device"_s, .childrenKeyPath = {}, .sortDescriptors = { { Device::titleKey } } });
    KXSourceListViewController tree, list;
    tree.setTreeController(&shelves);
    list.setTreeController(&devices);
    EXPECT_EQ(tree.sourceListView()->cellForRow(shelves.index(0, 0, shelves.index(0, 0))).title, u"Deep"_s);
    EXPECT_EQ(list.sourceListView()->cellForRow(devices.index(0, 0)).title, u"Left deck"_s);

    // By keys, as by dragging: out of its parent, down, and up again by undo.
    tree.selectItem(deep.get());
    ASSERT_TRUE(tree.moveSelectedItems(Qt::LeftArrow));
    EXPECT_FALSE(deep->parent());
    EXPECT_EQ(deep->position(), 1);
    EXPECT_EQ(shelves.rowCount(), 3);
    context->undoManager()->undo();
    EXPECT_EQ(deep->parent(), house);
    EXPECT_TRUE(techno->canBeParentForItem(deep.get()));
    EXPECT_FALSE(techno->canBeParentForItem(Device::findAllInContext(*context).first().get()));
    EXPECT_FALSE(house->setParentItem(deep.get())) << "a circle";
}
