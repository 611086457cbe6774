#pragma once

#include <functional>
#include <memory>
#include <span>
#include <unordered_map>
#include <unordered_set>
#include <vector>

#include <QAbstractItemModel>
#include <QSet>

#include <kestrixkit/context/KXManagedObjectContext.h>
#include <kestrixkit/foundation/KXNotificationCenter.h>
#include <kestrixkit/foundation/KXObservable.h>
#include <kestrixkit/toolkit/KXTreeNode.h>

QT_BEGIN_NAMESPACE
class QItemSelectionModel;
QT_END_NAMESPACE

/// Which objects a tree shows, and in what order.
struct KXTreeRequest
{
    QString entityName;
    /// For the top level; unless given, the objects without parent.
    KXPredicate rootPredicate;
    /// A to-many relationship to objects of the same kind, with a to-one inverse. Empty for a flat list.
    QString childrenKeyPath = QStringLiteral("children");
    /// Of every level. Where the first one is ascending and an integer attribute, that holds the places: an operation
    /// that changes a level numbers it 0, 1, 2 and so on.
    QList<KXSortDescriptor> sortDescriptors;
    /// What rows show and edit.
    QString titleKeyPath = QStringLiteral("title");
};

/// A tree of stored objects as an item model, with its selection.
///
/// It follows its context: what changes there, is undone or is merged becomes insertions, removals and moves of single
/// rows, so that views keep what is open, selected and scrolled to. Each object stands in one place, the first from
/// the top where several hold it; circles in a damaged store are not followed. All of the tree is in memory.
///
/// Changes of the tree are changes of the objects: they can be undone by the context's undo manager, each as one
/// step, and are not saved. Main thread. Slots of the model's signals must neither change objects nor the tree.
class KX_UI_EXPORT KXTreeController : public QAbstractItemModel, public KXObservable
{
    Q_OBJECT
    Q_PROPERTY(QVariantList selectedObjects READ selectedObjectValues NOTIFY selectionChanged)
    Q_PROPERTY(
        QList<int> selectionIndexPath READ selectionIndexPath WRITE setSelectionIndexPath NOTIFY selectionChanged)
public:
    enum Role { ObjectRole = Qt::UserRole }; ///< the object, as KXVariantFromRef makes it

    explicit KXTreeController(QObject *parent = nullptr);
    /// Throws KXException for what setRequest() would.
    KXTreeController(
        const KXManagedObjectContext::Ref &context, const KXTreeRequest &request, QObject *parent = nullptr);
    ~KXTreeController() override;

    /// nullptr once it has gone; the tree does not keep it.
    [[nodiscard]] KXManagedObjectContext::Ref managedObjectContext() const { return m_context.lock(); }
    /// The context's, for naming and grouping what is done to the tree; nullptr where it has none.
    [[nodiscard]] KXUndoManager *undoManager() const;
    [[nodiscard]] const KXTreeRequest &request() const { return m_request; }
    /// Shows other objects, or in another order; objects in both trees keep their nodes. A null context shows nothing.
    /// Throws KXException for an unknown entity, and where children are no to-many relationship with a to-one inverse.
    void setRequest(const KXManagedObjectContext::Ref &context, const KXTreeRequest &request);

    // Nodes

    [[nodiscard]] const KXTreeNode *rootNode() const { return m_root.get(); }
    [[nodiscard]] QList<const KXTreeNode *> rootNodes() const { return m_root->childNodes(); }
    /// All nodes in the order in which an outline with everything open shows them.
    [[nodiscard]] QList<const KXTreeNode *> flattenedNodes() const;
    /// nullptr for an object that is not in the tree.
    [[nodiscard]] const KXTreeNode *treeNodeForObject(const KXManagedObject *object) const;
    /// nullptr where there is none; the root for an empty path.
    [[nodiscard]] const KXTreeNode *nodeAtIndexPath(const KXIndexPath &path) const;
    [[nodiscard]] const KXTreeNode *nodeForIndex(const QModelIndex &index) const;
    /// Invalid for the root and for nullptr.
    [[nodiscard]] QModelIndex indexForNode(const KXTreeNode *node) const;

    /// What rows show beside their titles: asked first, for each role; what it answers nothing valid for is answered as
    /// ever. Whoever sets it takes it away before it goes.
    using RowData = std::function<QVariant(const KXTreeNode &node, int role)>;
    void setRowData(RowData rowData);

    // Selection

    /// For views to share.
    [[nodiscard]] QItemSelectionModel *selectionModel() const { return m_selection; }
    /// From top to bottom. Observable under "selectedObjects"; changes once a change of the tree is complete.
    [[nodiscard]] const QList<KXRef<KXManagedObject>> &selectedObjects() const { return m_selected; }
    [[nodiscard]] const QList<KXIndexPath> &selectionIndexPaths() const { return m_selectedPaths; }
    /// Of the topmost selected object; empty where nothing is selected. Observable, too.
    [[nodiscard]] KXIndexPath selectionIndexPath() const { return m_selectedPaths.value(0); }
    /// Selects these alone, and makes the first one current; objects and paths that are not in the tree are skipped.
    void setSelectedObjects(const QList<KXRef<KXManagedObject>> &objects);
    void setSelectionIndexPaths(const QList<KXIndexPath> &paths);
    void setSelectionIndexPath(const KXIndexPath &path) { setSelectionIndexPaths({ path }); }

