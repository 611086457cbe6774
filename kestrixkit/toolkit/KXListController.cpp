#include <kestrixkit/toolkit/KXListController.h>

#include <algorithm>

#include <QItemSelectionModel>
#include <QPointer>

KXListController::KXListController(QObject *parent)
    : QAbstractListModel(parent)
    , m_selection(new QItemSelectionModel(this, this))
{
    connect(m_selection, &QItemSelectionModel::selectionChanged, this, [this] {
        if (!m_changing)
            updateSelection();
    });
}

KXListController::~KXListController() = default;

/// Announces the array, and the selection once all rows are in their places.
void KXListController::change(const std::function<void()> &rows)
{
    const QPointer<KXListController> alive(this);
    willChangeValueForKey(u"arrangedObjects");
    m_changing = true;
    rows();
    m_changing = false;
    didChangeValueForKey(u"arrangedObjects");
    if (alive)
        Q_EMIT arrangedObjectsChanged();
    if (alive)
        updateSelection();
}

void KXListController::setArrangedObjects(const QVariantList &objects)
{
    const auto [changed, other] = std::mismatch(m_objects.begin(), m_objects.end(), objects.begin(), objects.end());
    const qsizetype first = changed - m_objects.begin();
    qsizetype end = m_objects.size(), newEnd = objects.size();
    while (end > first && newEnd > first && m_objects[end - 1] == objects[newEnd - 1]) {
        --end;
        --newEnd;
    }
    if (first == end && first == newEnd)
        return;
    change([&] {
        if (end > first) {
            beginRemoveRows({}, int(first), int(end) - 1);
            m_objects.remove(first, end - first);
            endRemoveRows();
        }
        if (newEnd > first) {
            beginInsertRows({}, int(first), int(newEnd) - 1);
            m_objects = objects;
            endInsertRows();
        }
    });
}

bool KXListController::insertObject(const QVariant &object, int atRow)
{
    if (atRow < 0 || atRow > rowCount())
        return false;
    change([&] {
        beginInsertRows({}, atRow, atRow);
        m_objects.insert(atRow, object);
        endInsertRows();
    });
    return true;
}

bool KXListController::removeObjects(int fromRow, int count)
{
    if (fromRow < 0 || count < 1 || count > rowCount() - fromRow)
        return false;
    change([&] {
        beginRemoveRows({}, fromRow, fromRow + count - 1);
        m_objects.remove(fromRow, count);
        endRemoveRows();
    });
    return true;
}

bool KXListController::moveObject(int fromRow, int toRow)
{
    if (fromRow < 0 || fromRow >= rowCount() || toRow < 0 || toRow > rowCount())
        return false;
    if (toRow == fromRow || toRow == fromRow + 1)
        return true;
    change([&] {
        beginMoveRows({}, fromRow, fromRow, {}, toRow);
        m_objects.move(fromRow, toRow > fromRow ? toRow - 1 : toRow);
        endMoveRows();
    });
    return true;
}

void KXListController::setTitleKeyPath(const QString &keyPath)
{
    m_titleKeyPath = keyPath;
    if (!m_objects.isEmpty())
        Q_EMIT dataChanged(index(0), index(rowCount() - 1));
}

QList<int> KXListController::selectedRows() const
{
    QList<int> rows;
    for (const QModelIndex &index : m_selection->selectedIndexes())
        rows.append(index.row());
    std::sort(rows.begin(), rows.end());
    return rows;
}

void KXListController::setSelectedRows(const QList<int> &rows)
{
    QItemSelection selection;
    for (const int row : rows) {
        if (const QModelIndex there = index(row); there.isValid())
            selection.select(there, there);
    }
    m_selection->setCurrentIndex(
        selection.isEmpty() ? QModelIndex() : QModelIndex(selection.first().topLeft()), QItemSelectionModel::NoUpdate);
    m_selection->select(selection, QItemSelectionModel::ClearAndSelect);
}

void KXListController::updateSelection()
{
    QVariantList selected;
    for (const int row : selectedRows())
        selected.append(m_objects[row]);
    if (selected == m_selected)
        return;
    const QPointer<KXListController> alive(this);
    willChangeValueForKey(u"selectedObjects");
    m_selected = selected;
    didChangeValueForKey(u"selectedObjects");
    if (alive)
        Q_EMIT selectionChanged();
}

int KXListController::rowCount(const QModelIndex &parent) const { return parent.isValid() ? 0 : int(m_objects.size()); }

QVariant KXListController::data(const QModelIndex &index, int role) const
{
    if (!checkIndex(index, CheckIndexOption::IndexIsValid | CheckIndexOption::ParentIsInvalid))
        return {};
    const QVariant &value = m_objects[index.row()];
    if (role == ObjectRole)
        return value;
    if (role != Qt::DisplayRole)
        return {};
    if (m_titleKeyPath.isEmpty())
        return value.canConvert<QString>() ? value : QVariant();
    const KXObservable *const object = KXObservableFromVariant(value);
    return object ? object->valueForKeyPath(m_titleKeyPath) : QVariant();
}

QVariant KXListController::valueForKey(const QString &key) const { return property(key.toUtf8().constData()); }
