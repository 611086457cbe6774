#include <QAbstractItemModelTester>
#include <QItemSelectionModel>
#include <QSignalSpy>
#include <QTreeView>
#include <gtest/gtest.h>

#include <kestrixkit/foundation/KXException.h>
#include <kestrixkit/foundation/KXObserver.h>
#include <kestrixkit/toolkit/KXTreeController.h>

#include "support/FaultVfs.h"
#include "support/KXTestLog.h"
#include "support/KXTestPrint.h"
#include "support/KXTestRandom.h"
#include "toolkit/Grove.h"

using namespace Qt::StringLiterals;
using Object = KXManagedObject;

namespace {

KXTreeRequest byPosition()
{
    KXTreeRequest request { u"Branch"_s };
    request.sortDescriptors = { { u"position"_s }, { u"title"_s, false } };
    return request;
}

/// "a(b c(d)) e"
QString outline(const KXTreeNode &node)
{
    QStringList parts;
    for (const KXTreeNode *child : node.childNodes()) {
        const QString below = outline(*child);
        parts += child->representedObject()->valueForKey(u"title"_s).toString()
            + (below.isEmpty() ? QString() : u'(' + below + u')');
    }
    return parts.join(u' ');
}

/// The same of what the store answers, circles left out.
QString stored(KXManagedObjectContext &context, const KXRef<Object> &parent = {})
{
    QStringList parts;
    KXFetchRequest request(u"Branch"_s,
        parent ? KXPredicate::predicateWithFormat("parent == %@", KXVariantFromRef(parent))
               : KXPredicate::predicateWithFormat("parent == nil"));
    request.setSortDescriptors(byPosition().sortDescriptors);
    for (const KXRef<Object> &object : context.fetch(request)) {
        const QString below = stored(context, object);
        parts += object->valueForKey(u"title"_s).toString() + (below.isEmpty() ? QString() : u'(' + below + u')');
    }
    return parts.join(u' ');
}

}

class TreeTest : public ::testing::Test, public Grove
{
};

// Recursion would take more stack than there is; what grew with the square would take minutes.
TEST_F(TreeTest, mayBeOfAnyDepthAndWidth)
{
    constexpr int depth = 60'000;
    constexpr int width = 300'000;
    const auto fill = [&](int count, bool nested) {
        const auto filling = KXManagedObjectContext::contextWithPersistentStoreCoordinator(coordinator);
        KXRef<Branch> above;
        for (int i = 0; i < count; ++i) {
            const auto made = Branch::createInContext(*filling);
            made->setTitle(QString::number(i));
            made->setPosition(i);
            made->setParent(above);
            if (nested)
                above = made;
        }
        ASSERT_TRUE(filling->save());
    };
    fill(depth, true);
    {
        KXTreeController tree(context, byPosition());
        const auto nodes = tree.flattenedNodes();
        ASSERT_EQ(nodes.size(), depth);
        EXPECT_EQ(nodes.last()->indexPath().size(), depth);
        tree.setSelectedObjects({ nodes.last()->representedObject() });
        EXPECT_EQ(tree.selectionIndexPath().size(), depth);
        // A cut in the middle: what lies below becomes a second tree, and goes when the top does.
        Branch::cast(nodes[depth / 2]->representedObject())->setParent({});
        context->processPendingChanges();
        EXPECT_EQ(tree.rootNodes().size(), 2);
        EXPECT_EQ(tree.flattenedNodes().size(), depth);
        KXTreeRequest leaves = byPosition();
        leaves.rootPredicate = KXPredicate::predicateWithFormat("position >= %d", depth - 1);
        tree.setRequest(context, leaves);
        EXPECT_EQ(tree.flattenedNodes().size(), 1);
        context->rollback();
    }
    fill(width, false);
    KXTreeController tree(context, byPosition());
    EXPECT_EQ(tree.rootNodes().size(), width + 1);
    EXPECT_TRUE(context->managedObjectForEntity(u"Branch"_s));
    context->processPendingChanges();
    EXPECT_EQ(tree.rootNodes().size(), width + 2);
}

