#pragma once

#include <functional>
#include <optional>

#include <QAbstractTableModel>
#include <QCache>

#include <kestrixkit/context/KXLiveList.h>
#include <kestrixkit/foundation/KXError.h>

/// A table over stored objects: a row for each object that a predicate lets through, a column for each key path.
///
///     KXLiveListModel model(context, u"Track"_s, {
///         { .keyPath = u"title"_s, .title = tr("Title"), .isEditable = true },
///         { .keyPath = u"bpm"_s, .title = tr("BPM"), .alignment = Qt::AlignRight },
///     });
///     view->setModel(&model);
///
/// Knows identifiers and order alone; a cell's text is made when it is asked for, and those of the rows asked for last
/// are kept, so that a million rows open as fast as a hundred. Follows the context row by row (see KXLiveList), sorting
/// included: indexes, selections and editors stay with their objects. Very many rows of a merge come a part a turn. Key
/// paths through relationships are followed as well. Main thread; the context is the thread's.
class KX_UI_EXPORT KXLiveListModel : public QAbstractTableModel, private KXLiveListObserver
{
    Q_OBJECT

public:
    /// What a column shows, and how.
    struct Column
    {
        QString keyPath = {};
        QString title = {};
        Qt::Alignment alignment = Qt::AlignLeft; ///< horizontally; texts are centred vertically
        /// Makes the text of a value; not asked about absent ones, which are shown as nothing. None: the value's own.
        std::function<QString(const QVariant &)> formatter = {};
        bool isEditable = false; ///< only a property of the object itself can be edited
        /// What an entered value stands for; invalid to refuse it. None: numbers may be entered as the user's language
        /// writes them, and an empty text is an absent value.
        std::function<QVariant(const QVariant &)> parser = {};
        QString sortKey = {}; ///< what the column is sorted by; empty for its key path
        int sortOptions = 0; ///< bits of KXPredicateOption, such as KXCaseInsensitive
        bool sortsAscending = true; ///< at first
        bool sortsAbsentLast = false; ///< in either direction
    };

    /// Throws KXException for an unknown entity.
    KXLiveListModel(const KXManagedObjectContext::Ref &context, const QString &entityName, QList<Column> columns,
        const QList<KXSortDescriptor> &sortDescriptors = {}, QObject *parent = nullptr);
    ~KXLiveListModel() override;

    [[nodiscard]] const QList<Column> &columns() const { return m_columns; }
    /// Values of a row's object that hosts want under roles of their own, in any column.
    void setRoles(const QHash<int, QString> &keyPaths);

    /// Shows only the objects that match; all of them for an absent predicate.
    void setPredicate(const KXPredicate &predicate);
    [[nodiscard]] const KXPredicate &predicate() const { return m_predicate; }
    void setSortDescriptors(const QList<KXSortDescriptor> &descriptors);
    /// Both with one fetch.
    void setPredicate(const KXPredicate &predicate, const QList<KXSortDescriptor> &sortDescriptors);
    [[nodiscard]] const QList<KXSortDescriptor> &sortDescriptors() const { return m_sortDescriptors; }
    /// What a column is sorted by, in its first direction.
    [[nodiscard]] static KXSortDescriptor sortDescriptor(const Column &column);

    /// Empty outside the table.
    [[nodiscard]] KXRef<KXManagedObject> object(int row) const { return m_list.at(row); }
    [[nodiscard]] const KXLiveList &list() const { return m_list; }

    [[nodiscard]] int rowCount(const QModelIndex &parent = {}) const override;
    [[nodiscard]] int columnCount(const QModelIndex &parent = {}) const override;
    [[nodiscard]] QVariant data(const QModelIndex &index, int role = Qt::DisplayRole) const override;
    [[nodiscard]] QVariant headerData(
        int section, Qt::Orientation orientation, int role = Qt::DisplayRole) const override;
    [[nodiscard]] Qt::ItemFlags flags(const QModelIndex &index) const override;
    /// The objects of the rows, each once, as KXObjectPasteboard has them.
    [[nodiscard]] QMimeData *mimeData(const QModelIndexList &indexes) const override;
    [[nodiscard]] QStringList mimeTypes() const override;
    /// Sets the value of an editable column as one step to undo, "Change …" with the column's title, and saves. False
    /// for a value that is refused and for one that is there already.
    bool setData(const QModelIndex &index, const QVariant &value, int role = Qt::EditRole) override;
    /// Puts the objects in the order of that column.
    void sort(int column, Qt::SortOrder order = Qt::AscendingOrder) override;
    /// Typing looks for a row by its text only in tables small enough to be read through.
    [[nodiscard]] QModelIndexList match(
        const QModelIndex &start, int role, const QVariant &value, int hits, Qt::MatchFlags flags) const override;

Q_SIGNALS:
    /// An edit could not be saved; it is still there, unsaved.
    void saveDidFail(const KXError &error);

private:
    struct Row
    {
        QList<std::optional<QString>> texts; ///< by column
        QHash<int, QVariant> values; ///< by role
    };
    struct Remote
    {
        const KXEntityDescription *root;
        QString key;
    };

    [[nodiscard]] KXFetchRequest request() const;
    [[nodiscard]] Row &row(int number) const;
    [[nodiscard]] QString text(int row, int column) const;
    [[nodiscard]] QVariant value(int row, const QString &keyPath) const;
    [[nodiscard]] const KXPropertyDescription *editedProperty(int column) const;
    [[nodiscard]] QVariant parsed(
        const Column &column, const KXPropertyDescription &property, const QVariant &value) const;
    void noteRemote(const QString &keyPath);
    void followRelated(const KXObjectsDidChange &did);
    void listWillChange(const KXListStep &step) override;
    void listDidChange(const KXListStep &step) override;

    const std::weak_ptr<KXManagedObjectContext> m_context;
    const KXPersistentStoreCoordinator::Ref m_coordinator; // keeps the entity alive
    const KXEntityDescription *const m_entity;
    const QList<Column> m_columns;
    QHash<int, QString> m_roles;
    QList<KXSortDescriptor> m_sortDescriptors;
    KXPredicate m_predicate;
    KXLiveList m_list;
    mutable QCache<qint64, Row> m_rows { 1024 }; // by the objects' keys
    std::vector<Remote> m_remotes; // what key paths reach through relationships
    KXNotificationToken m_changes;
    // While rows change places: the indexes that somebody holds, and whose they are.
    QModelIndexList m_heldIndexes;
    std::vector<qint64> m_heldKeys;
};
