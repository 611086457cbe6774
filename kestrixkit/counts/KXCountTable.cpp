#include <kestrixkit/counts/KXCountTable_p.h>

#include <algorithm>
#include <bit>

#include <kestrixkit/context/KXContextRows_p.h>

using namespace Qt::StringLiterals;

namespace {

constexpr size_t countRoomAtOnce = 1024; // rows

constexpr size_t countUnorderedAllowed = 1024;
/// So many words of a row of bits are added up at a time: a cache line.
constexpr size_t countLane = 8;
/// Rows are added up in binary, digit by digit, until the digits are full.
constexpr int countDigits = 8;

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
    m_sorted = 0;
    m_strays.clear();
    m_alive.clear();
    m_dead = 0;
    m_orders.clear();
    m_hasRows = false;
    m_room = 0;
    for (const auto &column : m_columns)
        column->resize(0);
    m_isRead.assign(m_columns.size(), false);
    for (KXCountWatcher *watcher : m_watchers)
        watcher->rowsDidMove();
    forgetCounts();
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

// Counting

void KXCountTable::bits(qint64 row, quint64 *out) const
{
    std::fill_n(out, m_words, has(row) ? ~quint64(0) : 0);
    if (!has(row))
        return;
    for (const auto &column : m_columns) {
        const quint64 *more = column->bitsAt(size_t(row));
        for (size_t i = 0; i < m_words; ++i)
            out[i] &= more[i];
    }
}

bool KXCountTable::fits(const KXCountNode &node, const quint64 *bits) const
{
    const auto part = [&](const KXCountNode &each) { return fits(each, bits); };
    switch (node.kind) {
    case KXCountNode::Slot:
        return bits[node.slot >> 6] >> (node.slot & 63) & 1;
    case KXCountNode::And:
        return std::all_of(node.parts.begin(), node.parts.end(), part);
    case KXCountNode::Or:
        return std::any_of(node.parts.begin(), node.parts.end(), part);
    case KXCountNode::Not:
        return !part(node.parts.front());
    case KXCountNode::True:
        return true;
    case KXCountNode::False:
        break;
    }
    return false;
}

/// Of one living row and one rule, without the bits of all the others.
bool KXCountTable::fits(const KXCountNode &node, size_t row) const
{
    const auto part = [&](const KXCountNode &each) { return fits(each, row); };
    switch (node.kind) {
    case KXCountNode::Slot: {
        const size_t word = size_t(node.slot) >> 6;
        const quint64 bit = quint64(1) << (node.slot & 63);
        return std::all_of(m_columns.begin(), m_columns.end(),
            [&](const auto &column) { return !(column->users()[word] & bit) || (column->bitsAt(row)[word] & bit); });
    }
    case KXCountNode::And:
        return std::all_of(node.parts.begin(), node.parts.end(), part);
    case KXCountNode::Or:
        return std::any_of(node.parts.begin(), node.parts.end(), part);
    case KXCountNode::Not:
        return !part(node.parts.front());
    case KXCountNode::True:
        return true;
    case KXCountNode::False:
        break;
    }
    return false;
}

void KXCountTable::noteChange(int rule)
{
    if (!std::exchange(m_rules[size_t(rule)].hasChanged, true))
        m_changed.push_back(rule);
}

std::vector<int> KXCountTable::takeChanged()
{
    for (const int rule : m_changed)
        m_rules[size_t(rule)].hasChanged = false;
    return std::exchange(m_changed, {});
}

/// A row was, or is, there with these bits.
void KXCountTable::count(const quint64 *before, bool was, const quint64 *after, bool is)
{
    for (size_t word = 0; word < m_words; ++word) {
        for (quint64 left = before[word] ^ after[word]; left; left &= left - 1) {
            const size_t slot = word * 64 + size_t(std::countr_zero(left));
            const int owner = slot < m_owners.size() ? m_owners[slot] : -1;
            if (owner < 0 || m_rules[size_t(owner)].isCondition
                || m_rules[size_t(owner)].tree.kind != KXCountNode::Slot)
                continue;
            m_rules[size_t(owner)].count += after[word] >> (slot & 63) & 1 ? 1 : -1;
            noteChange(owner);
        }
    }
    for (const int number : m_trees) {
        Rule &rule = m_rules[size_t(number)];
        const int difference = int(is && fits(rule.tree, after)) - int(was && fits(rule.tree, before));
        rule.count += difference;
        if (difference != 0)
            noteChange(number);
    }
}

void KXCountTable::scanLane(size_t lane, std::vector<qint64> &counts) const
{
    std::vector<const KXCountColumn *> used;
    for (const auto &column : m_columns) {
        const auto *users = column->users().data() + lane * countLane;
        if (std::any_of(users, users + countLane, [](quint64 word) { return word != 0; }))
            used.push_back(column.get());
    }
    constexpr size_t atOnce = (1 << countDigits) - 1;
    quint64 digits[countDigits][countLane] = {};
    size_t added = 0;
    const auto flush = [&] {
        for (int digit = 0; digit < countDigits; ++digit) {
            for (size_t word = 0; word < countLane; ++word) {
                for (quint64 left = digits[digit][word]; left; left &= left - 1)
                    counts[(lane * countLane + word) * 64 + size_t(std::countr_zero(left))] += qint64(1) << digit;
                digits[digit][word] = 0;
            }
        }
        added = 0;
    };
    for (size_t row = 0; row < m_keys.size(); ++row) {
        if (!m_alive[row])
            continue;
        quint64 bits[countLane];
        std::fill_n(bits, countLane, ~quint64(0));
        for (const KXCountColumn *column : used) {
            const quint64 *more = column->bitsAt(row) + lane * countLane;
            for (size_t i = 0; i < countLane; ++i)
                bits[i] &= more[i];
        }
        // Binary addition of one to each slot whose bit is set, all slots side by side.
        for (int digit = 0; digit < countDigits; ++digit) {
            quint64 any = 0;
            for (size_t i = 0; i < countLane; ++i) {
                const quint64 carry = digits[digit][i] & bits[i];
                digits[digit][i] ^= bits[i];
                bits[i] = carry;
                any |= carry;
            }
            if (!any)
                break;
        }
        if (++added == atOnce)
            flush();
    }
    flush();
}

void KXCountTable::scan()
{
    std::vector<bool> lanes(m_words / countLane);
    std::vector<int> trees;
    for (size_t i = 0; i < m_rules.size(); ++i) {
        const Rule &rule = m_rules[i];
        if (isSettled(rule) || !rule.reason.isEmpty())
            continue;
        if (rule.tree.kind == KXCountNode::Slot)
            lanes[size_t(rule.tree.slot) / 64 / countLane] = true;
        else
            trees.push_back(int(i));
    }
    std::vector<qint64> counts(m_words * 64);
    for (size_t lane = 0; lane < lanes.size(); ++lane) {
        if (lanes[lane])
            scanLane(lane, counts);
    }
    std::vector<qint64> treeCounts(trees.size());
    KXCountBits row(m_words);
    for (size_t i = 0; i < m_keys.size() && !trees.empty(); ++i) {
        if (!m_alive[i])
            continue;
        bits(qint64(i), row.data());
        for (size_t tree = 0; tree < trees.size(); ++tree)
            treeCounts[tree] += fits(m_rules[size_t(trees[tree])].tree, row.data());
    }
    const auto settle = [this](int number, qint64 count) {
        Rule &rule = m_rules[size_t(number)];
        rule.isCounted = true;
        rule.count = count;
        noteChange(number);
    };
    for (size_t i = 0; i < m_rules.size(); ++i) {
        const Rule &rule = m_rules[i];
        if (!isSettled(rule) && rule.reason.isEmpty() && rule.tree.kind == KXCountNode::Slot)
            settle(int(i), counts[size_t(rule.tree.slot)]);
    }
    for (size_t tree = 0; tree < trees.size(); ++tree)
        settle(trees[tree], treeCounts[tree]);
}

bool KXCountTable::update(KXError *error)
{
    std::vector<size_t> unread;
    for (size_t i = 0; i < m_columns.size(); ++i) {
        if (!m_isRead[i])
            unread.push_back(i);
    }
    if ((!m_hasRows || !unread.empty()) && !readAll(unread, error)) {
        forgetRows();
        return false;
    }
    const size_t words = (m_owners.size() + 63) / 64 + (countLane - 1);
    const size_t rounded = words / countLane * countLane;
    for (size_t i = 0; i < m_columns.size(); ++i) {
        if (m_isDirty[i] || rounded != m_words)
            m_columns[i]->rebuild(rounded);
        m_isDirty[i] = false;
    }
    m_words = rounded;
    m_trees.clear();
    bool isAllCounted = true;
    for (size_t i = 0; i < m_rules.size(); ++i) {
        const Rule &rule = m_rules[i];
        isAllCounted = isAllCounted && isSettled(rule);
        if (rule.isUsed && !rule.isCondition && rule.reason.isEmpty() && rule.tree.kind != KXCountNode::Slot)
            m_trees.push_back(int(i));
    }
    if (isAllCounted)
        return true;
    scan();
    return countByStore(error);
}

void KXCountTable::forgetCounts()
{
    for (Rule &rule : m_rules)
        rule.isCounted = false;
}