/// Edits a tree at random, here and elsewhere.
class TreeWalk : public TreeTest
{
protected:
    KXRef<Branch> any(KXManagedObjectContext &of)
    {
        const KXFetchedList all = Branch::findAllInContext(of);
        return all.isEmpty() || random.chance(0.15) ? KXRef<Branch>()
                                                    : Branch::cast(all.at(random.below(int(all.size()))));
    }
    KXIndexPath path()
    {
        const QList<const KXTreeNode *> nodes = tree.flattenedNodes();
        const KXTreeNode *node = nodes.isEmpty() || random.chance(0.3) ? tree.rootNode() : random.oneOf(nodes);
        return node->indexPath() + KXIndexPath { random.between(0, node->childCount()) };
    }
    /// Any change of any object, circles and equal places included.
    void edit(KXManagedObjectContext &of)
    {
        const KXRef<Branch> object = any(of);
        const int what = random.below(6);
        if (what < 2) {
            auto made = Branch::createInContext(of);
            made->setTitle(QString::number(made->objectID().key()));
            made->setPosition(random.below(4));
            made->setParent(any(of));
        } else if (object && what == 2) {
            object->setPosition(random.below(4));
        } else if (object && what == 3) {
            object->setTitle(u'x' + QString::number(random.below(9)) + object->title().right(3));
        } else if (object && what == 4) {
            object->setParent(any(of));
        } else if (object && random.chance(Branch::countOfInContext(of) / 100.0)) {
            of.removeManagedObject(object);
        }
    }
    void move()
    {
        QList<KXRef<Object>> moved;
        for (const KXTreeNode *node :
            { tree.treeNodeForObject(any(*context).get()), tree.treeNodeForObject(any(*context).get()) }) {
            if (node)
                moved.append(node->representedObject());
        }
        tree.moveObjects(moved, path());
    }

    KXTestRandom random;
    KXTreeController tree { context, byPosition() };
    const KXManagedObjectContext::Ref other
        = KXManagedObjectContext::contextWithPersistentStoreCoordinator(coordinator);
    const KXPersistentStoreCoordinator::ChangeToken merging
        = coordinator->addChangeObserver([this](const std::shared_ptr<const KXStoreChange> &change) {
              context->mergeChangesFromStoreChange(change);
              other->mergeChangesFromStoreChange(change);
          });
};

// Whatever is done to the objects, by whom and however often it is taken back: the tree is what the store says, and
// got there by rows that came, went and moved.
TEST_F(TreeWalk, isWhatTheStoreSays)
{
    QAbstractItemModelTester tester(&tree, QAbstractItemModelTester::FailureReportingMode::Fatal);
    QTreeView view;
    view.setModel(&tree);
    view.setSelectionModel(tree.selectionModel());
    view.setSelectionMode(QTreeView::ExtendedSelection);
    view.show();
    QSignalSpy resets(&tree, &QAbstractItemModel::modelReset);
    QSignalSpy layouts(&tree, &QAbstractItemModel::layoutChanged);

    const auto editHere = [&] { edit(*context), edit(*context), edit(*context); };
    const auto editThere = [&] {
        edit(*other), edit(*other);
        EXPECT_TRUE(other->save(nullptr));
    };
    const std::vector<std::function<void()>> acts { editHere, editHere, editHere, editThere, editThere, [&] { move(); },
        [&] { move(); }, [&] { undo().undo(); }, [&] { undo().redo(); }, [&] { context->save(nullptr); },
        [&] { random.chance(0.2) ? context->rollback() : undo().undo(); },
        [&] { tree.insertObject(any(*context), path()); },
        [&] { random.chance(0.3) && tree.removeObjectsAtIndexPaths({ path() }); } };

    const int rounds = KXTestRandom::scaled(3000);
    for (int round = 0; round < rounds; ++round) {
        std::map<qint64, QPersistentModelIndex> places;
        for (const KXTreeNode *node : tree.flattenedNodes())
            places.emplace(node->representedObject()->objectID().key(), tree.indexForNode(node));
        const QList<KXRef<Object>> selected = tree.selectedObjects();

        const size_t what = size_t(random.below(int(acts.size())));
        acts[what]();
        context->processPendingChanges();

        ASSERT_EQ(outline(*tree.rootNode()), stored(*context)) << "round " << round << ", step " << what;
        QList<KXRef<Object>> stillSelected;
        for (const KXTreeNode *node : tree.flattenedNodes()) {
            const auto place = places.find(node->representedObject()->objectID().key());
            if (place != places.end()) {
                // What stands in the tree all the time is moved, not taken out and put in again.
                ASSERT_EQ(QModelIndex(place->second), tree.indexForNode(node)) << "round " << round;
            }
            if (selected.contains(node->representedObject()))
                stillSelected.append(node->representedObject());
        }
        ASSERT_EQ(tree.selectedObjects(), stillSelected) << "round " << round << ", step " << what;
        if (random.chance(0.3))
            tree.setSelectedObjects({ any(*context), any(*context), any(*context) });
        if (random.chance(0.1))
            view.expandAll();
    }
    EXPECT_EQ(resets.count() + layouts.count(), 0);
}

