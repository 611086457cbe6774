#pragma once

#include <functional>

#include <kestrixkit/foundation/KXError.h>
#include <kestrixkit/foundation/KXGlobal.h>

/// Ends what it stands for (a replaced handler, a registered editor) with its destruction. Movable.
class KX_CORE_EXPORT KXScopeToken
{
public:
    KXScopeToken() = default;
    explicit KXScopeToken(std::function<void()> end);
    KXScopeToken(KXScopeToken &&other) noexcept;
    KXScopeToken &operator=(KXScopeToken &&other) noexcept;
    ~KXScopeToken();

    void reset();
    void swap(KXScopeToken &other) noexcept { m_end.swap(other.m_end); }
    explicit operator bool() const { return bool(m_end); }

private:
    std::function<void()> m_end;
};

/// What the framework asks of the application around it, and a host or a test may replace.
class KX_CORE_EXPORT KXApplication
{
public:
    using PresentErrorHandler = std::function<void(const KXError &)>;
    using TerminateHandler = std::function<void()>;
    /// Ends the editing under way; false when the editor refuses (its value is not acceptable yet).
    using Editor = std::function<bool()>;

    /// Shows the user an error. Unless replaced it is logged, which is all that a program without windows can do.
    /// Called on any thread; the handler runs on the caller's.
    static void presentError(const KXError &error);

    /// Asks the application to end: the main loop is left, with exit status 1, in its next turn. Returns at
    /// once, so whoever calls must be able to go on. Any thread.
    static void terminate();

    /// Replace the handlers until the token goes; the newest one that still stands is called.
    [[nodiscard]] static KXScopeToken setPresentErrorHandler(PresentErrorHandler handler);
    [[nodiscard]] static KXScopeToken setTerminateHandler(TerminateHandler handler);

    /// An editor of values of `subject` (an object context, say), until the token goes.
    [[nodiscard]] static KXScopeToken registerEditor(const void *subject, Editor editor);
    /// Asks the editors of the subject, the newest first, to end their editing. False as soon as one refuses;
    /// true when there is none. Main thread.
    [[nodiscard]] static bool commitEditing(const void *subject);

    KXApplication() = delete;
};
