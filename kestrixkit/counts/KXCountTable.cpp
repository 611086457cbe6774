#include <kestrixkit/counts/KXCountTable_p.h>

#include <algorithm>

#include <kestrixkit/context/KXContextRows_p.h>

using namespace Qt::StringLiterals;

namespace {

constexpr size_t countRoomAtOnce = 1024; // rows

constexpr size_t countUnorderedAllowed = 1024;
}

KXCountTable::KXCountTable(KXManagedObjectContext &context, const KXEntityDescription &entity)
    : m_context(context)
    , m_entity(entity)
{
}

KXCountTable::~KXCountTable() = default;

KXCountWatcher::~KXCountWatcher() = default;

// Rows

qint64 KXCountTable::rowOf(qint64 key) const
{
    if (m_sorted > 0 && key >= m_keys[0] && key <= m_keys[m_sorted - 1]) {
        // Keys are dense, so the place is mostly where their distance says.
        const auto guess = std::min(size_t(key - m_keys[0]), m_sorted - 1);
        if (m_keys[guess] == key)
            return qint64(guess);
        const auto end = m_keys.begin() + ptrdiff_t(m_sorted);
        const auto found = std::lower_bound(m_keys.begin(), end, key);
        if (*found == key)
            return found - m_keys.begin();
    }
    const auto stray = m_strays.find(key);
    return stray == m_strays.end() ? -1 : qint64(stray->second);
}

/// Of a key that has no row, or one that is dead.
size_t KXCountTable::addRow(qint64 key)
{
    if (const qint64 row = rowOf(key); row >= 0) {
        if (!m_alive[size_t(row)]) {
            --m_dead;
            m_alive[size_t(row)] = true;
            for (size_t column = 0; column < m_columns.size(); ++column)
                noteOrder(column, size_t(row)); // an order that was made meanwhile lacks it
        }
        return size_t(row);
    }
    const size_t row = m_keys.size();
    if (m_sorted == row && (row == 0 || key > m_keys.back()))
        ++m_sorted;
    else
        m_strays.emplace(key, quint32(row));
    m_keys.push_back(key);
    m_alive.push_back(true);
    if (row >= m_room) {
        m_room = row + row / 8 + countRoomAtOnce;
        for (const auto &column : m_columns)
            column->resize(m_room);
    }
    return row;
}

void KXCountTable::bury(size_t row)
{
    m_alive[row] = false;
    ++m_dead;
}

void KXCountTable::forgetRows()
{
    m_keys.clear();
    m_arrivals.clear();
    m_unsaved = {};
    m_sorted = 0;
    m_strays.clear();
    m_alive.clear();
    m_dead = 0;
    m_orders.clear();
    m_hasRows = false;
    m_room = 0;
    for (const auto &column : m_columns) {
        column->resize(0);
        column->forgetSets();
    }
    m_isRead.assign(m_columns.size(), false);
    for (KXCountWatcher *watcher : m_watchers)
        watcher->rowsDidMove();
    forgetCounts();
    for (size_t i = 0; i < m_rules.size(); ++i) {
        if (std::exchange(m_rules[i].count, -1) != -1)
            noteChange(int(i));
    }
}

/// Closes the gaps of dead rows, and puts all rows in order of their keys.
void KXCountTable::compact()
{
    std::vector<std::pair<qint64, size_t>> rows;
    for (size_t row = 0; row < m_keys.size(); ++row) {
        if (m_alive[row])
            rows.emplace_back(m_keys[row], row);
    }
    // Strays may move to the front of others, so the columns are copied behind and moved back.
    std::sort(rows.begin(), rows.end());
    const size_t old = m_keys.size();
    for (const auto &column : m_columns) {
        column->resize(old + rows.size());
        for (size_t to = 0; to < rows.size(); ++to)
            column->copyRow(rows[to].second, old + to);
        for (size_t to = 0; to < rows.size(); ++to)
            column->copyRow(old + to, to);
        column->resize(rows.size());
    }
    m_room = rows.size();
    m_keys.clear();
    for (const auto &[key, row] : rows)
        m_keys.push_back(key);
    m_sorted = m_keys.size();
    m_strays.clear();
    m_alive.assign(m_keys.size(), true);
    m_dead = 0;
    m_orders.clear();
    for (KXCountWatcher *watcher : m_watchers)
        watcher->rowsDidMove();
}

