#pragma once

#include <memory>
#include <mutex>

#include <kestrixkit/foundation/KXRef.h>

class KXObservable;

/// What weak handles share with their object: whether it still lives. Made when the first weak handle is.
class KX_CORE_EXPORT KXWeakAnchor
{
public:
    explicit KXWeakAnchor(KXObservable *object)
        : m_object(object)
    {
    }

    /// Runs fn while the object cannot be taken away; false when it has gone. Any thread.
    template <typename Function> bool whileAlive(Function &&fn) const
    {
        const std::lock_guard lock(m_mutex);
        return m_object && fn();
    }
    /// The object, null once its destruction has begun. Only of use on the object's own thread.
    [[nodiscard]] KXObservable *object() const
    {
        const std::lock_guard lock(m_mutex);
        return m_object;
    }
    void objectIsGone()
    {
        const std::lock_guard lock(m_mutex);
        m_object = nullptr;
    }

private:
    mutable std::mutex m_mutex;
    KXObservable *m_object;
};

/// A weak handle on an object that derives from KXObservable and counts its references inside. T has, beyond
/// ref and deref, `bool tryRef() const noexcept`, which takes a reference unless the object is about to go
/// (KXRefCounted brings it).
///
/// Made on the object's own thread; copied, locked and dropped on any. Costs an object nothing until the
/// first is made.
template <typename T> class KXWeakRef
{
public:
    KXWeakRef() = default;
    KXWeakRef(std::nullptr_t) { }
    explicit KXWeakRef(T *object)
        : m_object(object)
        , m_anchor(object ? object->weakAnchor() : nullptr)
    {
    }
    KXWeakRef(const KXRef<T> &ref)
        : KXWeakRef(ref.get())
    {
    }

    /// A strong handle; empty once the object is being destroyed or its count has reached 0.
    [[nodiscard]] KXRef<T> lock() const
    {
        if (m_anchor && m_anchor->whileAlive([this] { return m_object->tryRef(); }))
            return KXRef<T>::adopt(m_object);
        return {};
    }
    [[nodiscard]] bool expired() const { return !m_anchor || !m_anchor->object(); }
    void reset() { *this = {}; }

private:
    T *m_object = nullptr; // only to be used while the anchor says so
    std::shared_ptr<KXWeakAnchor> m_anchor;
};
