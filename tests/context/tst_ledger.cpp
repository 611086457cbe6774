// What may become of an object in the ledger of its context. What is allowed the walks do; this is about the rest.

#include <gtest/gtest.h>

#include <kestrixkit/context/KXManagedObjectContext_p.h>

#include "store/Library.h"

using namespace Qt::StringLiterals;

#if defined(KX_CHECKS) && !defined(KX_SANITIZED)

TEST(Ledger, endsTheProcessWhereATransitionBeginsWrongly)
{
    using Object = KXRef<KXManagedObject>;
    LibraryTest library;
    const auto updated = library.track(u"updated"_s), deleted = library.track(u"deleted"_s);
    const auto missing = library.track(u"missing"_s), stored = library.track(u"stored"_s);
    ASSERT_TRUE(library.context->save());
    updated->setTitle(u"edited"_s);
    library.context->removeManagedObject(deleted);
    library.context->refreshObject(missing.get());
    const auto other = library.otherContext();
    other->removeManagedObject(other->objectWithID(missing->objectID()));
    ASSERT_TRUE(other->save());
    ASSERT_TRUE(missing->isMissing());
    const std::map<QString, Object> states {
        { u"stored"_s, stored },
        { u"missing"_s, missing },
        { u"inserted"_s, library.track(u"inserted"_s) },
        { u"updated"_s, updated },
        { u"deleted"_s, deleted },
        { u"detached"_s, library.context->temporaryInstanceOfEntity(u"Track"_s) },
    };

    using Ledger = KXChangeLedger;
    struct Transition
    {
        const char *name;
        QStringList from; // others end the process
        std::function<void(Ledger &, const Object &)> begin;
    };
    const Transition transitions[] = {
        { "inserted", { u"stored"_s }, &Ledger::inserted },
        { "edited", { u"stored"_s, u"inserted"_s, u"updated"_s, u"deleted"_s },
            [](Ledger &ledger, const Object &object) { ledger.edited(object.get(), 0); } },
        { "deleted", { u"stored"_s, u"inserted"_s, u"updated"_s }, &Ledger::deleted },
        { "revived", { u"deleted"_s, u"detached"_s }, &Ledger::revived },
        { "saved", { u"inserted"_s, u"updated"_s },
            [](Ledger &ledger, const Object &object) { ledger.saved(object.get()); } },
        { "restored", { u"stored"_s, u"updated"_s, u"deleted"_s },
            [](Ledger &ledger, const Object &object) { ledger.restored(object.get()); } },
        { "missed", { u"stored"_s, u"missing"_s },
            [](Ledger &ledger, const Object &object) { ledger.missed(object.get()); } },
        { "vanished", { u"stored"_s, u"missing"_s, u"inserted"_s, u"updated"_s, u"deleted"_s },
            [](Ledger &ledger, const Object &object) { ledger.vanished(object.get()); } },
        { "detached", { u"stored"_s, u"missing"_s, u"inserted"_s, u"updated"_s, u"deleted"_s },
            [](Ledger &ledger, const Object &object) { ledger.detached(object.get()); } },
    };
    Ledger &ledger = KXManagedObjectContextPrivate::of(*library.context).ledger;
    for (const Transition &transition : transitions) {
        for (const auto &[state, object] : states) {
            SCOPED_TRACE(state.toStdString());
            if (!transition.from.contains(state)) {
                EXPECT_DEATH(transition.begin(ledger, object), std::string("cannot be ") + transition.name);
            }
        }
    }
}

#endif