    // Changing the tree; false, and nothing changes, where that is not possible.

    /// Puts an object of the context at the path: into the node that the path without its last number names, in front
    /// of the row that this number names (or last). Refused for objects of other contexts and kinds.
    bool insertObject(const KXRef<KXManagedObject> &object, const KXIndexPath &atIndexPath);
    /// The same for objects of the tree, in the given order, the path as it is before anything moves. What stands
    /// under another one of them moves with that. Refused where one would come into itself or its descendants.
    bool moveObjects(const QList<KXRef<KXManagedObject>> &objects, const KXIndexPath &toIndexPath);
    /// Deletes the objects at the paths, and what their delete rules reach.
    bool removeObjectsAtIndexPaths(const QList<KXIndexPath> &paths);

    // QAbstractItemModel

    [[nodiscard]] QModelIndex index(int row, int column, const QModelIndex &parent = {}) const override;
    [[nodiscard]] QModelIndex parent(const QModelIndex &child) const override;
    using QObject::parent;
    [[nodiscard]] int rowCount(const QModelIndex &parent = {}) const override;
    [[nodiscard]] int columnCount(const QModelIndex &parent = {}) const override;
    /// The title; of a KXSourceListItem its image, too.
    [[nodiscard]] QVariant data(const QModelIndex &index, int role = Qt::DisplayRole) const override;
    /// Changes the title. False where the object refuses.
    bool setData(const QModelIndex &index, const QVariant &value, int role = Qt::EditRole) override;
    /// As a KXSourceListItem wants it.
    [[nodiscard]] Qt::ItemFlags flags(const QModelIndex &index) const override;

    [[nodiscard]] QVariant valueForKey(const QString &key) const override;

Q_SIGNALS:
    /// Other objects are selected, or they stand in another order.
    void selectionChanged();

private:
    using Objects = std::vector<KXRef<KXManagedObject>>;
    using Levels = std::unordered_map<qint64, Objects>;

    void follow(const KXObjectsDidChange &did);
    [[nodiscard]] bool forgetChangedLevels(const KXObjectsDidChange &did);
    void rearrange();
    [[nodiscard]] bool readTree();
    [[nodiscard]] bool readLevels(std::span<const KXRef<KXManagedObject>> parents);
    [[nodiscard]] KXRef<KXManagedObject> parentOf(const KXManagedObject *object) const;
    void arrange(KXTreeNode &parent, const Objects &wanted);
    void removeDead(const std::unordered_set<qint64> &living);
    void removeDeadChildren(KXTreeNode &node, const std::function<bool(int row)> &isDead);
    void insertNodes(KXTreeNode &parent, int row, std::span<const KXRef<KXManagedObject>> objects);
    void moveNode(KXTreeNode &from, int row, KXTreeNode &to, int toRow);
    [[nodiscard]] KXTreeNode *node(const KXManagedObject *object) const;
    void select(const QList<const KXTreeNode *> &nodes);
    void updateSelection();
    [[nodiscard]] QVariantList selectedObjectValues() const;
    bool place(const QList<KXRef<KXManagedObject>> &given, const KXIndexPath &path);
    [[nodiscard]] QList<const KXTreeNode *> topmost(const QList<const KXTreeNode *> &nodes) const;
    void renumber(const QList<KXRef<KXManagedObject>> &level) const;
    void renumberWithout(const QSet<const KXTreeNode *> &levels, const QList<KXRef<KXManagedObject>> &gone) const;

    std::weak_ptr<KXManagedObjectContext> m_context;
    KXPersistentStoreCoordinator::Ref m_coordinator; // keeps the entity alive
    KXTreeRequest m_request;
    const KXEntityDescription *m_entity = nullptr;
    QString m_parentKey; // the inverse of the children
    QString m_positionKey; // of the attribute that holds the places, if one does
    QSet<QString> m_sortKeys;
    QSet<const KXEntityDescription *> m_remoteRoots; // of entities whose values sort, too
    std::unique_ptr<class KXLiveList> m_rootList; // follows the context before the tree does

    RowData m_rowData;
    std::unique_ptr<KXTreeNode> m_root;
    std::unordered_map<qint64, KXTreeNode *> m_nodes;
    std::vector<qint64> m_rootKeys; // of the root list as last read
    Levels m_levels; // of each node the objects below it as last read; the root's under 0
    QItemSelectionModel *m_selection;
    QList<KXRef<KXManagedObject>> m_selected;
    QList<KXIndexPath> m_selectedPaths;
    bool m_rearranging = false;
    bool m_complete = true; // all levels could be read
    bool m_due = false; // something changed meanwhile
    KXNotificationToken m_token;
};
