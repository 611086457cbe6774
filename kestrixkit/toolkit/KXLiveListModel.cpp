#include <kestrixkit/toolkit/KXLiveListModel.h>

#include <algorithm>
#include <cmath>

#include <QLocale>

#include <kestrixkit/context/KXPersistentStoreCoordinator.h>
#include <kestrixkit/entity/KXModelPath.h>
#include <kestrixkit/foundation/KXClock.h>
#include <kestrixkit/foundation/KXDecimal.h>
#include <kestrixkit/foundation/KXException.h>
#include <kestrixkit/foundation/KXStringWithFormat.h>
#include <kestrixkit/foundation/KXUndoManager.h>
#include <kestrixkit/model/KXManagedObjectModel.h>
#include <kestrixkit/toolkit/KXObjectPasteboard.h>

using namespace Qt::StringLiterals;

namespace {

constexpr int liveSearchableRows = 20'000;
constexpr int liveRowsReadAtOnce = 32; // about a screen
constexpr int liveRowsPlacedATurn = 500; // some milliseconds

const KXEntityDescription *liveEntity(const KXManagedObjectContext::Ref &context, const QString &name)
{
    const KXEntityDescription *entity = context->persistentStoreCoordinator()->model()->entity(name);
    if (!entity)
        throw KXException(
            QString(KXUnknownEntityException), KXStringWithFormat("The model has no entity \"%@\"", name));
    return entity;
}

bool liveIsAbsent(const QVariant &value) { return !value.isValid() || value.isNull(); }

/// A number as the user's language writes it; a text that is none stays what it is, for the store to look at.
QVariant liveNumber(const QString &text, KXAttributeType type)
{
    const QString trimmed = text.trimmed();
    if (trimmed.isEmpty())
        return {};
    const QLocale locale = KXClock::locale();
    bool isNumber = false;
    if (type == KXAttributeType::Decimal) {
        if (const auto decimal = KXDecimal::fromLocalText(trimmed, locale))
            return QVariant::fromValue(*decimal);
    } else if (type == KXAttributeType::Double) {
        if (const double number = locale.toDouble(trimmed, &isNumber); isNumber && std::isfinite(number))
            return number;
    } else if (const qint64 number = locale.toLongLong(trimmed, &isNumber); isNumber) {
        return number;
    }
    return text;
}

bool liveIsNumber(KXAttributeType type)
{
    return type == KXAttributeType::Integer16 || type == KXAttributeType::Integer32
        || type == KXAttributeType::Integer64 || type == KXAttributeType::Double || type == KXAttributeType::Decimal;
}

}

KXLiveListModel::KXLiveListModel(const KXManagedObjectContext::Ref &context, const QString &entityName,
    QList<Column> columns, const QList<KXSortDescriptor> &sortDescriptors, QObject *parent)
    : QAbstractTableModel(parent)
    , m_context(context)
    , m_coordinator(context->persistentStoreCoordinator())
    , m_entity(liveEntity(context, entityName))
    , m_columns(std::move(columns))
    , m_sortDescriptors(sortDescriptors)
    , m_list(context, request(), this)
{
    m_list.setArrivalsPerTurn(liveRowsPlacedATurn);
    for (const Column &column : m_columns)
        noteRemote(column.keyPath);
}

KXLiveListModel::~KXLiveListModel() = default;

void KXLiveListModel::setRoles(const QHash<int, QString> &keyPaths)
{
    m_roles = keyPaths;
    m_rows.clear();
    for (const QString &keyPath : keyPaths)
        noteRemote(keyPath);
}

// Which objects, in which order

KXFetchRequest KXLiveListModel::request() const
{
    return KXFetchRequest(m_entity->name(), m_predicate)
        .setSortDescriptors(m_sortDescriptors)
        .setFetchBatchSize(liveRowsReadAtOnce);
}

void KXLiveListModel::setPredicate(const KXPredicate &predicate) { setPredicate(predicate, m_sortDescriptors); }

void KXLiveListModel::setSortDescriptors(const QList<KXSortDescriptor> &descriptors)
{
    if (descriptors != m_sortDescriptors)
        setPredicate(m_predicate, descriptors);
}

void KXLiveListModel::setPredicate(const KXPredicate &predicate, const QList<KXSortDescriptor> &sortDescriptors)
{
    m_predicate = predicate;
    m_sortDescriptors = sortDescriptors;
    m_list.setRequest(request());
}

KXSortDescriptor KXLiveListModel::sortDescriptor(const Column &column)
{
    return { column.sortKey.isEmpty() ? column.keyPath : column.sortKey, column.sortsAscending, column.sortOptions,
        column.sortsAbsentLast };
}

void KXLiveListModel::sort(int column, Qt::SortOrder order)
{
    if (column < 0 || column >= m_columns.size())
        return;
    KXSortDescriptor descriptor = sortDescriptor(m_columns[column]);
    descriptor.ascending = order == Qt::AscendingOrder;
    setSortDescriptors({ descriptor });
}

// What they show

