#pragma once

#include <algorithm>
#include <vector>

#include <QtGlobal>

/// The objects of one context by the keys of their rows.
///
/// Keys come from one sequence, so rows that were made together have neighbouring keys and are used together:
/// the table holds them by sevens, a cache line each, at scattered places (linear probing over lines). About
/// 16 bytes an object when keys are dense, at most some hundred when each is alone. No call looks at an object.
template <class Object> class KXIdentityMap
{
public:
    [[nodiscard]] Object *find(qint64 key) const
    {
        if (m_lines.empty())
            return nullptr;
        const Line &line = m_lines[place(idOf(key))];
        return line.objects[key % perLine]; // an empty line holds nullptr throughout
    }

    /// The key must be positive and not in the map.
    void insert(qint64 key, Object *object)
    {
        if ((m_used + 1) * 4 > m_lines.size() * 3)
            rehash(std::max<size_t>(16, m_lines.size() * 2));
        Line &line = m_lines[place(idOf(key))];
        if (line.id == 0) {
            line.id = idOf(key);
            ++m_used;
        }
        line.objects[key % perLine] = object;
    }

    /// Nothing where the key is another object's by now.
    void remove(qint64 key, const Object *object)
    {
        if (m_lines.empty())
            return;
        size_t hole = place(idOf(key));
        Line &line = m_lines[hole];
        if (line.objects[key % perLine] != object)
            return;
        line.objects[key % perLine] = nullptr;
        if (line.id == 0
            || std::any_of(std::begin(line.objects), std::end(line.objects), [](Object *other) { return other; }))
            return;
        // Whatever follows and belongs at the hole or before it moves there, so that probing finds it.
        const size_t mask = m_lines.size() - 1;
        for (size_t i = (hole + 1) & mask; m_lines[i].id != 0; i = (i + 1) & mask) {
            if (((i - home(m_lines[i].id)) & mask) >= ((i - hole) & mask)) {
                m_lines[hole] = m_lines[i];
                hole = i;
            }
        }
        m_lines[hole] = {};
        --m_used;
        if (m_lines.size() > 1024 && m_used * 8 < m_lines.size())
            rehash(m_lines.size() / 2);
    }

    template <typename Function> void forEach(Function &&function) const
    {
        for (const Line &line : m_lines) {
            for (Object *object : line.objects) {
                if (object)
                    function(object);
            }
        }
    }

private:
    static constexpr qint64 perLine = 7;
    struct alignas(64) Line
    {
        quint64 id = 0; // of the seven keys, from 1; 0: empty
        Object *objects[perLine] = {};
    };

    [[nodiscard]] static quint64 idOf(qint64 key) { return quint64(key / perLine) + 1; }
    [[nodiscard]] size_t home(quint64 id) const
    {
        return size_t(id * 0x9e37'79b9'7f4a'7c15 >> 20) & (m_lines.size() - 1); // 2^64 over the golden ratio
    }
    /// The line of the id, or the empty one where it belongs.
    [[nodiscard]] size_t place(quint64 id) const
    {
        size_t i = home(id);
        while (m_lines[i].id != 0 && m_lines[i].id != id)
            i = (i + 1) & (m_lines.size() - 1);
        return i;
    }
    void rehash(size_t size)
    {
        std::vector<Line> before(size);
        before.swap(m_lines);
        for (const Line &line : before) {
            if (line.id != 0)
                m_lines[place(line.id)] = line;
        }
    }

    std::vector<Line> m_lines; // a power of two of them
    size_t m_used = 0;
};
