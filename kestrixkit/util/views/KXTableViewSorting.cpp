#include <kestrixkit/util/views/KXTableView.h>

#include <QApplication>
#include <QCborArray>
#include <QCborMap>
#include <QHeaderView>
#include <QScopedValueRollback>

#include <kestrixkit/foundation/KXArchive.h>
#include <kestrixkit/foundation/KXLog.h>
#include <kestrixkit/foundation/KXUserDefaults.h>

using namespace Qt::StringLiterals;

namespace {

constexpr QStringView tableSortFormatName = u"kestrix.sort-descriptors";
constexpr int tableSortFormatNumber = 1;

}

void KXTableView::setSortDescriptors(const QList<KXSortDescriptor> &descriptors)
{
    m_sortDescriptorsHaveChanged = true;
    const bool isNew = descriptors != m_sortDescriptors;
    m_sortDescriptors = descriptors;
    showSortIndicator();
    if (!isNew)
        return;
    if (model())
        sortRows(descriptors);
    Q_EMIT sortDescriptorsChanged();
}

const KXTableColumn *KXTableView::columnSortedBy(const QString &key) const
{
    const auto found = std::find_if(m_columns.begin(), m_columns.end(),
        [&](const KXTableColumn &column) { return column.sortDescriptorPrototype.key == key; });
    return key.isEmpty() || found == m_columns.end() ? nullptr : &*found;
}

void KXTableView::showSortIndicator()
{
    const QScopedValueRollback guard(m_showingSort, true);
    const KXTableColumn *const column
        = m_sortDescriptors.isEmpty() ? nullptr : columnSortedBy(m_sortDescriptors.first().key);
    horizontalHeader()->setSortIndicator(column ? int(column - m_columns.data()) : -1,
        !column || m_sortDescriptors.first().ascending ? Qt::AscendingOrder : Qt::DescendingOrder);
}

/// By a click on the head of a column, or because a host said so to the header.
void KXTableView::sortIndicatorWasChanged(int column, Qt::SortOrder order)
{
    if (m_showingSort)
        return;
    KXSortDescriptor descriptor
        = column >= 0 && column < m_columns.size() ? m_columns[column].sortDescriptorPrototype : KXSortDescriptor();
    if (descriptor.key.isEmpty()) {
        showSortIndicator();
        return;
    }
    QList<KXSortDescriptor> descriptors { descriptor };
    descriptors[0].ascending = order == Qt::AscendingOrder;
    if (QGuiApplication::keyboardModifiers().testFlag(Qt::ShiftModifier)) {
        descriptors = m_sortDescriptors;
        const auto known = std::find_if(descriptors.begin(), descriptors.end(),
            [&](const KXSortDescriptor &one) { return one.key == descriptor.key; });
        if (known == descriptors.end())
            descriptors.append(descriptor);
        else
            known->ascending = !known->ascending;
    }
    setSortDescriptors(descriptors);
    // After another order was asked for one looks for the current row, or begins at the top.
    if (currentIndex().isValid())
        scrollTo(currentIndex(), PositionAtCenter);
    else
        scrollToTop();
}

void KXTableView::sortRows(const QList<KXSortDescriptor> &descriptors)
{
    const KXTableColumn *const column = descriptors.isEmpty() ? nullptr : columnSortedBy(descriptors.first().key);
    if (column)
        model()->sort(
            int(column - m_columns.data()), descriptors.first().ascending ? Qt::AscendingOrder : Qt::DescendingOrder);
}

void KXTableView::saveSortOptions()
{
    // The order of one list's members is that list's, and not the table's.
    if (m_sortOptionsAutoSaveName.isEmpty() || !m_sortDescriptorsHaveChanged
        || std::any_of(m_sortDescriptors.begin(), m_sortDescriptors.end(),
            [](const KXSortDescriptor &descriptor) { return !descriptor.memberKey.isEmpty(); }))
        return;
    QCborArray list;
    for (const KXSortDescriptor &descriptor : std::as_const(m_sortDescriptors))
        list.append(QCborMap { { u"key"_s, descriptor.key }, { u"ascending"_s, descriptor.ascending },
            { u"comparison"_s, descriptor.options } });
    if (KXUserDefaults::standard().setValue(
            m_sortOptionsAutoSaveName, KXArchive::archive(tableSortFormatName, tableSortFormatNumber, list)))
        m_sortDescriptorsHaveChanged = false;
}

void KXTableView::loadSortOptions()
{
    if (m_sortOptionsAutoSaveName.isEmpty())
        return;
    const KXUserDefaults &defaults = KXUserDefaults::standard();
    if (!defaults.valueForKey(m_sortOptionsAutoSaveName).isValid())
        return;
    const auto list = KXArchive::unarchive(defaults.dataForKey(m_sortOptionsAutoSaveName).value_or(QByteArray()),
        tableSortFormatName, tableSortFormatNumber);
    const QCborArray stored = list ? list->toArray() : QCborArray();
    QList<KXSortDescriptor> descriptors;
    for (const QCborValue &value : stored) {
        if (const KXTableColumn *column = columnSortedBy(value[u"key"_s].toString())) {
            descriptors.append(column->sortDescriptorPrototype);
            descriptors.last().ascending = value[u"ascending"_s].toBool(true);
        }
    }
    if (descriptors.isEmpty() && !(list && list->isArray() && stored.isEmpty())) // which is no order, and meant
        KXLogWarning(util, "The user default \"%@\" is no order for the table", m_sortOptionsAutoSaveName);
    else
        setSortDescriptors(descriptors);
}
