#include <kestrixkit/foundation/KXUndoManager.h>

#include <QThread>

#include <kestrixkit/foundation/KXCheck.h>
#include <kestrixkit/foundation/KXLog.h>
#include <kestrixkit/foundation/KXMainQueue.h>
#include <kestrixkit/foundation/KXRunCaught_p.h>

namespace {

/// What a host registers; whether its target still lives is the function's affair.
class UndoFunction : public KXUndoFact
{
public:
    UndoFunction(const void *target, std::function<void()> function)
        : m_target(target)
        , m_function(std::move(function))
    {
    }
    std::unique_ptr<KXUndoFact> revert() override
    {
        m_function();
        return nullptr;
    }
    const void *target() const override { return m_target; }

private:
    const void *const m_target;
    const std::function<void()> m_function;
};

}

/// Those who are told of boundaries. Shared with their tokens, which may outlive the manager.
struct KXUndoManager::Boundary
{
    struct Observer
    {
        std::function<void()> function;
        bool ended = false;
    };
    std::vector<std::shared_ptr<Observer>> observers;
    bool isTelling = false;
};

KXUndoFact::~KXUndoFact() = default;
const void *KXUndoFact::target() const { return nullptr; }

KXUndoManager::KXUndoManager(QObject *parent)
    : KXObject(parent)
    , m_boundary(std::make_shared<Boundary>())
{
}

KXUndoManager::~KXUndoManager() = default;

// ------------------------------------------------------------------------------------------------ recording

void KXUndoManager::beginUndoGrouping()
{
    boundary();
    if (m_state == State::Recording && m_depth == 0) {
        closeStepOfTurn();
        openStep(false);
    }
    ++m_depth;
}

void KXUndoManager::endUndoGrouping()
{
    if (m_depth == 0) {
        KXLogWarning(foundation, "An undo group was ended that had not begun");
        return;
    }
    boundary();
    if (--m_depth == 0 && m_state == State::Recording)
        closeStep();
}

void KXUndoManager::addStep(std::unique_ptr<KXUndoFact> fact)
{
    KX_CHECK(thread() == QThread::currentThread(), "An undo manager was used on another thread than its own");
    if (!fact || m_off > 0)
        return;
    if (m_state != State::Recording) {
        m_step.facts.push_back(std::move(fact));
        return;
    }
    if (!m_isOpen)
        openStep(true);
    // What was undone before has another future now.
    const Stack forgotten = std::exchange(m_redo, {});
    m_step.facts.push_back(std::move(fact));
    if (!forgotten.empty() || (m_ofTurn && m_step.facts.size() == 1))
        Q_EMIT changed();
}

void KXUndoManager::willAddStep()
{
    if (m_announced || m_off > 0 || m_depth > 0 || m_state != State::Recording)
        return;
    m_announced = true;
    queueTurnEnd();
    Q_EMIT changed();
}

void KXUndoManager::registerUndo(std::function<void()> function) { registerWithGuard(nullptr, std::move(function)); }

void KXUndoManager::registerUndo(QObject *target, std::function<void()> function)
{
    registerWithGuard(identity(target), [guard = QPointer<QObject>(target), function = std::move(function)] {
        if (guard)
            function();
    });
}

void KXUndoManager::registerWithGuard(const void *target, std::function<void()> function)
{
    addStep(std::make_unique<UndoFunction>(target, std::move(function)));
}

void KXUndoManager::setActionName(const QString &name)
{
    if (m_state != State::Recording)
        return;
    boundary();
    if (m_depth > 0) {
        m_step.name = name;
        return;
    }
    if (m_off > 0)
        return; // bookkeeping must not rename what the user did before
    if (m_isOpen && !m_step.facts.empty()) {
        m_step.name = name;
    } else {
        const auto step
            = std::find_if(m_undo.begin(), m_undo.end(), [this](const Step &s) { return s.serial == m_lastClosed; });
        if (step == m_undo.end())
            return;
        step->name = name;
    }
    Q_EMIT changed();
}

void KXUndoManager::disableUndoRegistration()
{
    boundary();
    ++m_off;
}

void KXUndoManager::enableUndoRegistration()
{
    if (m_off == 0) {
        KXLogWarning(foundation, "Undo registration was switched on more often than off");
        return;
    }
    boundary(); // what is pending happened while it was off
    --m_off;
}

KXScopeToken KXUndoManager::addBoundaryObserver(std::function<void()> function)
{
    auto observer = std::make_shared<Boundary::Observer>(Boundary::Observer { std::move(function) });
    m_boundary->observers.push_back(observer);
    return KXScopeToken([list = m_boundary, observer] {
        observer->ended = true;
        std::erase(list->observers, observer);
    });
}

void KXUndoManager::boundary()
{
    KX_CHECK(thread() == QThread::currentThread(), "An undo manager was used on another thread than its own");
    if (m_boundary->isTelling)
        return;
    m_boundary->isTelling = true;
    const bool wasAnnounced = std::exchange(m_announced, false);
    const auto observers = m_boundary->observers; // one may come or go
    for (const auto &observer : observers) {
        if (!observer->ended)
            KXRunCaught("an observer of undo boundaries", observer->function);
    }
    m_boundary->isTelling = false;
    if (wasAnnounced)
        Q_EMIT changed();
}

