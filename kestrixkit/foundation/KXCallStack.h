#pragma once

#include <vector>

#include <QStringList>

#include <kestrixkit/foundation/KXGlobal.h>

/// The addresses of a call stack. Capturing costs some microseconds; names are looked up when they are read.
/// A value; may be captured and read on any thread.
class KX_CORE_EXPORT KXCallStack
{
public:
    /// An empty stack.
    KXCallStack() = default;

    /// The calling thread's stack, innermost first, at most 100 frames, without the innermost `skip` ones.
    [[nodiscard]] static KXCallStack capture(int skip = 0);

    /// A line for each frame: library, function and offset as far as known, and the address.
    [[nodiscard]] QStringList symbols() const;

    [[nodiscard]] bool isEmpty() const { return m_addresses.empty(); }

private:
    std::vector<void *> m_addresses;
};