TEST_F(TreeTest, changesAsFewRowsAsItCan)
{
    QList<KXRef<Branch>> rows;
    for (int i = 0; i < 6; ++i)
        rows.append(branch(QString(QChar(u'a' + i)), {}, i));
    KXTreeController tree(context, byPosition());
    QStringList log;
    const auto note = [&log](const char *kind) { return [&log, kind] { log.append(QString::fromLatin1(kind)); }; };
    QObject::connect(&tree, &QAbstractItemModel::rowsInserted, note("in"));
    QObject::connect(&tree, &QAbstractItemModel::rowsRemoved, note("out"));
    QObject::connect(&tree, &QAbstractItemModel::rowsMoved, note("move"));
    QObject::connect(&tree, &QAbstractItemModel::dataChanged, note("data"));
    const auto steps = [&] {
        context->processPendingChanges();
        return std::exchange(log, {}).join(u' ');
    };

    rows[0]->setPosition(9);
    EXPECT_EQ(steps(), u"move data"_s);
    EXPECT_EQ(outline(*tree.rootNode()), u"b c d e f a"_s);
    rows[2]->setTitle(u"C"_s);
    EXPECT_EQ(steps(), u"data"_s);
    context->deleteObjects({ rows[1], rows[2] });
    EXPECT_EQ(steps(), u"out"_s);
    branch(u"x"_s, rows[3]);
    EXPECT_EQ(steps(), u"in data"_s);
    // A parent changes places with its child.
    rows[4]->setParent(rows[5]);
    steps();
    rows[4]->setParent({});
    rows[5]->setParent(rows[4]);
    EXPECT_EQ(steps().count(u"move"_s), 2);
    EXPECT_EQ(outline(*tree.rootNode()), u"d(x) e(f) a"_s);
}

/// "a(b(d) c) e"
class TreeEditing : public TreeTest
{
protected:
    QString now()
    {
        context->processPendingChanges();
        return outline(*tree.rootNode());
    }

    const KXRef<Branch> a = branch(u"a"_s, {}, 0), b = branch(u"b"_s, a, 0), c = branch(u"c"_s, a, 1),
                        d = branch(u"d"_s, b, 0), e = branch(u"e"_s, {}, 1);
    KXTreeController tree { context, byPosition() };
};

