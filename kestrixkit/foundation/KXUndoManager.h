#pragma once

#include <functional>
#include <memory>
#include <type_traits>
#include <vector>

#include <QPointer>
#include <QString>

#include <kestrixkit/foundation/KXApplication.h>
#include <kestrixkit/foundation/KXObject.h>
#include <kestrixkit/foundation/KXUndoGuards.h>
#include <kestrixkit/foundation/KXWeakRef.h>

QT_BEGIN_NAMESPACE
class QAction;
QT_END_NAMESPACE

/// One thing that happened and can be taken back. Goes when its step leaves the stack.
class KX_CORE_EXPORT KXUndoFact
{
public:
    KXUndoFact() = default;
    Q_DISABLE_COPY_MOVE(KXUndoFact)
    virtual ~KXUndoFact();

    /// Takes it back, once, and answers what takes that back in turn; null where nothing does. What it throws is
    /// logged.
    virtual std::unique_ptr<KXUndoFact> revert() = 0;
    /// Called when all of its step has been taken back: the time to tell others, who may change things then.
    virtual void didRevert() { }
    /// What it is about, as the address of the whole object; for removeAllActionsWithTarget() only.
    [[nodiscard]] virtual const void *target() const;
};

/// What the user can take back, and do again: two stacks of steps, each a named list of facts.
///
/// Facts are gathered by groups. Groups nest, and the outermost one makes the step; an empty one leaves nothing. What
/// is added outside a group forms one step per turn of the main thread's event loop; on another thread, or with
/// groupsByEvent off, one step until a group begins or something is undone.
///
/// Whoever records lazily, as a context does with its objects' changes, subscribes by addBoundaryObserver() and adds
/// its facts when a boundary is reached.
///
/// Belongs to the thread that made it. Must outlive the functions that it calls.
class KX_CORE_EXPORT KXUndoManager : public KXObject
{
    Q_OBJECT
    Q_PROPERTY(bool canUndo READ canUndo NOTIFY changed)
    Q_PROPERTY(bool canRedo READ canRedo NOTIFY changed)
    Q_PROPERTY(QString undoActionName READ undoActionName NOTIFY changed)
    Q_PROPERTY(QString redoActionName READ redoActionName NOTIFY changed)
public:
    explicit KXUndoManager(QObject *parent = nullptr);
    ~KXUndoManager() override;

    // Recording

    void beginUndoGrouping();
    /// One too many is logged and ignored.
    void endUndoGrouping();
    /// Of groups begun and not ended; the step of the turn does not count.
    [[nodiscard]] int groupingLevel() const { return m_depth; }
    /// On unless changed.
    [[nodiscard]] bool groupsByEvent() const { return m_groupsByEvent; }
    void setGroupsByEvent(bool groups) { m_groupsByEvent = groups; }

    /// Adds to the open group, or to the step of the turn. While undoing (or redoing) it becomes part of what redoes
    /// (undoes) that. Dropped while registration is off.
    void addStep(std::unique_ptr<KXUndoFact> fact);
    /// Says that a fact will be added at the next boundary: outside a group the turn's end then is one, and canUndo()
    /// answers true. Cheap when repeated.
    void willAddStep();
    /// Undoing calls the function, which registers what redoes it.
    void registerUndo(std::function<void()> function);
    /// The same, skipped if the target has gone by then.
    void registerUndo(QObject *target, std::function<void()> function);
    template <typename T> void registerUndo(const KXRef<T> &target, std::function<void()> function)
    {
        registerWithGuard(identity(target.get()), [weak = KXWeakRef<T>(target), function = std::move(function)] {
            if (const KXRef<T> alive = weak.lock())
                function();
        });
    }

    /// Names the group that is open or, if none is, the one closed last, even when that is long ago. Nothing happens if
    /// that one was empty or has been undone since, while undoing, and outside groups while registration is off.
    void setActionName(const QString &name);

    /// Counted: as often on as off.
    void disableUndoRegistration();
    /// One too many is logged and ignored.
    void enableUndoRegistration();
    [[nodiscard]] bool isUndoRegistrationEnabled() const { return m_off == 0; }

