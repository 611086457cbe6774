/// Export macros of the framework's libraries, and the check that only checking builds pay for. Any thread.
#pragma once

#include <QtGlobal>

QT_BEGIN_NAMESPACE
class QString;
QT_END_NAMESPACE

#if defined(KX_BUILD_CORE)
#define KX_CORE_EXPORT Q_DECL_EXPORT
#else
#define KX_CORE_EXPORT Q_DECL_IMPORT
#endif

#if defined(KX_BUILD_AUDIO)
#define KX_AUDIO_EXPORT Q_DECL_EXPORT
#else
#define KX_AUDIO_EXPORT Q_DECL_IMPORT
#endif

#if defined(KX_BUILD_UI)
#define KX_UI_EXPORT Q_DECL_EXPORT
#else
#define KX_UI_EXPORT Q_DECL_IMPORT
#endif

#if defined(KX_BUILD_WEB)
#define KX_WEB_EXPORT Q_DECL_EXPORT
#else
#define KX_WEB_EXPORT Q_DECL_IMPORT
#endif

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

#include <kestrixkit/foundation/KXStringWithFormat.h> // for the text of KX_CHECK