TEST_F(TreeEditing, refusesWhatLeavesTheTreeOrIsNone)
{
    ASSERT_EQ(now(), u"a(b(d) c) e"_s);
    // Into itself, a descendant, a place that is not there; of another context; nothing.
    const auto foreign = KXManagedObjectContext::contextWithPersistentStoreCoordinator(coordinator);
    EXPECT_FALSE(tree.moveObjects({ a }, { 0, 0 }));
    EXPECT_FALSE(tree.moveObjects({ e, a }, { 0, 0, 0, 0 }));
    EXPECT_FALSE(tree.moveObjects({ e }, { 7, 0 }));
    EXPECT_FALSE(tree.moveObjects({ e }, { 3 }));
    EXPECT_FALSE(tree.moveObjects({ e }, { -1 }));
    EXPECT_FALSE(tree.moveObjects({ e }, {}));
    EXPECT_FALSE(tree.moveObjects({ Branch::createInContext(*foreign) }, { 0 }));
    EXPECT_FALSE(tree.insertObject({}, { 0 }));
    EXPECT_FALSE(tree.removeObjectsAtIndexPaths({ { 0 }, { 4 } }));
    ASSERT_EQ(now(), u"a(b(d) c) e"_s);
}

// A path is of the tree as it is seen, whatever the objects have come to since.
TEST_F(TreeEditing, removesWhatStoodAtThePath)
{
    context->removeManagedObject(b);
    EXPECT_TRUE(tree.removeObjectsAtIndexPaths({ { 0, 1 } }));
    EXPECT_EQ(now(), u"a e"_s);
    e->setPosition(-1);
    EXPECT_TRUE(tree.removeObjectsAtIndexPaths({ { 1 } }));
    EXPECT_EQ(now(), u"a"_s);
    const auto f = branch(u"f"_s, {}, 8);
    now();
    context->removeManagedObject(a);
    EXPECT_FALSE(tree.removeObjectsAtIndexPaths({ { 0 } }));
    EXPECT_EQ(now(), u"f"_s);
}

TEST_F(TreeEditing, movesInsertsAndRemovesWithUndo)
{
    context->save();
    undo().removeAllActions();
    tree.setSelectedObjects({ d, e });
    struct Step
    {
        std::function<bool()> act;
        QString after;
    };
    const std::vector<Step> steps {
        { [&] {
             return tree.moveObjects({ c, e }, { 0 });
         },
            u"c e a(b(d))"_s },
        { [&] {
             return tree.moveObjects({ d, b }, { 1, 0 });
         },
            u"c e(b(d)) a"_s }, // d goes with b
        { [&] { return tree.moveObjects({ c }, { 3 }); }, u"e(b(d)) a c"_s },
        { [&] {
             const KXUndoGroup group(&undo());
             return tree.insertObject(branch(u"n"_s), { 0, 1 });
         },
            u"e(b(d) n) a c"_s },
        { [&] {
             return tree.removeObjectsAtIndexPaths({ { 0, 0 }, { 0, 0, 0 }, { 1 } });
         },
            u"e(n) c"_s },
    };
    QStringList before;
    for (const Step &step : steps) {
        before.prepend(now());
        ASSERT_TRUE(step.act()) << step.after.toStdString();
        tree.undoManager()->setActionName(step.after);
        ASSERT_EQ(now(), step.after);
        ASSERT_EQ(undo().undoActionName(), step.after);
        for (const KXTreeNode *node : tree.flattenedNodes())
            ASSERT_EQ(node->representedObject()->valueForKey(u"position"_s).toInt(), node->row());
    }
    EXPECT_EQ(tree.selectedObjects(), QList<KXRef<Object>> { e });
    for (const QString &text : before) {
        undo().undo();
        EXPECT_EQ(now(), text);
    }
    EXPECT_FALSE(undo().canUndo());
    while (undo().canRedo())
        undo().redo();
    EXPECT_EQ(now(), steps.back().after);
}