void KXCountTable::setFromObject(size_t row, KXManagedObject *object, size_t column)
{
    KXCountColumn &values = *m_columns[column];
    const KXPropertyDescription *property = object->entity()->property(values.property().name());
    if (values.kind() != KXCountColumn::Kind::Relation) {
        if (values.setValue(row, property ? object->valueForKey(property->name()) : QVariant()))
            noteOrder(column, row);
        return;
    }
    values.setKeys(row, property ? KXContextRows(m_context).keysOf(object, *property) : std::vector<qint64>());
}

double KXCountTable::bytesPerRow() const
{
    double bytes = sizeof(qint64);
    for (const auto &column : m_columns)
        bytes += double(column->bytesPerRow());
    for (const auto &[column, order] : m_orders)
        bytes += double(order.sorted.size() * sizeof(order.sorted[0])) / double(std::max<size_t>(1, m_keys.size()));
    return bytes;
}

void KXCountTable::noteOrder(size_t column, size_t row)
{
    const auto order = m_orders.find(column);
    if (order == m_orders.end())
        return;
    order->second.changed.push_back(quint32(row));
    if (order->second.changed.size() > std::max(countUnorderedAllowed, order->second.sorted.size() / 16))
        m_orders.erase(order);
}

KXCountTable::Order &KXCountTable::orderOf(size_t column)
{
    const auto [order, isNew] = m_orders.try_emplace(column);
    if (isNew) {
        auto &sorted = order->second.sorted;
        for (size_t row = 0; row < m_keys.size(); ++row) {
            if (const qint64 number = m_columns[column]->numberAt(row); m_alive[row] && number != KXCountColumn::absent)
                sorted.emplace_back(number, quint32(row));
        }
        std::sort(sorted.begin(), sorted.end());
    }
    return order->second;
}

/// Rows whose number is at least `from` and below `to`.
std::vector<quint32> KXCountTable::rowsBetween(size_t column, qint64 from, qint64 to)
{
    const KXCountColumn &values = *m_columns[column];
    const Order &order = orderOf(column);
    std::vector<quint32> rows;
    auto it = std::lower_bound(order.sorted.begin(), order.sorted.end(), std::pair(from, quint32(0)));
    for (; it != order.sorted.end() && it->first < to; ++it) {
        if (values.numberAt(it->second) == it->first)
            rows.push_back(it->second);
    }
    for (const quint32 row : order.changed) {
        if (const qint64 number = values.numberAt(row); number >= from && number < to)
            rows.push_back(row);
    }
    std::erase_if(rows, [this](quint32 row) { return !m_alive[row]; });
    std::sort(rows.begin(), rows.end());
    rows.erase(std::unique(rows.begin(), rows.end()), rows.end());
    return rows;
}

qint64 KXCountTable::nextNumber(const QString &attribute, qint64 from)
{
    qint64 next = KXCountColumn::absent;
    for (size_t i = 0; i < m_columns.size(); ++i) {
        const KXCountColumn &values = *m_columns[i];
        if (values.property().name() != attribute || values.kind() != KXCountColumn::Kind::Number || !m_isRead[i])
            continue;
        const Order &order = orderOf(i);
        auto it = std::lower_bound(order.sorted.begin(), order.sorted.end(), std::pair(from, quint32(0)));
        while (it != order.sorted.end() && (values.numberAt(it->second) != it->first || !m_alive[it->second]))
            ++it;
        if (it != order.sorted.end())
            next = it->first;
        for (const quint32 row : order.changed) {
            if (const qint64 number = values.numberAt(row);
                m_alive[row] && number >= from && (next == KXCountColumn::absent || number < next))
                next = number;
        }
    }
    return next;
}
