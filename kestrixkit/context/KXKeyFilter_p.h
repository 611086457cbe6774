#pragma once

#include <algorithm>
#include <bitset>
#include <span>
#include <vector>

#include <QtGlobal>

/// A few keys to be found among many, one look at a bit for most.
class KXKeyFilter
{
public:
    /// The keys are sorted, and borrowed.
    explicit KXKeyFilter(std::span<const qint64> keys)
        : m_keys(keys)
    {
        for (const qint64 key : keys)
            m_bits.set(size_t(key) % m_bits.size());
    }
    [[nodiscard]] bool contains(qint64 key) const
    {
        return m_bits.test(size_t(key) % m_bits.size()) && std::binary_search(m_keys.begin(), m_keys.end(), key);
    }

private:
    std::span<const qint64> m_keys;
    std::bitset<65'536> m_bits;
};

/// Puts keys in order, each once.
inline void KXSortUnique(std::vector<qint64> &keys)
{
    std::sort(keys.begin(), keys.end());
    keys.erase(std::unique(keys.begin(), keys.end()), keys.end());
}
