// What a merge costs the main thread: nothing is allocated for rows of which the context holds no object.

#include <cstdlib>
#include <span>
#include <thread>

#include <gtest/gtest.h>

#include <kestrixkit/store/KXPersistentStore.h>

#include "store/Library.h"

using namespace Qt::StringLiterals;

#if defined(__GLIBC__) && !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)

namespace {
constinit thread_local qint64 mergeCostAllocations = 0;
}

// Qt's containers call malloc, not operator new, so it is the C library's functions that are counted.
extern "C" {
void *__libc_malloc(size_t size);
void *__libc_calloc(size_t count, size_t size);
void *__libc_realloc(void *block, size_t size);
void *__libc_memalign(size_t alignment, size_t size);

__attribute__((visibility("default"))) void *malloc(size_t size) noexcept
{
    ++mergeCostAllocations;
    return __libc_malloc(size);
}

__attribute__((visibility("default"))) void *calloc(size_t count, size_t size) noexcept
{
    ++mergeCostAllocations;
    return __libc_calloc(count, size);
}

__attribute__((visibility("default"))) void *realloc(void *block, size_t size) noexcept
{
    ++mergeCostAllocations;
    return __libc_realloc(block, size);
}

__attribute__((visibility("default"))) void *aligned_alloc(size_t alignment, size_t size) noexcept
{
    ++mergeCostAllocations;
    return __libc_memalign(alignment, size);
}
}

namespace store_merge_cost_test {

/// A library of 10,200 tracks that other threads change; the context holds one of them, loaded.
class MergeCost : public testing::Test, protected LibraryTest
{
protected:
    using Changes = std::shared_ptr<const KXStoreChange>;

    MergeCost()
    {
        (void)saveElsewhere([this](KXManagedObjectContext &other) {
            for (int i = 0; i < 10'200; ++i)
                Track::createInContext(other)->setTitle(u"made"_s);
        });
        m_keys = Track::findAllInContext(*context).keys();
        held = Track::cast(context->objectWithID(objectID(m_keys.back())));
        EXPECT_EQ(held->title(), u"made"_s);
        (void)merge(update(std::span(m_keys).last(1), u"first"_s)); // whatever is made once is made now
    }

    template <typename Work> Changes saveElsewhere(Work work) const
    {
        Changes saved;
        const auto token = coordinator->addChangeObserver([&saved](const auto &change) { saved = change; });
        std::thread([&] {
            const auto other = otherContext();
            work(*other);
            EXPECT_TRUE(other->save(nullptr));
        }).join();
        return saved;
    }

    template <typename Work> Changes change(std::span<const qint64> keys, Work work) const
    {
        return saveElsewhere([&](KXManagedObjectContext &other) {
            for (const qint64 key : keys)
                work(other, Track::cast(other.objectWithID(objectID(key))));
        });
    }

    Changes update(std::span<const qint64> keys, const QString &title) const
    {
        return change(keys, [&title](KXManagedObjectContext &, const KXRef<Track> &track) {
            track->setTitle(title);
            track->setExtra(QVariantList { title, 1 });
        });
    }

    Changes insert(int number) const
    {
        return saveElsewhere([number](KXManagedObjectContext &other) {
            for (int i = 0; i < number; ++i)
                Track::createInContext(other)->setTitle(u"inserted"_s);
        });
    }

    Changes remove(std::span<const qint64> keys) const
    {
        return change(
            keys, [](KXManagedObjectContext &other, const KXRef<Track> &track) { other.removeManagedObject(track); });
    }

    /// How often the merge allocates on this thread.
    qint64 merge(const Changes &change) const
    {
        const qint64 before = mergeCostAllocations;
        context->mergeChangesFromStoreChange(change);
        return mergeCostAllocations - before;
    }

    [[nodiscard]] std::span<const qint64> few() const { return std::span(m_keys).first(100); }
    [[nodiscard]] std::span<const qint64> many() const { return std::span(m_keys).subspan(100, 10'000); }
    [[nodiscard]] std::span<const qint64> last() const { return std::span(m_keys).last(1); }

    KXRef<Track> held;

private:
    [[nodiscard]] KXManagedObjectID objectID(qint64 key) const
    {
        return { coordinator->store()->identity(), coordinator->model()->entity(u"Track"_s), key };
    }
    std::vector<qint64> m_keys;
};

TEST_F(MergeCost, isTheSameHoweverManyRowsAreNotHeld)
{
    // The one announcement, which carries the save along.
    const qint64 once = merge(update(few(), u"second"_s));
    EXPECT_LE(once, 4);
    EXPECT_EQ(merge(update(many(), u"second"_s)), once);
    // Inserted rows are announced by their keys, in one list.
    EXPECT_EQ(merge(insert(100)), merge(insert(10'000)));
    EXPECT_EQ(merge(remove(few())), once);
    EXPECT_EQ(merge(remove(many())), once);

    EXPECT_GT(merge(update(last(), u"third"_s)), once) << "the counter counts";
    EXPECT_EQ(held->title(), u"third"_s);
}

}

#else

TEST(MergeCost, isTheSameHoweverManyRowsAreNotHeld)
{
    GTEST_SKIP() << "a sanitizer, or another C library, has the functions that would be counted";
}

#endif
