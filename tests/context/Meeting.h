#pragma once

#include <gtest/gtest.h>

#include <kestrixkit/foundation/KXNotificationCenter.h>

#include "store/Library.h"

/// What is wrong in the store; empty for a sound one.
std::string problemsOf(const QUrl &url);

/// The library with a second context; what each of them saves is kept, to be merged when the test wants it.
class Meeting : public LibraryTest
{
public:
    using Change = std::shared_ptr<const KXStoreChange>;

    Meeting()
    {
        m_token = coordinator->addChangeObserver([this](const auto &change) { saved.push_back(change); });
    }
    void mergeInto(const KXManagedObjectContext::Ref &into, std::initializer_list<size_t> places)
    {
        for (const size_t place : places)
            into->mergeChangesFromStoreChange(saved.at(place));
    }
    void expectSound(const char *when)
    {
        EXPECT_EQ(problemsOf(url()), std::string()) << when;
        EXPECT_EQ(Library::dump(*context), Library::dump(*otherContext())) << when;
    }
    KXManagedObjectContext::Ref other = otherContext();
    std::vector<Change> saved;

private:
    KXPersistentStoreCoordinator::ChangeToken m_token;
};

/// The object as another context has it.
template <class T> KXRef<T> in(const KXManagedObjectContext::Ref &context, const KXRef<T> &object)
{
    return T::cast(context->objectWithID(object->objectID()));
}

/// All that a context announces.
class Announced : public KXObjectsDidChange
{
public:
    explicit Announced(const KXManagedObjectContext::Ref &context)
        : m_token(KXNotificationCenter::defaultCenter().addObserver(
            QString(KXManagedObjectContextObjectsDidChangeNotification), context.get(),
            [this](const KXNotification &posted) { add(*posted.payloadAs<KXObjectsDidChange>()); }))
    {
    }

private:
    void add(const KXObjectsDidChange &did);

    KXNotificationToken m_token;
};
