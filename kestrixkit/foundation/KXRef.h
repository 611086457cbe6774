#pragma once

#include <atomic>
#include <compare>
#include <concepts>
#include <functional>
#include <utility>

#include <QHashFunctions>

#include <kestrixkit/foundation/KXGlobal.h>

/// A strong handle on an object that counts its references inside: T has `void ref() const noexcept` and
/// `void deref() const noexcept`, and deref ends (or releases) the object when the last handle goes.
///
/// As large as a pointer; may be empty. Whether handles of one object may live on several threads is T's matter.
template <typename T> class KXRef
{
public:
    using element_type = T;

    constexpr KXRef() noexcept = default;
    constexpr KXRef(std::nullptr_t) noexcept { }
    /// Takes a reference of its own.
    explicit KXRef(T *object) noexcept
        : m_object(object)
    {
        if (m_object)
            m_object->ref();
    }
    /// Takes over a reference that somebody already holds for us.
    [[nodiscard]] static KXRef adopt(T *object) noexcept
    {
        KXRef ref;
        ref.m_object = object;
        return ref;
    }

    KXRef(const KXRef &other) noexcept
        : KXRef(other.m_object)
    {
    }
    KXRef(KXRef &&other) noexcept
        : m_object(std::exchange(other.m_object, nullptr))
    {
    }
    template <typename U>
    requires std::convertible_to<U *, T *> KXRef(const KXRef<U> &other)
    noexcept
        : KXRef(static_cast<T *>(other.get()))
    {
    }
    template <typename U>
    requires std::convertible_to<U *, T *> KXRef(KXRef<U> &&other)
    noexcept
        : m_object(other.release())
    {
    }
    ~KXRef() { reset(); }

    KXRef &operator=(KXRef other) noexcept
    {
        std::swap(m_object, other.m_object);
        return *this;
    }

    void reset() noexcept
    {
        // Emptied first: ending the object may lead back to this handle.
        if (T *object = std::exchange(m_object, nullptr))
            object->deref();
    }
    /// Gives the reference away: the caller owes the object a deref.
    [[nodiscard]] T *release() noexcept { return std::exchange(m_object, nullptr); }

    [[nodiscard]] T *get() const noexcept { return m_object; }
    T *operator->() const noexcept { return m_object; }
    T &operator*() const noexcept { return *m_object; }
    explicit operator bool() const noexcept { return m_object != nullptr; }

    template <typename U> friend bool operator==(const KXRef &a, const KXRef<U> &b) noexcept
    {
        return a.get() == b.get();
    }
    friend bool operator==(const KXRef &a, const T *b) noexcept { return a.get() == b; }
    friend bool operator==(const KXRef &a, std::nullptr_t) noexcept { return !a.get(); }
    friend std::strong_ordering operator<=>(const KXRef &a, const KXRef &b) noexcept
    {
        return std::compare_three_way {}(a.get(), b.get());
    }
    friend size_t qHash(const KXRef &ref, size_t seed = 0) noexcept { return ::qHash(ref.get(), seed); }

private:
    T *m_object = nullptr;
};

/// \cond for std::unordered_map and the like
template <typename T> struct std::hash<KXRef<T>>
{
    size_t operator()(const KXRef<T> &ref) const noexcept { return std::hash<T *> {}(ref.get()); }
};
/// \endcond

template <typename T, typename U> [[nodiscard]] KXRef<T> KXStaticRefCast(const KXRef<U> &ref) noexcept
{
    return KXRef<T>(static_cast<T *>(ref.get()));
}

/// Empty when the object is no T.
template <typename T, typename U> [[nodiscard]] KXRef<T> KXDynamicRefCast(const KXRef<U> &ref) noexcept
{
    return KXRef<T>(dynamic_cast<T *>(ref.get()));
}

template <typename T, typename... Arguments> [[nodiscard]] KXRef<T> KXMakeRef(Arguments &&...arguments)
{
    return KXRef<T>(new T(std::forward<Arguments>(arguments)...));
}

/// An atomic reference count to derive from. A new object has none; it goes with its last handle.
class KX_CORE_EXPORT KXRefCounted
{
public:
    void ref() const noexcept { m_references.fetch_add(1, std::memory_order_relaxed); }
    void deref() const noexcept
    {
        if (m_references.fetch_sub(1, std::memory_order_acq_rel) == 1)
            const_cast<KXRefCounted *>(this)->destroyWhenUnreferenced();
    }
    /// Takes a reference unless there is none left, as weak handles must. False: the object is about to go.
    [[nodiscard]] bool tryRef() const noexcept
    {
        int references = m_references.load(std::memory_order_relaxed);
        while (references > 0) {
            if (m_references.compare_exchange_weak(references, references + 1, std::memory_order_acq_rel))
                return true;
        }
        return false;
    }
    [[nodiscard]] int referenceCount() const noexcept { return m_references.load(std::memory_order_relaxed); }

protected:
    KXRefCounted() = default;
    KXRefCounted(const KXRefCounted &) { } // a copy has handles of its own
    KXRefCounted &operator=(const KXRefCounted &) { return *this; }
    virtual ~KXRefCounted();

    /// Called when the last handle has gone: deletes the object unless overridden.
    virtual void destroyWhenUnreferenced() noexcept;

private:
    mutable std::atomic<int> m_references { 0 };
};