    /// Calls the function before a group begins or ends, before registration is switched off or on, before a name is
    /// given, before undo and redo begin and end, and at the end of a turn in which steps were announced or added.
    [[nodiscard]] KXScopeToken addBoundaryObserver(std::function<void()> function);

    // Undoing

    /// Whether there is a step, or one being made outside groups.
    [[nodiscard]] bool canUndo() const;
    [[nodiscard]] bool canRedo() const;
    /// Takes back the last step, the turn's own being closed before, its facts from last to first. Their opposites form
    /// a step of the same name for redo(). Refused with a log line while a group is open, or while undoing.
    void undo();
    void redo();
    [[nodiscard]] bool isUndoing() const { return m_state == State::Undoing; }
    [[nodiscard]] bool isRedoing() const { return m_state == State::Redoing; }

    /// Of the step that undo() would take back; empty if it has none.
    [[nodiscard]] QString undoActionName() const;
    [[nodiscard]] QString redoActionName() const;
    /// "Undo %@" with the name of the step, or "Undo" alone.
    [[nodiscard]] QString undoMenuItemTitle() const;
    [[nodiscard]] QString redoMenuItemTitle() const;
    /// An action that undoes, with the platform's keys for it; its text and whether it is enabled follow the stack.
    /// Needs QGuiApplication.
    [[nodiscard]] QAction *createUndoAction(QObject *parent);
    [[nodiscard]] QAction *createRedoAction(QObject *parent);
    /// From now on the actions, which any manager may have made, are this one's: for the menu of a window that shows
    /// one of several places or documents. They are disabled when it goes.
    void driveActions(QAction *undo, QAction *redo);

    // Forgetting

    /// Open groups stay open.
    void removeAllActions();
    template <typename T> void removeAllActionsWithTarget(const T *target) { removeActionsOf(identity(target)); }
    /// The most steps that are kept; 0, as at first, for any number.
    [[nodiscard]] int levelsOfUndo() const { return m_levels; }
    void setLevelsOfUndo(int levels);

Q_SIGNALS:
    /// What can be undone or redone, or its name, may have changed.
    void changed();

private:
    enum class State { Recording, Undoing, Redoing };
    using Facts = std::vector<std::unique_ptr<KXUndoFact>>;
    struct Step
    {
        QString name;
        Facts facts;
        quint64 serial = 0; ///< names it for setActionName
    };
    using Stack = std::vector<Step>;
    struct Boundary;

    template <typename T> static const void *identity(const T *object)
    {
        if constexpr (std::is_polymorphic_v<T>)
            return object ? dynamic_cast<const void *>(object) : nullptr;
        else
            return object;
    }
    void registerWithGuard(const void *target, std::function<void()> function);
    void removeActionsOf(const void *target);
    void boundary();
    void openStep(bool ofTurn);
    void closeStep();
    void closeStepOfTurn();
    void queueTurnEnd();
    void push(Stack &stack, Step step);
    /// Takes out what is beyond the levels, for the caller to destroy.
    [[nodiscard]] Stack trim(Stack &stack);
    void revertLast(Stack &from, Stack &onto, State state);
    void drive(QAction *action, bool redoes);

    Stack m_undo;
    Stack m_redo;
    Step m_step; ///< being recorded, while m_isOpen
    Facts m_reverting; ///< what is left of the step being undone or redone
    bool m_isOpen = false;
    bool m_ofTurn = false; ///< the open step is not a group's
    bool m_announced = false; ///< by willAddStep, since the last boundary
    bool m_turnEndQueued = false;
    bool m_groupsByEvent = true;
    State m_state = State::Recording;
    int m_depth = 0;
    int m_off = 0;
    int m_levels = 0;
    quint64 m_lastSerial = 0;
    quint64 m_lastClosed = 0; ///< serial of the step that a late name goes to; 0 for none
    std::shared_ptr<Boundary> m_boundary;
};
