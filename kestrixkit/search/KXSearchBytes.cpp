#include <kestrixkit/search/KXSearchBytes_p.h>

#include <algorithm>
#include <cstring>

#include <sys/mman.h>

KXSearchBytes::KXSearchBytes(const char *mapped, qsizetype size, std::vector<quint64> checksums, qsizetype verifiedFrom)
    : m_data(mapped)
    , m_size(size)
    , m_checksums(std::move(checksums))
    , m_verified(m_checksums.size())
{
    for (size_t block = 0; block < m_verified.size() && qsizetype(block) * BlockSize < verifiedFrom; ++block)
        m_verified[block] = 1;
}

KXSearchBytes::~KXSearchBytes()
{
    if (isMapped())
        ::munmap(const_cast<char *>(m_data), size_t(m_size));
}

quint64 KXSearchBytes::checksum(const char *data, qsizetype size)
{
    // Four lanes, so that the multiplications run side by side.
    constexpr quint64 multiplier = 0x9E3779B97F4A7C15;
    quint64 lanes[4] = { 1, 2, 3, quint64(size) };
    const auto mix = [](quint64 lane, quint64 word) {
        lane = (lane ^ word) * multiplier;
        return lane ^ lane >> 29;
    };
    qsizetype at = 0;
    for (; at + 32 <= size; at += 32) {
        quint64 words[4];
        std::memcpy(words, data + at, sizeof words);
        for (int i = 0; i < 4; ++i)
            lanes[i] = mix(lanes[i], words[i]);
    }
    for (; at < size; at += 8) {
        quint64 word = 0;
        std::memcpy(&word, data + at, size_t(std::min<qsizetype>(8, size - at)));
        lanes[0] = mix(lanes[0], word);
    }
    quint64 result = 0;
    for (const quint64 lane : lanes)
        result = mix(result, lane);
    return result;
}

void KXSearchBytes::verify(qsizetype from, qsizetype size) const
{
    for (qsizetype block = from / BlockSize; block <= (from + size - 1) / BlockSize; ++block) {
        std::atomic<quint8> &isVerified = m_verified[size_t(block)];
        if (isVerified.load(std::memory_order_relaxed))
            continue;
        const qsizetype begin = block * BlockSize;
        if (checksum(m_data + begin, std::min(BlockSize, m_size - begin)) != m_checksums[size_t(block)])
            throw KXSearchDamage {};
        isVerified.store(1, std::memory_order_relaxed);
    }
}
