// The classes of a column's values that no rule tells apart, and the rows of bits that each of them has.

#include <kestrixkit/counts/KXCountColumn_p.h>

#include <algorithm>
#include <numeric>

size_t KXCountColumn::segmentOf(qint64 number) const
{
    if (number == absent)
        return 0;
    // Without branches that the processor would have to guess.
    const qint64 *base = m_cuts.data();
    size_t left = m_cuts.size();
    while (left > 1) {
        const size_t half = left / 2;
        base += base[half - 1] <= number ? half : 0;
        left -= half;
    }
    return size_t(base - m_cuts.data()) + (left == 1 && *base <= number) + 1;
}

size_t KXCountColumn::domainSize() const
{
    switch (m_kind) {
    case Kind::Number:
        return m_cuts.size() + 2;
    case Kind::Value:
        return m_paths[0].values.size();
    case Kind::Relation:
        return m_sets.size();
    }
    return 0;
}

KXCountBits KXCountColumn::bitsOf(const Test &test) const
{
    const size_t size = domainSize();
    KXCountBits bits(KXCountWords(size), 0);
    if (m_kind == Kind::Number) {
        if (KXCountBit(test.holds, 0))
            KXCountSetBit(bits, 0);
        size_t from = 1;
        for (size_t own = 0; own <= test.cuts.size(); ++own) {
            const size_t end = own == test.cuts.size() ? size : segmentOf(test.cuts[own]);
            for (; from < end; ++from) {
                if (KXCountBit(test.holds, own + 1))
                    KXCountSetBit(bits, from);
            }
        }
    } else if (test.isEquality && m_kind == Kind::Value) {
        for (const quint32 constant : test.constants)
            KXCountSetBit(bits, constant);
        for (quint64 &word : bits)
            word = test.isNegated ? ~word : word;
    } else {
        for (quint32 code = 0; code < size; ++code) {
            if (holds(test, code))
                KXCountSetBit(bits, code);
        }
    }
    return bits;
}

KXCountBits KXCountColumn::bitsOf(const KXCountCondition &condition) const
{
    if (condition.kind == KXCountCondition::Comparison)
        return bitsOf(m_tests[size_t(condition.comparison)]);
    KXCountBits bits(KXCountWords(domainSize()), condition.kind == KXCountCondition::Or ? 0 : ~quint64(0));
    for (const KXCountCondition &part : condition.parts) {
        const KXCountBits more = bitsOf(part);
        for (size_t i = 0; i < bits.size(); ++i) {
            if (condition.kind == KXCountCondition::Or)
                bits[i] |= more[i];
            else
                bits[i] = condition.kind == KXCountCondition::And ? bits[i] & more[i] : ~more[i];
        }
    }
    return bits;
}

void KXCountColumn::rebuild(size_t words)
{
    // Tests that went with their rules.
    for (Test &test : m_tests)
        test.isUsed = false;
    const std::function<void(KXCountCondition &)> use = [&](KXCountCondition &condition) {
        if (condition.kind == KXCountCondition::Comparison)
            m_tests[size_t(condition.comparison)].isUsed = true;
        for (KXCountCondition &part : condition.parts)
            use(part);
    };
    for (auto &[slot, condition] : m_conditions)
        use(condition);
    if (size_t(std::count_if(m_tests.begin(), m_tests.end(), [](const Test &test) { return test.isUsed; })) * 2
        < m_tests.size()) {
        std::vector<int> places(m_tests.size());
        std::vector<Test> kept;
        m_testNumbers.clear();
        for (size_t i = 0; i < m_tests.size(); ++i) {
            if (!m_tests[i].isUsed)
                continue;
            places[i] = int(kept.size());
            m_testNumbers.insert({ m_tests[i].path, m_tests[i].predicate }, places[i]);
            kept.push_back(std::move(m_tests[i]));
        }
        m_tests = std::move(kept);
        const std::function<void(KXCountCondition &)> renumber = [&](KXCountCondition &condition) {
            if (condition.kind == KXCountCondition::Comparison)
                condition.comparison = places[size_t(condition.comparison)];
            for (KXCountCondition &part : condition.parts)
                renumber(part);
        };
        for (auto &[slot, condition] : m_conditions)
            renumber(condition);
    }

    m_words = words;
    m_cuts.clear();
    m_otherClass = m_kind == Kind::Value ? 0 : -1;
    for (const Test &test : m_tests) {
        m_cuts.insert(m_cuts.end(), test.cuts.begin(), test.cuts.end());
        if (!test.isEquality)
            m_otherClass = -1;
    }
    std::sort(m_cuts.begin(), m_cuts.end());
    m_cuts.erase(std::unique(m_cuts.begin(), m_cuts.end()), m_cuts.end());

    const size_t size = domainSize();
    KXCountBits rows(size * words, ~quint64(0));
    m_users.assign(words, 0);
    for (const auto &[slot, condition] : m_conditions) {
        KXCountSetBit(m_users, size_t(slot));
        const KXCountBits bits = bitsOf(condition);
        const quint64 mask = ~(quint64(1) << (slot & 63));
        for (size_t i = 0; i < size; ++i) {
            if (!KXCountBit(bits, i))
                rows[i * words + size_t(slot >> 6)] &= mask;
        }
    }
    m_table.clear();
    m_classNumbers.clear();
    if (m_kind == Kind::Number) {
        m_table = std::move(rows);
        return;
    }
    m_classes.resize(size);
    for (size_t i = 0; i < size; ++i)
        m_classes[i] = classOfBits(rows.data() + i * words);
    if (m_otherClass == 0) {
        // A value that no test names: as good as one that is not there yet.
        m_classes.push_back(0);
        m_otherClass = classOfCode(quint32(size));
        m_classes.pop_back();
    }
}

quint32 KXCountColumn::classOfBits(const quint64 *bits)
{
    const auto [found, isNew]
        = m_classNumbers.try_emplace(KXCountBytes(bits, m_words * sizeof(quint64)), quint32(m_classNumbers.size()));
    if (isNew)
        m_table.insert(m_table.end(), bits, bits + m_words);
    return found->second;
}

quint32 KXCountColumn::classOfCode(quint32 code)
{
    KXCountBits row(m_words, ~quint64(0));
    for (const auto &[slot, condition] : m_conditions) {
        if (!holds(condition, code))
            row[size_t(slot >> 6)] &= ~(quint64(1) << (slot & 63));
    }
    return classOfBits(row.data());
}

void KXCountColumn::codeWasAdded()
{
    const auto code = quint32(m_classes.size());
    if (m_kind == Kind::Value)
        extendTests(0);
    m_classes.push_back(0);
    if (m_words != 0)
        m_classes.back() = m_otherClass >= 0 ? quint32(m_otherClass) : classOfCode(code);
}

void KXCountColumn::reclassify(const std::vector<quint32> &sets)
{
    for (const quint32 set : sets)
        m_classes[set] = classOfCode(set);
}
