#include <kestrixkit/audio/KXPortAudioLibrary_p.h>

#include <cstdarg>
#include <cstdio>

#include <QString>

#include <dlfcn.h>

#include <kestrixkit/foundation/KXLog.h>

namespace {

constexpr size_t probeLine = 512;

void logProbe(const char *text)
{
    // On the render thread, too, where nothing may be done: unless somebody debugs, nothing is.
    KXLogDebug(audio, "%@", QString::fromUtf8(text).trimmed());
}

void logProbeOfALSA(const char *file, int line, const char *function, int error, const char *format, ...)
{
    if (!(KXKestrixKitLogLevel.load(std::memory_order_relaxed) & KXLogLevelDebug))
        return;
    char text[probeLine];
    va_list arguments;
    va_start(arguments, format);
    std::vsnprintf(text, sizeof text, format, arguments);
    va_end(arguments);
    KXLogDebug(audio, "%s:%d %s (%d): %s", file, line, function, error, text);
}

/// A function of one of the libraries that PortAudio was built with, which this module alone sees; nullptr where it was
/// built without.
template <typename Function> Function probedFunction(const char *name)
{
    return reinterpret_cast<Function>(dlsym(RTLD_DEFAULT, name));
}

}

void KXAudioQuietenProbing()
{
    using PlainHandler = void (*)(const char *);
    using ALSAHandler = void (*)(const char *, int, const char *, int, const char *, ...);
    if (auto *const set = probedFunction<int (*)(ALSAHandler)>("snd_lib_error_set_handler"))
        set(&logProbeOfALSA);
    for (const char *name : { "jack_set_error_function", "jack_set_info_function", "PaUtil_SetDebugPrintFunction" }) {
        if (auto *const set = probedFunction<void (*)(PlainHandler)>(name))
            set(&logProbe);
    }
}
