#pragma once

#include <memory>
#include <utility>

/// Lets a call that comes later ask whether somebody is still there who is neither a QObject (QPointer) nor counts
/// references (KXWeakRef, std::weak_ptr): a member whose watch goes along with the call.
///
/// Belongs to its owner, and is not copied with it. A watch may be copied and asked on any thread; what it answers
/// lasts only on the thread on which the owner ends.
class KXAlive
{
public:
    /// True as long as the owner is there.
    class Watch
    {
    public:
        explicit Watch(std::weak_ptr<const void> life)
            : m_life(std::move(life))
        {
        }
        explicit operator bool() const { return !m_life.expired(); }

    private:
        std::weak_ptr<const void> m_life;
    };

    KXAlive() = default;
    KXAlive(const KXAlive &)
        : KXAlive()
    {
    }
    // NOLINTNEXTLINE(bugprone-unhandled-self-assignment): a copy is alive for itself, so nothing is assigned
    KXAlive &operator=(const KXAlive &) { return *this; }

    [[nodiscard]] Watch watch() const { return Watch(m_life); }

private:
    std::shared_ptr<const char> m_life = std::make_shared<const char>();
};
