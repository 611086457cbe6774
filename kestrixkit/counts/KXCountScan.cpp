// How a table of counts counts: a changed row out and in again, or all rows at once.

#include <kestrixkit/counts/KXCountTable_p.h>

#include <algorithm>
#include <bit>
#include <functional>
#include <thread>

namespace {

/// So many words of a row of bits are added up at a time: a cache line.
constexpr size_t countLane = 8;
/// Rows are added up in binary, digit by digit, until the digits are full.
constexpr int countDigits = 8;

/// A tree made ready for many rows: slots of a part that share a word are looked at together. A folder of presets is
/// any of a dozen slots.
class CountTest
{
public:
    explicit CountTest(const KXCountNode &node)
        : m_kind(node.kind == KXCountNode::Or || node.kind == KXCountNode::False ? Any
                : node.kind == KXCountNode::Not                                  ? NotAll
                                                                                 : All)
    {
        if (node.kind == KXCountNode::Slot)
            add(node.slot);
        for (const KXCountNode &part : node.parts) {
            if (part.kind == KXCountNode::Slot)
                add(part.slot);
            else
                m_parts.emplace_back(part);
        }
    }

    [[nodiscard]] bool fits(const quint64 *bits) const
    {
        const auto isPart = [bits](const CountTest &part) { return part.fits(bits); };
        if (m_kind == Any)
            return std::any_of(m_words.begin(), m_words.end(), [bits](const Word &each) {
                return (bits[each.number] & each.slots) != 0;
            }) || std::any_of(m_parts.begin(), m_parts.end(), isPart);
        const bool all = std::all_of(m_words.begin(), m_words.end(), [bits](const Word &each) {
            return (bits[each.number] & each.slots) == each.slots;
        }) && std::all_of(m_parts.begin(), m_parts.end(), isPart);
        return all == (m_kind == All);
    }

private:
    struct Word
    {
        size_t number;
        quint64 slots;
    };

    void add(int slot)
    {
        const size_t number = size_t(slot) / 64;
        auto word
            = std::find_if(m_words.begin(), m_words.end(), [&](const Word &each) { return each.number == number; });
        if (word == m_words.end())
            word = m_words.insert(word, { number, 0 });
        word->slots |= quint64(1) << (slot % 64);
    }

    enum { All, Any, NotAll } m_kind; // of none: true, false, false
    std::vector<Word> m_words;
    std::vector<CountTest> m_parts;
};

}

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

/// Whether a row fits; `fitsSlot` says of a slot whether it fits that.
template <typename FitsSlot> static bool countNodeFits(const KXCountNode &node, const FitsSlot &fitsSlot)
{
    const auto part = [&](const KXCountNode &each) { return countNodeFits(each, fitsSlot); };
    switch (node.kind) {
    case KXCountNode::Slot:
        return fitsSlot(size_t(node.slot) >> 6, quint64(1) << (node.slot & 63));
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

bool KXCountTable::fits(const KXCountNode &node, const quint64 *bits) const
{
    return countNodeFits(node, [bits](size_t word, quint64 bit) { return (bits[word] & bit) != 0; });
}

/// Of one living row and one rule, without the bits of all the others.
bool KXCountTable::fits(const KXCountNode &node, size_t row) const
{
    return countNodeFits(node, [&](size_t word, quint64 bit) {
        return std::all_of(m_columns.begin(), m_columns.end(),
            [&](const auto &column) { return !(column->users()[word] & bit) || (column->bitsAt(row)[word] & bit); });
    });
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

void KXCountTable::scanLane(size_t lane, size_t from, size_t to, std::vector<qint64> &counts) const
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
    for (size_t row = from; row < to; ++row) {
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
    std::vector<CountTest> tests;
    tests.reserve(trees.size());
    for (const int tree : trees)
        tests.emplace_back(m_rules[size_t(tree)].tree);
    const auto countBetween = [&](size_t from, size_t to, std::vector<qint64> &slots, std::vector<qint64> &ofTrees) {
        for (size_t lane = 0; lane < lanes.size(); ++lane) {
            if (lanes[lane])
                scanLane(lane, from, to, slots);
        }
        KXCountBits row(m_words);
        for (size_t i = from; i < to && !trees.empty(); ++i) {
            if (!m_alive[i])
                continue;
            bits(qint64(i), row.data());
            for (size_t tree = 0; tree < trees.size(); ++tree)
                ofTrees[tree] += tests[tree].fits(row.data());
        }
    };
    std::vector<qint64> counts(m_words * 64), treeCounts(trees.size());
    if (qint64(m_keys.size()) < countFewestForTwo || std::thread::hardware_concurrency() < 2) {
        countBetween(0, m_keys.size(), counts, treeCounts);
    } else { // half of them by another thread
        std::vector<qint64> more(counts.size()), moreOfTrees(trees.size());
        std::thread second([&] { countBetween(0, m_keys.size() / 2, more, moreOfTrees); });
        countBetween(m_keys.size() / 2, m_keys.size(), counts, treeCounts);
        second.join();
        std::transform(counts.begin(), counts.end(), more.begin(), counts.begin(), std::plus());
        std::transform(treeCounts.begin(), treeCounts.end(), moreOfTrees.begin(), treeCounts.begin(), std::plus());
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
    if (m_isSettled)
        return true;
    if (!readRows(error) || !joinContext(error)) {
        forgetRows();
        return false;
    }
    countRows();
    m_isSettled = countByStore(error);
    return m_isSettled;
}

void KXCountTable::countRows()
{
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
        isAllCounted = isAllCounted && (isSettled(rule) || !rule.reason.isEmpty());
        if (rule.isUsed && !rule.isCondition && rule.reason.isEmpty() && rule.tree.kind != KXCountNode::Slot)
            m_trees.push_back(int(i));
    }
    countArrivals();
    if (!isAllCounted)
        scan();
}

/// Rules that are not counted at all yet are by scan(), which takes these rows for any others.
void KXCountTable::countArrivals()
{
    KXCountBits none(m_words), now(m_words);
    for (const qint64 key : std::exchange(m_arrivals, {})) {
        const qint64 row = rowOf(key);
        if (!has(row))
            continue; // gone meanwhile
        bits(row, now.data());
        count(none.data(), false, now.data(), true);
        for (KXCountWatcher *watcher : m_watchers)
            watcher->rowEnters(size_t(row));
        m_evaluations += m_rules.size();
    }
}

void KXCountTable::forgetCounts()
{
    for (Rule &rule : m_rules)
        rule.isCounted = false;
    m_isSettled = false;
}
