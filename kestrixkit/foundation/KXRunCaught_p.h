#pragma once

#include <exception>

#include <kestrixkit/foundation/KXLog.h>

/// Runs fn at the root of a thread, an event handler or a list of observers: whatever it throws is logged.
/// True when it returned.
template <typename Function> bool KXRunCaught(const char *where, Function &&fn)
{
    try {
        fn();
        return true;
    } catch (const std::exception &exception) {
        KXLogError(foundation, "Uncaught exception in %@: %@", where, exception);
    } catch (...) {
        KXLogError(foundation, "Uncaught exception of an unknown type in %@", where);
    }
    return false;
}
