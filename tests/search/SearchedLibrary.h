/// A library that changes at random, and a search of it by hand.
#pragma once

#include <kestrixkit/foundation/KXUndoManager.h>
#include <kestrixkit/search/KXSearchIndex.h>

#include "store/Library.h"
#include "support/KXTestRandom.h"

class SearchedLibrary
{
public:
    explicit SearchedLibrary(KXTestRandom &randomNumbers)
        : random(randomNumbers)
    {
    }

    /// Tracks by all that they lead to, people and genres.
    [[nodiscard]] static QList<KXSearchGroup> groups();
    /// What groups() must find, by looking at every object that a fetch gives.
    [[nodiscard]] static KXSearchResults scan(
        KXManagedObjectContext &context, const QString &term, qsizetype limit, bool mayBeInside = true);
    /// Group, number and keys, a line each.
    [[nodiscard]] static QStringList lines(const KXSearchResults &results);

    [[nodiscard]] QString text();
    [[nodiscard]] QString term();
    void fill(Track &track);
    void fill(KXManagedObjectContext &context, int tracks);
    /// One change; only of a context that `mayDelete` do objects go that others lead to. Whether some
    /// did is answered: contexts that do not know of it are of no use any more.
    bool edit(KXManagedObjectContext &context, bool mayDelete);

    KXTestRandom &random;
    std::string log; ///< kinds of changes

private:
    template <class T> KXRef<T> any(KXManagedObjectContext &context)
    {
        const auto list = context.fetch(KXFetchRequest(QString(T::entityName)));
        return list.isEmpty() ? KXRef<T>() : list.template as<T>(random.below(int(list.size())));
    }
};
