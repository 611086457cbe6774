/// Logging through Qt's categories, gated by one global level.
///
/// `KXLogError(store, "Failed to save: %@", error)` logs in the category "kestrix.store" with file, line and
/// function, if the level's flag is set; else its arguments are not even evaluated. The format is that of
/// KXStringWithFormat. Any thread.
#pragma once

#include <atomic>

#include <kestrixkit/foundation/KXGlobal.h>
#include <kestrixkit/foundation/KXStringWithFormat.h>

enum KXLogLevel : int {
    KXLogLevelError = 1,
    KXLogLevelWarning = 2,
    KXLogLevelInfo = 4,
    KXLogLevelDebug = 8,
};

/// The levels that are logged, as a sum of KXLogLevel flags. Errors and warnings unless changed.
extern KX_CORE_EXPORT std::atomic<int> KXKestrixKitLogLevel;

/// Hands a text to Qt's logging, whose own rules (QT_LOGGING_RULES) still apply to the category.
/// `category` must live as long as the process.
KX_CORE_EXPORT void KXLogMessage(
    KXLogLevel level, const char *category, const char *file, int line, const char *function, const QString &text);

#define KX_LOG(level, folder, ...)                                                                                     \
    do {                                                                                                               \
        if (KXKestrixKitLogLevel.load(std::memory_order_relaxed) & (level))                                            \
            KXLogMessage(level, "kestrix." #folder, __FILE__, __LINE__, Q_FUNC_INFO, KXStringWithFormat(__VA_ARGS__)); \
    } while (false)

#define KXLogError(folder, ...) KX_LOG(KXLogLevelError, folder, __VA_ARGS__)
#define KXLogWarning(folder, ...) KX_LOG(KXLogLevelWarning, folder, __VA_ARGS__)
#define KXLogInfo(folder, ...) KX_LOG(KXLogLevelInfo, folder, __VA_ARGS__)
#define KXLogDebug(folder, ...) KX_LOG(KXLogLevelDebug, folder, __VA_ARGS__)