TEST_F(TreeTest, tellsOfItsSelectionWhenTheTreeIsComplete)
{
    const auto a = branch(u"a"_s, {}, 0), b = branch(u"b"_s, {}, 1), c = branch(u"c"_s, b);
    KXTreeController tree(context, byPosition());
    QStringList heard;
    const auto observer
        = tree.onChangeOf(u"selectedObjects"_s, KXObservingOptionNew, [&](const KXKeyValueChange &change) {
              QString text;
              for (const QVariant &value : change.newValue.toList())
                  text += KXObservableFromVariant(value)->valueForKey(u"title"_s).toString();
              heard.append(text + u' ' + outline(*tree.rootNode()));
          });
    tree.setSelectionIndexPaths({ { 1, 0 }, { 5 }, { 0 } });
    EXPECT_EQ(heard.takeLast(), u"ac a b(c)"_s);
    c->setParent({});
    c->setPosition(-1);
    context->removeManagedObject(a);
    context->processPendingChanges();
    EXPECT_EQ(heard.takeLast(), u"c c b"_s);
    EXPECT_EQ(tree.selectionIndexPath(), KXIndexPath { 0 });
    tree.setSelectionIndexPath({});
    EXPECT_EQ(heard.takeLast(), u" c b"_s);
    EXPECT_TRUE(heard.isEmpty());
}

// Mistakes throw, contexts go, objects of damaged stores stand nowhere or once.
TEST_F(TreeTest, badRequestsAndLostContexts)
{
    const auto a = branch(u"a"_s), b = branch(u"b"_s, a), c = branch(u"c"_s, b);
    KXTreeController tree(context, byPosition());
    for (const KXTreeRequest &bad : { KXTreeRequest { u"Nothing"_s }, KXTreeRequest { u"Branch"_s, {}, u"parent"_s },
             KXTreeRequest { u"Branch"_s, {}, u"nowhere"_s } })
        EXPECT_THROW(tree.setRequest(context, bad), KXException);
    EXPECT_EQ(outline(*tree.rootNode()), u"a(b(c))"_s);
    // Everything at the top: nothing is left for below.
    KXTreeRequest all = byPosition();
    all.rootPredicate = KXPredicate::predicateWithFormat("position == 0");
    const QPersistentModelIndex place = tree.indexForNode(tree.treeNodeForObject(c.get()));
    tree.setRequest(context, all);
    EXPECT_EQ(outline(*tree.rootNode()), u"c b a"_s);
    EXPECT_EQ(place.row(), 0);
    // A new top level above what is the tree: into its own descendants all the same.
    all.rootPredicate = KXPredicate::predicateWithFormat("title == 'b'");
    tree.setRequest(context, all);
    EXPECT_EQ(outline(*tree.rootNode()), u"b(c)"_s);
    EXPECT_FALSE(tree.insertObject(a, { 0, 0, 0 }));

    EXPECT_TRUE(tree.setData(tree.index(0, 0), u"B"_s));
    EXPECT_EQ(b->title(), u"B"_s);
    EXPECT_EQ(tree.rowCount(), 0); // it no longer matches
    tree.setRequest(context, byPosition());
    context.reset();
    EXPECT_FALSE(tree.moveObjects({ b }, { 0 }));
    EXPECT_FALSE(tree.undoManager());
    EXPECT_EQ(tree.rowCount(), 1);
    tree.setRequest(nullptr, {});
    EXPECT_EQ(tree.rowCount(), 0);
}

// The store cannot be read when something changed: the tree stays as it was, and catches up later.
TEST(Tree, outlastsAStoreThatCannotBeRead)
{
    FaultVfs vfs;
    Grove grove(vfs.name());
    const auto a = grove.branch(u"a"_s), b = grove.branch(u"b"_s, a, 0), c = grove.branch(u"c"_s, a, 1);
    grove.context->save();
    KXTreeController tree(grove.context, byPosition());
    KXTestLog log;
    vfs.failAt(1, SQLITE_IOERR, true, FaultVfs::SharedMemory);
    b->setPosition(5);
    grove.branch(u"d"_s, c);
    grove.context->processPendingChanges();
    EXPECT_TRUE(vfs.hasFailed());
    EXPECT_EQ(outline(*tree.rootNode()), u"a(b c)"_s);
    vfs.heal();
    a->setTitle(u"A"_s);
    grove.context->processPendingChanges();
    EXPECT_EQ(outline(*tree.rootNode()), u"A(c(d) b)"_s);
}
