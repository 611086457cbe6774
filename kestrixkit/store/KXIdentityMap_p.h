#pragma once

#include <vector>

#include <QtGlobal>

/// The objects of one context by the keys of their rows: an open-addressed table of bare pointers.
///
/// Keys come from one sequence, so neighbours are made and used together; a key is its own hash and they lie side
/// by side. Object needs `qint64 KXIdentityMap::keyOf(const Object *)`, given as the template's second argument.
template<class Object, qint64 (*keyOf)(const Object *)> class KXIdentityMap
{
public:
    [[nodiscard]] Object *find(qint64 key) const
    {
        if (m_slots.empty())
            return nullptr;
        for (size_t i = size_t(key) & m_mask;; i = (i + 1) & m_mask) {
            Object *object = m_slots[i];
            if (!object || keyOf(object) == key)
                return object;
        }
    }

    /// The key must not be in the map.
    void insert(Object *object)
    {
        if ((m_count + 1) * 4 > m_slots.size() * 3)
            rehash(std::max<size_t>(64, m_slots.size() * 2));
        place(object);
        ++m_count;
    }

    void remove(qint64 key)
    {
        if (m_slots.empty())
            return;
        size_t hole = size_t(key) & m_mask;
        while (m_slots[hole] && keyOf(m_slots[hole]) != key)
            hole = (hole + 1) & m_mask;
        if (!m_slots[hole])
            return;
        // Whatever follows in the run and may lie further ahead is moved into the hole, so that no run is broken.
        for (size_t i = (hole + 1) & m_mask; m_slots[i]; i = (i + 1) & m_mask) {
            const size_t home = size_t(keyOf(m_slots[i])) & m_mask;
            if (((i - home) & m_mask) >= ((i - hole) & m_mask)) {
                m_slots[hole] = m_slots[i];
                hole = i;
            }
        }
        m_slots[hole] = nullptr;
        if (--m_count == 0)
            m_slots = {};
        else if (m_slots.size() > 1024 && m_count * 8 < m_slots.size())
            rehash(m_slots.size() / 2);
    }

    [[nodiscard]] size_t size() const { return m_count; }
    template<typename Function> void forEach(Function &&function) const
    {
        for (Object *object : m_slots) {
            if (object)
                function(object);
        }
    }

private:
    void place(Object *object)
    {
        size_t i = size_t(keyOf(object)) & m_mask;
        while (m_slots[i])
            i = (i + 1) & m_mask;
        m_slots[i] = object;
    }
    void rehash(size_t size)
    {
        std::vector<Object *> before(size);
        before.swap(m_slots);
        m_mask = size - 1;
        for (Object *object : before) {
            if (object)
                place(object);
        }
    }

    std::vector<Object *> m_slots;
    size_t m_mask = 0;
    size_t m_count = 0;
};
