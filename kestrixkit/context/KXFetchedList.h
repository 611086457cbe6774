#pragma once

#include <iterator>
#include <memory>
#include <vector>

#include <kestrixkit/context/KXManagedObject.h>

class KXPersistentStoreCoordinator;

/// The result of a fetch: identifiers and their number, eight bytes a row; objects come into being as they are
/// touched, a batch at a time, and are not kept by the list.
///
/// A small shared value. Belongs to the thread of its context; after the context is gone it answers no objects.
class KX_CORE_EXPORT KXFetchedList
{
public:
    /// A list that is no result, as a failed fetch answers.
    KXFetchedList() = default;
    KXFetchedList(std::weak_ptr<KXManagedObjectContext> context, const KXEntityDescription *entity,
        std::vector<qint64> keys, int batchSize);

    /// True for a failed fetch; an empty result is not null.
    [[nodiscard]] bool isNull() const { return !m_data; }
    [[nodiscard]] qsizetype size() const { return m_data ? qsizetype(m_data->keys.size()) : 0; }
    [[nodiscard]] qsizetype count() const { return size(); }
    [[nodiscard]] bool isEmpty() const { return size() == 0; }

    /// The object at the place, its values in memory; empty outside the list.
    [[nodiscard]] KXRef<KXManagedObject> at(qsizetype index) const;
    [[nodiscard]] KXRef<KXManagedObject> operator[](qsizetype index) const { return at(index); }
    [[nodiscard]] KXRef<KXManagedObject> first() const { return at(0); }
    /// The object as a stored class; empty where it is of another one.
    template <class Class> [[nodiscard]] KXRef<Class> as(qsizetype index) const
    {
        return KXDynamicRefCast<Class>(at(index));
    }

    /// The row's key, without making an object.
    [[nodiscard]] qint64 key(qsizetype index) const { return m_data->keys[size_t(index)]; }
    [[nodiscard]] KXManagedObjectID objectID(qsizetype index) const;
    /// All keys in the order of the list.
    [[nodiscard]] const std::vector<qint64> &keys() const &;
    [[nodiscard]] std::vector<qint64> keys() && { return std::as_const(*this).keys(); }

    /// Brings objects into being as it reaches them, a batch at a time; one pass.
    class const_iterator
    {
    public:
        using iterator_category = std::input_iterator_tag;
        using value_type = KXRef<KXManagedObject>;
        using difference_type = qsizetype;
        using pointer = void;
        using reference = value_type;
        const_iterator(const KXFetchedList *list, qsizetype index)
            : m_list(list)
            , m_index(index)
        {
        }
        value_type operator*() const { return m_list->at(m_index); }
        const_iterator &operator++()
        {
            ++m_index;
            return *this;
        }
        bool operator==(const const_iterator &other) const { return m_index == other.m_index; }

    private:
        const KXFetchedList *m_list;
        qsizetype m_index;
    };
    [[nodiscard]] const_iterator begin() const { return { this, 0 }; }
    [[nodiscard]] const_iterator end() const { return { this, size() }; }

private:
    struct Data
    {
        std::weak_ptr<KXManagedObjectContext> context;
        KXManagedObjectContext *borrowed; // the same, to be used only after the weak one was asked
        const KXEntityDescription *entity;
        std::shared_ptr<KXPersistentStoreCoordinator> coordinator; // keeps the entity alive
        std::vector<qint64> keys;
        int batchSize;
    };
    std::shared_ptr<const Data> m_data;
};

/// The same, of objects of a stored class: what that class's own helpers answer. An object of another class, because
/// its entity was never registered, is an empty handle.
template <class Class> class KXFetchedListOf : public KXFetchedList
{
public:
    KXFetchedListOf() = default;
    explicit KXFetchedListOf(KXFetchedList list)
        : KXFetchedList(std::move(list))
    {
    }

    [[nodiscard]] KXRef<Class> at(qsizetype index) const { return as<Class>(index); }
    [[nodiscard]] KXRef<Class> operator[](qsizetype index) const { return at(index); }
    [[nodiscard]] KXRef<Class> first() const { return at(0); }
    /// All of them at once: for lists that are short.
    [[nodiscard]] QList<KXRef<Class>> toList() const { return QList<KXRef<Class>>(begin(), end()); }

    /// As the untyped one.
    class const_iterator : public KXFetchedList::const_iterator
    {
    public:
        using value_type = KXRef<Class>;
        using reference = value_type;
        using KXFetchedList::const_iterator::const_iterator;
        value_type operator*() const { return KXDynamicRefCast<Class>(KXFetchedList::const_iterator::operator*()); }
        const_iterator &operator++()
        {
            KXFetchedList::const_iterator::operator++();
            return *this;
        }
        void operator++(int) { ++*this; }
    };
    [[nodiscard]] const_iterator begin() const { return { this, 0 }; }
    [[nodiscard]] const_iterator end() const { return { this, size() }; }
};
