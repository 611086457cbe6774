/// The check that only checking builds pay for. Any thread.
#pragma once

#include <kestrixkit/foundation/KXGlobal.h>
#include <kestrixkit/foundation/KXStringWithFormat.h>

/// KX_CHECK(condition, format, …): in a build with KX_CHECKS a false condition is logged as an error, with
/// the text formatted by KXStringWithFormat, and stops the process; in other builds nothing is evaluated.
/// For mistakes of the programmer that would otherwise spread, and cheap enough for inner loops.
#if defined(KX_CHECKS)
#define KX_CHECK(condition, ...)                                                                                       \
    do {                                                                                                               \
        if (!(condition)) [[unlikely]]                                                                                 \
            KXCheckFailed(#condition, __FILE__, __LINE__, Q_FUNC_INFO, KXStringWithFormat(__VA_ARGS__));               \
    } while (false)
#else
#define KX_CHECK(condition, ...) static_cast<void>(sizeof(!(condition)))
#endif

/// What KX_CHECK calls: logs and aborts.
[[noreturn]] KX_CORE_EXPORT void KXCheckFailed(
    const char *condition, const char *file, int line, const char *function, const QString &text);