int KXLiveListModel::rowCount(const QModelIndex &parent) const { return parent.isValid() ? 0 : int(m_list.size()); }
int KXLiveListModel::columnCount(const QModelIndex &parent) const
{
    return parent.isValid() ? 0 : int(m_columns.size());
}

KXLiveListModel::Row &KXLiveListModel::row(int number) const
{
    const qint64 key = m_list.key(number);
    if (Row *known = m_rows.object(key))
        return *known;
    auto *made = new Row;
    made->texts.resize(m_columns.size());
    m_rows.insert(key, made);
    return *made; // NOLINT(clang-analyzer-cplusplus.NewDelete): of 1,024 the cache takes one
}

QVariant KXLiveListModel::value(int row, const QString &keyPath) const
{
    const KXRef<KXManagedObject> object = m_list.at(row);
    if (!object)
        return {};
    return keyPath.contains(u'.') ? object->valueForKeyPath(keyPath) : object->valueForKey(keyPath);
}

QString KXLiveListModel::text(int number, int column) const
{
    if (const std::optional<QString> &known = row(number).texts[column])
        return *known;
    const Column &shown = m_columns[column];
    const QVariant found = value(number, shown.keyPath);
    const QString text = liveIsAbsent(found) ? QString() : shown.formatter ? shown.formatter(found) : found.toString();
    row(number).texts[column] = text; // looked up again: a formatter may have asked for other rows
    return text;
}

QVariant KXLiveListModel::data(const QModelIndex &index, int role) const
{
    if (!checkIndex(index, CheckIndexOption::IndexIsValid | CheckIndexOption::ParentIsInvalid))
        return {};
    const Column &column = m_columns[index.column()];
    switch (role) {
    case Qt::EditRole:
        if (column.isEditable && !column.formatter && !column.parser) {
            const QVariant edited = value(index.row(), column.keyPath);
            return liveIsAbsent(edited) ? QVariant(QString()) : edited;
        }
        [[fallthrough]];
    case Qt::DisplayRole:
    case Qt::ToolTipRole:
    case Qt::AccessibleTextRole:
        return text(index.row(), index.column());
    case Qt::TextAlignmentRole:
        return QVariant::fromValue(Qt::Alignment(column.alignment | Qt::AlignVCenter));
    default:
        break;
    }
    const auto keyPath = m_roles.constFind(role);
    if (keyPath == m_roles.constEnd())
        return {};
    Row &shown = row(index.row());
    const auto known = shown.values.constFind(role);
    return known != shown.values.constEnd() ? *known : *shown.values.insert(role, value(index.row(), *keyPath));
}

QVariant KXLiveListModel::headerData(int section, Qt::Orientation orientation, int role) const
{
    if (orientation != Qt::Horizontal || section < 0 || section >= m_columns.size())
        return {};
    const Column &column = m_columns[section];
    if (role == Qt::DisplayRole)
        return column.title;
    if (role == Qt::TextAlignmentRole)
        return QVariant::fromValue(Qt::Alignment(column.alignment | Qt::AlignVCenter));
    if (role == Qt::InitialSortOrderRole)
        return column.sortsAscending ? Qt::AscendingOrder : Qt::DescendingOrder;
    return {};
}

QModelIndexList KXLiveListModel::match(
    const QModelIndex &start, int role, const QVariant &value, int hits, Qt::MatchFlags flags) const
{
    return rowCount() > liveSearchableRows ? QModelIndexList()
                                           : QAbstractTableModel::match(start, role, value, hits, flags);
}

// Editing

const KXPropertyDescription *KXLiveListModel::editedProperty(int column) const
{
    const KXPropertyDescription *property
        = m_columns[column].isEditable ? m_entity->property(m_columns[column].keyPath) : nullptr;
    return property && property->isAttribute() ? property : nullptr;
}

Qt::ItemFlags KXLiveListModel::flags(const QModelIndex &index) const
{
    Qt::ItemFlags flags = QAbstractTableModel::flags(index);
    if (index.isValid()) {
        flags.setFlag(Qt::ItemIsDragEnabled);
        flags.setFlag(Qt::ItemIsEditable, editedProperty(index.column()));
    }
    return flags;
}

QStringList KXLiveListModel::mimeTypes() const { return { QString(KXObjectPasteboardType) }; }

QMimeData *KXLiveListModel::mimeData(const QModelIndexList &indexes) const
{
    QSet<int> seen; // every column of a row may be among them
    QList<KXManagedObjectID> objects;
    for (const QModelIndex &index : indexes) {
        if (!seen.contains(index.row())) {
            seen.insert(index.row());
            objects.append(m_list.objectID(index.row()));
        }
    }
    return KXObjectPasteboard::mimeDataWithObjects(objects);
}

QVariant KXLiveListModel::parsed(
    const Column &column, const KXPropertyDescription &property, const QVariant &value) const
{
    if (column.parser)
        return column.parser(value);
    if (value.typeId() != QMetaType::QString)
        return value;
    if (liveIsNumber(property.type()))
        return liveNumber(value.toString(), property.type());
    return value.toString().isEmpty() && property.isOptional() ? QVariant() : value;
}

