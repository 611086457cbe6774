#include <thread>

#include <QCoreApplication>
#include <gtest/gtest.h>

#include <kestrixkit/foundation/KXMainQueue.h>
#include <kestrixkit/foundation/KXUndoManager.h>

#include <support/KXTestLog.h>
#include <support/KXTestPrint.h>
#include <support/KXTestRandom.h>

using namespace Qt::StringLiterals;

namespace undo_test {

/// A number whose changes are facts, as a context's are.
class Number
{
public:
    explicit Number(KXUndoManager &manager)
        : m_manager(manager)
    {
    }
    void set(int value)
    {
        m_manager.addStep(std::make_unique<Fact>(*this, m_value));
        m_value = value;
    }
    int value() const { return m_value; }

private:
    class Fact : public KXUndoFact
    {
    public:
        Fact(Number &number, int before)
            : m_number(number)
            , m_before(before)
        {
        }
        std::unique_ptr<KXUndoFact> revert() override
        {
            return std::make_unique<Fact>(m_number, std::exchange(m_number.m_value, m_before));
        }
        const void *target() const override { return &m_number; }

    private:
        Number &m_number;
        const int m_before;
    };
    KXUndoManager &m_manager;
    int m_value = 0;
};

/// The host's way: each setting registers the one that undoes it.
void setText(KXUndoManager &manager, QObject *object, const QString &text)
{
    manager.registerUndo(
        object, [&manager, object, before = object->objectName()] { setText(manager, object, before); });
    object->setObjectName(text);
}

TEST(Undo, groupsNestAndEmptyOnesLeaveNothing)
{
    KXUndoManager manager;
    Number number(manager);
    {
        const KXUndoGroup outer(&manager, u"Move Items"_s);
        number.set(1);
        {
            const KXUndoGroup inner(&manager);
            number.set(2);
        }
        EXPECT_EQ(manager.groupingLevel(), 1);
        number.set(3);
    }
    {
        const KXUndoGroup empty(&manager, u"Nothing"_s);
        const KXUndoGroup inner(&manager);
    }
    EXPECT_EQ(manager.undoMenuItemTitle(), u"Undo Move Items"_s);
    manager.undo();
    EXPECT_EQ(number.value(), 0);
    EXPECT_FALSE(manager.canUndo());
    EXPECT_EQ(manager.undoMenuItemTitle(), u"Undo"_s);
    EXPECT_EQ(manager.redoMenuItemTitle(), u"Redo Move Items"_s);
    manager.undo(); // nothing there
    manager.redo();
    EXPECT_EQ(number.value(), 3);
    EXPECT_EQ(manager.undoActionName(), u"Move Items"_s);
    manager.undo();
    number.set(7); // another future
    EXPECT_FALSE(manager.canRedo());
}

TEST(Undo, namesMayComeAfterTheGroupWasClosed)
{
    KXUndoManager manager;
    Number number(manager);
    const auto change = [&](const QString &name) {
        manager.beginUndoGrouping();
        number.set(number.value() + 1);
        manager.endUndoGrouping();
        manager.setActionName(name);
    };
    change(u"one"_s);
    QCoreApplication::processEvents(); // even in a later turn
    manager.setActionName(u"first"_s);
    change(u"second"_s);

    // A group that stayed empty must not give its name to what was done before, nor must bookkeeping.
    manager.beginUndoGrouping();
    manager.endUndoGrouping();
    manager.setActionName(u"empty"_s);
    {
        const KXUndoRegistrationOff off(&manager);
        number.set(10);
        manager.setActionName(u"off"_s);
    }
    EXPECT_EQ(manager.undoActionName(), u"second"_s);
    manager.undo();
    manager.setActionName(u"undone"_s);
    EXPECT_EQ(manager.undoActionName(), u"first"_s);
    EXPECT_EQ(manager.redoActionName(), u"second"_s);
}

TEST(Undo, whatIsOutsideGroupsFormsOneStepATurn)
{
    KXUndoManager manager;
    Number number(manager);
    const auto turn = [] { QCoreApplication::processEvents(); };
    number.set(1);
    number.set(2);
    manager.setActionName(u"typing"_s);
    EXPECT_TRUE(manager.canUndo());
    EXPECT_EQ(manager.undoActionName(), u"typing"_s);
    turn();
    number.set(3);
    {
        const KXUndoGroup group(&manager, u"group"_s); // begins a step of its own
        turn(); // and is not closed by the end of a turn
        number.set(4);
    }
    number.set(5); // in the same turn, after the group
    manager.undo(); // closes the turn's step itself
    EXPECT_EQ(number.value(), 4);
    manager.undo();
    EXPECT_EQ(number.value(), 3);
    manager.undo();
    EXPECT_EQ(number.value(), 2);
    EXPECT_EQ(manager.undoActionName(), u"typing"_s);
    manager.undo();
    EXPECT_EQ(number.value(), 0);

    manager.setGroupsByEvent(false);
    number.set(1);
    turn();
    number.set(2);
    manager.undo();
    EXPECT_EQ(number.value(), 0);
}

TEST(Undo, onAnotherThreadAStepLastsUntilTheNextBoundary)
{
    std::thread([] {
        KXUndoManager manager;
        Number number(manager);
        number.set(1);
        number.set(2);
        {
            const KXUndoGroup group(&manager);
            number.set(3);
        }
        manager.undo();
        EXPECT_EQ(number.value(), 2);
        manager.undo();
        EXPECT_EQ(number.value(), 0);
    }).join();
}

TEST(Undo, registrationOffIsCounted)
{
    const KXTestLog log;
    KXUndoManager manager;
    Number number(manager);
    {
        const KXUndoRegistrationOff outer(&manager);
        try {
            const KXUndoRegistrationOff inner(&manager);
            throw std::runtime_error("on the way out");
        } catch (const std::exception &) {
        }
        EXPECT_FALSE(manager.isUndoRegistrationEnabled()); // the inner section must not switch it on for the outer
        number.set(1);
    }
    EXPECT_TRUE(manager.isUndoRegistrationEnabled());
    EXPECT_FALSE(manager.canUndo());
    manager.enableUndoRegistration();
    manager.disableUndoRegistration();
    EXPECT_FALSE(manager.isUndoRegistrationEnabled()); // one on too many does not count
    EXPECT_EQ(log.lines().size(), 1);

    const KXUndoRegistrationOff none(nullptr);
    const KXUndoGroup noGroup(nullptr, u"none"_s);
    auto gone = std::make_unique<KXUndoManager>();
    const KXUndoRegistrationOff off(gone.get());
    const KXUndoGroup group(gone.get());
    gone.reset();
}

TEST(Undo, hostsRegisterFunctionsAndTargetsMayGo)
{
    KXUndoManager manager;
    auto first = std::make_unique<QObject>();
    QObject second;
    {
        const KXUndoGroup group(&manager, u"Rename"_s);
        setText(manager, first.get(), u"a"_s);
        setText(manager, &second, u"b"_s);
    }
    manager.undo();
    EXPECT_EQ(first->objectName(), QString());
    manager.redo();
    EXPECT_EQ(first->objectName(), u"a"_s);
    first.reset();
    manager.undo();
    EXPECT_EQ(second.objectName(), QString());
    manager.redo();
    EXPECT_EQ(second.objectName(), u"b"_s);
    EXPECT_EQ(manager.undoActionName(), u"Rename"_s);

    struct Counted : KXObservable, KXRefCounted
    {
        void destroyWhenUnreferenced() noexcept override
        {
            endWeakHandles();
            delete this;
        }
    };
    int calls = 0;
    auto counted = KXMakeRef<Counted>();
    manager.registerUndo(counted, [&] { ++calls; });
    manager.undo();
    EXPECT_EQ(calls, 1);
    manager.registerUndo(counted, [&] { ++calls; });
    counted.reset(); // registering does not keep it
    manager.undo();
    EXPECT_EQ(calls, 1);
}

TEST(Undo, whatThrowsOrMisbehavesLeavesTheStackInOrder)
{
    const KXTestLog log;
    KXUndoManager manager;
    Number number(manager);
    try {
        const KXUndoGroup group(&manager, u"half"_s);
        number.set(1);
        throw 1;
    } catch (int) {
    }
    EXPECT_EQ(manager.groupingLevel(), 0);
    EXPECT_EQ(manager.undoActionName(), u"half"_s);
    manager.endUndoGrouping();
    EXPECT_EQ(log.lines().size(), 1);

    manager.beginUndoGrouping();
    manager.undo(); // refused
    manager.registerUndo([&] { number.set(20); });
    manager.registerUndo([] { throw std::runtime_error("a host's mistake"); });
    manager.registerUndo([&] {
        manager.undo(); // refused as well
        manager.beginUndoGrouping(); // and left open
        manager.setActionName(u"not now"_s);
    });
    manager.endUndoGrouping();
    manager.setActionName(u"odd"_s);
    EXPECT_EQ(number.value(), 1);
    manager.undo();
    EXPECT_EQ(number.value(), 20);
    EXPECT_TRUE(log.contains(u"a host's mistake"_s));
    EXPECT_FALSE(manager.isUndoing());
    EXPECT_EQ(manager.groupingLevel(), 0);
    EXPECT_EQ(manager.redoActionName(), u"odd"_s);
    manager.redo();
    EXPECT_EQ(number.value(), 1);
    EXPECT_EQ(log.lines().size(), 5);
    manager.undo();
    manager.undo();
    EXPECT_EQ(number.value(), 0);

    // Everything is forgotten in the midst of it.
    manager.beginUndoGrouping();
    number.set(5);
    manager.registerUndo([&] { manager.removeAllActions(); });
    manager.endUndoGrouping();
    manager.undo();
    EXPECT_EQ(number.value(), 5);
    EXPECT_FALSE(manager.canUndo() || manager.canRedo());
}

TEST(Undo, boundariesComeBeforeWhatTheySeparate)
{
    KXUndoManager manager;
    Number number(manager);
    // Records as a context does: changes become facts at the next boundary.
    int pending = 0;
    int told = 0;
    auto token = manager.addBoundaryObserver([&] {
        ++told;
        manager.setGroupsByEvent(true); // may call back
        if (const int value = std::exchange(pending, 0))
            number.set(value);
    });
    auto throws = manager.addBoundaryObserver([] { throw std::runtime_error("an observer's mistake"); });
    const KXTestLog log;
    const auto change = [&](int value) {
        pending = value;
        manager.willAddStep();
    };
    change(1);
    EXPECT_TRUE(manager.canUndo());
    {
        const KXUndoGroup group(&manager);
        change(2);
    }
    {
        change(3);
        const KXUndoRegistrationOff off(&manager);
        change(4); // not recorded
    }
    manager.undo();
    EXPECT_EQ(number.value(), 2);
    manager.undo();
    EXPECT_EQ(number.value(), 1);
    manager.undo();
    EXPECT_EQ(number.value(), 0);
    EXPECT_FALSE(manager.canUndo());
    change(5);
    told = 0;
    QCoreApplication::processEvents();
    EXPECT_EQ(told, 1); // the end of the turn
    EXPECT_EQ(number.value(), 5);
    EXPECT_FALSE(manager.canRedo());
    change(6);
    manager.redo(); // what is pending has ended that future
    EXPECT_EQ(number.value(), 6);
    change(7);
    manager.removeAllActions();
    EXPECT_EQ(number.value(), 7);
    EXPECT_FALSE(manager.canUndo());
    EXPECT_TRUE(log.contains(u"an observer's mistake"_s));
    token.reset();
    told = 0;
    manager.beginUndoGrouping();
    manager.endUndoGrouping();
    EXPECT_EQ(told, 0);
}

TEST(Undo, forgetsWhatItIsTold)
{
    KXUndoManager manager;
    Number a(manager);
    Number b(manager);
    const auto both = [&](int value) {
        const KXUndoGroup group(&manager, QString::number(value));
        a.set(value);
        b.set(value);
    };
    both(1);
    {
        const KXUndoGroup group(&manager, u"only a"_s);
        a.set(2);
    }
    manager.removeAllActionsWithTarget(&a);
    EXPECT_EQ(manager.undoActionName(), u"1"_s);
    manager.undo();
    EXPECT_EQ(a.value(), 2);
    EXPECT_EQ(b.value(), 0);

    for (int i = 1; i <= 5; ++i)
        both(i);
    manager.setLevelsOfUndo(3);
    both(6);
    while (manager.canUndo())
        manager.undo();
    EXPECT_EQ(a.value(), 3);
    while (manager.canRedo())
        manager.redo();
    EXPECT_EQ(a.value(), 6);
    manager.setLevelsOfUndo(0);
    for (int i = 0; i < 200; ++i)
        both(i);
    for (int i = 0; i < 203; ++i)
        manager.undo();
    EXPECT_FALSE(manager.canUndo());
}

TEST(Undo, announcesWhatMenusShow)
{
    KXUndoManager manager;
    Number number(manager);
    const auto state = [&] {
        return u"%1 %2 %3 %4"_s.arg(manager.canUndo())
            .arg(manager.undoActionName())
            .arg(manager.canRedo())
            .arg(manager.redoActionName());
    };
    QString shown = state();
    QObject::connect(&manager, &KXUndoManager::changed, [&] { shown = state(); });
    KXTestRandom random;
    for (int i = 0; i < 300; ++i) {
        switch (random.between(0, 9)) {
        case 0:
            manager.undo();
            break;
        case 1:
            manager.redo();
            break;
        case 2: {
            const KXUndoGroup group(&manager, QString::number(i));
            if (random.chance(0.7))
                number.set(i);
            break;
        }
        case 3:
            number.set(i);
            break;
        case 4:
            manager.willAddStep();
            break;
        case 5:
            manager.setActionName(QString::number(i));
            break;
        case 6:
            manager.setLevelsOfUndo(random.between(0, 4));
            break;
        case 7:
            QCoreApplication::processEvents();
            break;
        case 8:
            if (random.chance(0.2))
                manager.removeAllActionsWithTarget(&number);
            break;
        default: {
            const KXUndoRegistrationOff off(&manager);
            manager.setActionName(u"off"_s);
        }
        }
        ASSERT_EQ(shown, state()) << "after round " << i;
    }
}

}
