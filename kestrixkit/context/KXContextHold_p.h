#pragma once

#include <utility>

#include <kestrixkit/context/KXManagedObject.h>

/// How a context holds the objects that it must not lose: by a reference, like everybody else.
///
/// The objects of a child context belong to it until it ends, and handles on them keep it. It is not among their
/// holders itself, or it would keep itself for ever: a hold on such an object takes no reference.
class KXContextHold
{
public:
    explicit KXContextHold(KXManagedObject *object = nullptr)
        : m_object(quintptr(object) | quintptr(object && object->belongsToContext()))
    {
        if (isCounted())
            object->ref();
    }
    KXContextHold(const KXRef<KXManagedObject> &object)
        : KXContextHold(object.get())
    {
    }
    KXContextHold(const KXContextHold &other)
        : m_object(other.m_object)
    {
        if (isCounted())
            get()->ref();
    }
    KXContextHold(KXContextHold &&other) noexcept
        : m_object(std::exchange(other.m_object, 0))
    {
    }
    KXContextHold &operator=(KXContextHold other) noexcept
    {
        std::swap(m_object, other.m_object);
        return *this;
    }
    ~KXContextHold()
    {
        if (isCounted())
            get()->deref();
    }

    [[nodiscard]] KXManagedObject *get() const { return reinterpret_cast<KXManagedObject *>(m_object & ~uncounted); }
    KXManagedObject *operator->() const { return get(); }
    explicit operator bool() const { return m_object != 0; }
    operator KXRef<KXManagedObject>() const { return KXRef<KXManagedObject>(get()); }
    friend bool operator==(const KXContextHold &a, const KXRef<KXManagedObject> &b) { return a.get() == b.get(); }
    friend bool operator==(const KXContextHold &a, const KXManagedObject *b) { return a.get() == b; }

private:
    static constexpr quintptr uncounted = 1;
    [[nodiscard]] bool isCounted() const { return m_object && !(m_object & uncounted); }

    quintptr m_object; // with the lowest bit set where no reference is taken
};