bool KXLiveListModel::setData(const QModelIndex &index, const QVariant &value, int role)
{
    if (role != Qt::EditRole || !checkIndex(index, CheckIndexOption::IndexIsValid))
        return false;
    const KXPropertyDescription *property = editedProperty(index.column());
    const KXManagedObjectContext::Ref context = m_context.lock();
    const KXRef<KXManagedObject> edited = m_list.at(index.row());
    if (!property || !context || !edited)
        return false;
    const Column &column = m_columns[index.column()];
    const QVariant news = parsed(column, *property, value), before = edited->valueForKey(column.keyPath);
    const bool isRefused = liveIsAbsent(news) && ((column.parser && !news.isValid()) || !property->isOptional());
    if (isRefused || (liveIsAbsent(news) ? liveIsAbsent(before) : news == before))
        return false;
    {
        const KXUndoGroup group(
            context->undoManager(), KXStringWithFormat(KXLocalizedString("Change %@"), column.title));
        if (!edited->setValueForKey(column.keyPath, news))
            return false;
    }
    KXError error;
    if (!context->save(&error))
        Q_EMIT saveDidFail(error);
    return true;
}

// Changes

/// Of a key path that leads to other objects, what to look for in what the context announces.
void KXLiveListModel::noteRemote(const QString &keyPath)
{
    const std::vector<KXModelPath::Step> steps = KXModelPath(*m_entity, keyPath).steps();
    for (size_t i = 1; i < steps.size(); ++i)
        m_remotes.push_back({ steps[i].entity->root(), steps[i].property->name() });
    const KXManagedObjectContext::Ref context = m_context.lock();
    if (m_remotes.empty() || m_changes || !context)
        return;
    m_changes = KXManagedObjectContext::onChange(
        context.get(), [this](const KXObjectsDidChange &did) { followRelated(did); });
}

void KXLiveListModel::followRelated(const KXObjectsDidChange &did)
{
    const auto concerns = [this](const KXEntityDescription *entity, auto &&hasChanged) {
        return std::any_of(m_remotes.begin(), m_remotes.end(),
            [&](const Remote &remote) { return remote.root == entity->root() && hasChanged(remote.key); });
    };
    const auto isConcerned = [&](const KXRef<KXManagedObject> &object) {
        const QSet<QString> keys = did.changedKeys.value(object.get());
        return concerns(object->entity(), [&keys](const QString &key) { return keys.contains(key); });
    };
    bool isDue = std::any_of(did.updated.begin(), did.updated.end(), isConcerned)
        || std::any_of(did.refreshed.begin(), did.refreshed.end(), isConcerned);
    static const std::vector<KXEntityChange> none;
    for (const KXEntityChange &change : did.merged ? did.merged->entities() : none) {
        for (const KXRowChange &news : change.updated) {
            isDue = isDue || concerns(change.entity, [&news](const QString &key) {
                return std::any_of(news.properties.begin(), news.properties.end(),
                    [&key](const KXPropertyChange &property) { return property.property->name() == key; });
            });
        }
    }
    if (!isDue || rowCount() == 0)
        return;
    // Whose they are would take longer to find out than to make the texts on the screen anew.
    m_rows.clear();
    Q_EMIT dataChanged(index(0, 0), index(rowCount() - 1, columnCount() - 1));
}

void KXLiveListModel::listWillChange(const KXListStep &step)
{
    const int first = int(step.first), last = int(step.first + step.count - 1);
    switch (step.kind) {
    case KXListStep::Insertion:
        return beginInsertRows({}, first, last);
    case KXListStep::Removal:
        return beginRemoveRows({}, first, last);
    case KXListStep::Move:
        beginMoveRows({}, first, last, {}, int(step.to));
        return;
    case KXListStep::Update:
        return;
    case KXListStep::Reordering:
        Q_EMIT layoutAboutToBeChanged({}, VerticalSortHint);
        m_heldIndexes = persistentIndexList();
        m_heldKeys.clear();
        for (const QModelIndex &index : std::as_const(m_heldIndexes))
            m_heldKeys.push_back(m_list.keys()[size_t(index.row())]);
        return;
    }
}

void KXLiveListModel::listDidChange(const KXListStep &step)
{
    switch (step.kind) {
    case KXListStep::Insertion:
        return endInsertRows();
    case KXListStep::Removal:
        return endRemoveRows();
    case KXListStep::Move:
        return endMoveRows();
    case KXListStep::Update:
        for (qsizetype i = step.first; i < step.first + step.count; ++i)
            m_rows.remove(m_list.keys()[size_t(i)]);
        Q_EMIT dataChanged(index(int(step.first), 0), index(int(step.first + step.count - 1), columnCount() - 1));
        return;
    case KXListStep::Reordering:
        QModelIndexList moved;
        const std::vector<qsizetype> rows = m_list.indexesOf(m_heldKeys);
        for (size_t i = 0; i < rows.size(); ++i)
            moved.append(index(int(rows[i]), m_heldIndexes[qsizetype(i)].column()));
        changePersistentIndexList(m_heldIndexes, moved);
        m_heldIndexes.clear();
        Q_EMIT layoutChanged({}, VerticalSortHint);
        return;
    }
}