void KXUndoManager::openStep(bool ofTurn)
{
    m_isOpen = true;
    m_ofTurn = ofTurn;
    m_step.serial = ++m_lastSerial;
    if (ofTurn)
        queueTurnEnd();
}

void KXUndoManager::queueTurnEnd()
{
    if (!m_groupsByEvent || m_turnEndQueued || !KXMainQueue::isMainThread())
        return;
    m_turnEndQueued = true;
    KXMainQueue::async(this, [this] {
        m_turnEndQueued = false;
        if (!m_groupsByEvent)
            return;
        boundary();
        closeStepOfTurn();
    });
}

void KXUndoManager::closeStep()
{
    m_isOpen = false;
    Step step = std::exchange(m_step, {});
    const bool isEmpty = step.facts.empty();
    if (!m_ofTurn || !isEmpty)
        m_lastClosed = isEmpty ? 0 : step.serial;
    if (isEmpty)
        return;
    push(m_undo, std::move(step));
    Q_EMIT changed();
}

void KXUndoManager::closeStepOfTurn()
{
    if (m_isOpen && m_ofTurn)
        closeStep();
}

void KXUndoManager::push(Stack &stack, Step step)
{
    stack.push_back(std::move(step));
    const Stack forgotten = trim(stack);
}

KXUndoManager::Stack KXUndoManager::trim(Stack &stack)
{
    Stack forgotten;
    if (m_levels > 0 && stack.size() > size_t(m_levels)) {
        const auto end = stack.end() - m_levels;
        forgotten.assign(std::move_iterator(stack.begin()), std::move_iterator(end));
        stack.erase(stack.begin(), end);
    }
    return forgotten;
}

// -------------------------------------------------------------------------------------------------- undoing

bool KXUndoManager::canUndo() const
{
    return !m_undo.empty() || m_announced || (m_isOpen && m_ofTurn && !m_step.facts.empty());
}

bool KXUndoManager::canRedo() const { return !m_redo.empty(); }
void KXUndoManager::undo() { revertLast(m_undo, m_redo, State::Undoing); }
void KXUndoManager::redo() { revertLast(m_redo, m_undo, State::Redoing); }

void KXUndoManager::revertLast(Stack &from, Stack &onto, State state)
{
    if (m_state != State::Recording || m_depth > 0 || m_boundary->isTelling) {
        KXLogWarning(foundation, "Undo or redo was asked for %@ and is refused",
            m_state == State::Recording ? "inside an undo group" : "while undoing");
        return;
    }
    boundary();
    closeStepOfTurn();
    if (from.empty())
        return;
    m_reverting = std::move(from.back().facts);
    // The opposites keep the step's name, and its number for late ones.
    m_step = Step { std::move(from.back().name), {}, from.back().serial };
    from.pop_back();
    m_isOpen = true;
    m_ofTurn = false;
    m_state = state;
    std::vector<std::unique_ptr<KXUndoFact>> reverted;
    while (!m_reverting.empty()) { // a function may remove actions
        reverted.push_back(std::move(m_reverting.back()));
        m_reverting.pop_back();
        std::unique_ptr<KXUndoFact> opposite;
        KXRunCaught("undoing", [&] { opposite = reverted.back()->revert(); });
        if (opposite)
            m_step.facts.push_back(std::move(opposite));
    }
    for (const std::unique_ptr<KXUndoFact> &fact : reverted)
        KXRunCaught("undoing", [&] { fact->didRevert(); });
    boundary(); // what followed from it belongs to it
    if (m_depth > 0)
        KXLogWarning(foundation, "An undo group was left open while undoing");
    m_depth = 0;
    m_state = State::Recording;
    m_isOpen = false;
    if (Step opposite = std::exchange(m_step, {}); !opposite.facts.empty())
        push(onto, std::move(opposite));
    Q_EMIT changed();
}

// ----------------------------------------------------------------------------------------------- forgetting

// What is forgotten is destroyed last: it may own the last handle of an object, whose end leads back here.

void KXUndoManager::removeAllActions()
{
    boundary();
    const Stack undone = std::exchange(m_undo, {});
    const Stack redone = std::exchange(m_redo, {});
    const Facts open = std::exchange(m_step.facts, {});
    const Facts reverting = std::exchange(m_reverting, {});
    m_lastClosed = 0;
    Q_EMIT changed();
}

void KXUndoManager::removeActionsOf(const void *target)
{
    if (!target)
        return;
    boundary();
    Facts forgotten;
    const auto removeFrom = [&](Facts &facts) {
        const auto end = std::stable_partition(
            facts.begin(), facts.end(), [target](const auto &fact) { return fact->target() != target; });
        std::move(end, facts.end(), std::back_inserter(forgotten));
        facts.erase(end, facts.end());
    };
    for (Stack *stack : { &m_undo, &m_redo }) {
        for (Step &step : *stack)
            removeFrom(step.facts);
        std::erase_if(*stack, [](const Step &step) { return step.facts.empty(); });
    }
    removeFrom(m_step.facts);
    removeFrom(m_reverting);
    Q_EMIT changed();
}

void KXUndoManager::setLevelsOfUndo(int levels)
{
    m_levels = std::max(levels, 0);
    const Stack undone = trim(m_undo);
    const Stack redone = trim(m_redo);
    Q_EMIT changed();
}
