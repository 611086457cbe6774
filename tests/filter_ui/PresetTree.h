/// A store of presets and places, and a source list over one of the two on screen.
#pragma once

#include <QTemporaryDir>
#include <QtTest/QTest>
#include <gtest/gtest.h>

#include <kestrixkit/filter_ui/KXViewState.h>
#include <kestrixkit/filters/KXFilterSetPreset.h>
#include <kestrixkit/filters/KXFilters.h>
#include <kestrixkit/source_list/KXSourceListViewController.h>

class PresetTree : public ::testing::Test
{
protected:
    PresetTree()
    {
        KXFilters::registerEntities();
        KXViewState::registerEntity();
        coordinator = KXPersistentStoreCoordinator::persistentStoreCoordinatorWithStoreURL(
            QUrl::fromLocalFile(folder.filePath(QStringLiteral("presets.db"))), KXFilters::managedObjectModel());
        context = KXManagedObjectContext::contextWithPersistentStoreCoordinator(coordinator);
        context->setUndoManager(std::make_shared<KXUndoManager>());
    }

    template <class Class> KXRef<Class> make(const QString &title, const KXRef<Class> &parent = {}, qint64 position = 0)
    {
        const auto made = Class::createInContext(*context);
        made->setTitle(title);
        made->setParent(parent);
        made->setPosition(position);
        return made;
    }
    KXRef<KXFilterSetPreset> preset(const QString &title, const KXRef<KXFilterSetPreset> &parent = {}, qint64 at = 0)
    {
        return make<KXFilterSetPreset>(title, parent, at);
    }
    KXRef<KXFilterSetPreset> presetFolder(const QString &title, qint64 at = 0)
    {
        const auto made = preset(title, {}, at);
        made->setIsFolder(true);
        return made;
    }
    /// Shows the tree of that entity.
    void show(QLatin1StringView entity)
    {
        context->save();
        context->undoManager()->removeAllActions();
        KXTreeRequest request { entity };
        request.sortDescriptors = { { QStringLiteral("position") } };
        tree = std::make_unique<KXTreeController>(context, request);
        list = std::make_unique<KXSourceListViewController>();
        list->setCountsContextIdentifier(QStringLiteral("here"));
        list->setTreeController(tree.get());
        view()->resize(300, 900);
        view()->show();
        ASSERT_TRUE(QTest::qWaitForWindowExposed(view()));
        view()->activateWindow();
        view()->setFocus();
    }
    KXSourceListView *view() { return list->sourceListView(); }
    [[nodiscard]] QModelIndex row(const KXRef<KXManagedObject> &object) const
    {
        return tree->indexForNode(tree->treeNodeForObject(object.get()));
    }
    /// "a(b c(d)) e" as the tree has it.
    [[nodiscard]] QString outline(const QModelIndex &parent = {}) const
    {
        context->processPendingChanges();
        QStringList parts;
        for (int i = 0; i < tree->rowCount(parent); ++i) {
            const QModelIndex index = tree->index(i, 0, parent);
            const QString below = outline(index);
            parts += index.data().toString() + (below.isEmpty() ? QString() : u'(' + below + u')');
        }
        return parts.join(u' ');
    }
    KXUndoManager &undo() { return *context->undoManager(); }
    static void endOfTurn() { QCoreApplication::processEvents(); }

    QTemporaryDir folder;
    KXPersistentStoreCoordinator::Ref coordinator;
    KXManagedObjectContext::Ref context;
    std::unique_ptr<KXTreeController> tree;
    std::unique_ptr<KXSourceListViewController> list;
};
