/// Other rings, with blocks of four channels: each holds half a megabyte, and takes and gives a block as one piece.
#pragma once

#include <cstdlib>
#include <vector>

#include <boost/lockfree/spsc_queue.hpp>
#include <jack/ringbuffer.h>

namespace plain {

inline constexpr size_t RingBytes = 512 * 1024;

/// What both sides copy from and to.
class RingBlock
{
protected:
    explicit RingBlock(unsigned frames)
        : m_source(frames * size_t(4), 0.5F)
        , m_destination(m_source.size())
    {
    }
    [[nodiscard]] size_t bytes() const { return m_source.size() * sizeof(float); }

    std::vector<float> m_source, m_destination;
};

class JackRing : RingBlock
{
public:
    explicit JackRing(unsigned frames)
        : RingBlock(frames)
        , m_ring(jack_ringbuffer_create(RingBytes))
    {
        if (!m_ring)
            std::exit(1);
    }
    ~JackRing() { jack_ringbuffer_free(m_ring); }

    bool write()
    {
        if (jack_ringbuffer_write_space(m_ring) < bytes())
            return false;
        return jack_ringbuffer_write(m_ring, reinterpret_cast<const char *>(m_source.data()), bytes()) == bytes();
    }
    bool read()
    {
        if (jack_ringbuffer_read_space(m_ring) < bytes())
            return false;
        return jack_ringbuffer_read(m_ring, reinterpret_cast<char *>(m_destination.data()), bytes()) == bytes();
    }

private:
    jack_ringbuffer_t *m_ring;
};

class BoostRing : RingBlock
{
public:
    explicit BoostRing(unsigned frames)
        : RingBlock(frames)
        , m_ring(RingBytes / sizeof(float))
    {
    }

    bool write()
    {
        if (m_ring.write_available() < m_source.size())
            return false;
        return m_ring.push(m_source.data(), m_source.size()) == m_source.size();
    }
    bool read()
    {
        if (m_ring.read_available() < m_destination.size())
            return false;
        return m_ring.pop(m_destination.data(), m_destination.size()) == m_destination.size();
    }

private:
    boost::lockfree::spsc_queue<float> m_ring;
};

}
