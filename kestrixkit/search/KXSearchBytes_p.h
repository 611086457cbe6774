#pragma once

#include <atomic>
#include <memory>
#include <vector>

#include <QByteArray>

/// Thrown where an index's bytes are not what they were when they were written. Never leaves search/.
struct KXSearchDamage
{
};

/// Tells a running search that nobody waits for it any more.
class KXSearchStop
{
public:
    KXSearchStop() = default;
    /// Stopped once the counter has another value than now.
    explicit KXSearchStop(const std::atomic<quint64> &counter, quint64 mine)
        : m_counter(&counter)
        , m_mine(mine)
    {
    }
    [[nodiscard]] bool isDue() const { return m_counter && m_counter->load(std::memory_order_relaxed) != m_mine; }
    /// Thrown where the search ends because of it.
    struct Stopped
    {
    };
    void look() const
    {
        if (isDue())
            throw Stopped {};
    }

private:
    const std::atomic<quint64> *m_counter = nullptr;
    quint64 m_mine = 0;
};

/// The bytes of an index: in memory, or a mapped file whose blocks are verified when they are first read. Immutable;
/// any thread.
class KXSearchBytes
{
public:
    static constexpr qsizetype BlockSize = 16 << 10;
    /// Over one block; tells damage, not forgery.
    [[nodiscard]] static quint64 checksum(const char *data, qsizetype size);

    explicit KXSearchBytes(QByteArray bytes)
        : m_held(std::move(bytes))
        , m_data(m_held.constData())
        , m_size(m_held.size())
    {
    }
    /// Takes over the mapping. Blocks are counted from its beginning; those before `verifiedFrom` are not looked at.
    KXSearchBytes(const char *mapped, qsizetype size, std::vector<quint64> checksums, qsizetype verifiedFrom);
    ~KXSearchBytes();
    Q_DISABLE_COPY_MOVE(KXSearchBytes)

    [[nodiscard]] qsizetype size() const { return m_size; }
    [[nodiscard]] bool isMapped() const { return !m_checksums.empty(); }
    /// The bytes, verified. Throws KXSearchDamage where there are no such or they are damaged.
    [[nodiscard]] const char *at(qsizetype from, qsizetype size) const
    {
        if (from < 0 || size < 0 || from > m_size - size)
            throw KXSearchDamage {};
        if (!m_checksums.empty() && size > 0)
            verify(from, size);
        return m_data + from;
    }
    /// Verifies all.
    void verifyAll() const { (void)at(0, m_size); }

private:
    void verify(qsizetype from, qsizetype size) const;

    QByteArray m_held;
    const char *m_data;
    qsizetype m_size;
    std::vector<quint64> m_checksums; // a mapping's
    mutable std::vector<std::atomic<quint8>> m_verified;
};
