#pragma once

#include <optional>
#include <string>

#include "demo/AudioEncoder.h"
#include "tags/AudioProbe.h"

// What the browser does with FFmpeg's libraries itself. They are in a module beside its programs that is loaded when it
// is needed: they bring a hundred others with them, and most files need none.

extern "C" {
/// See probeAudio().
Q_DECL_EXPORT void browserProbe(const std::string &path, std::optional<AudioProbe> &probe);
/// See encodeAudio(): `failure` stays empty where all went well.
Q_DECL_EXPORT void browserEncode(
    const AudioBuffer &sound, AudioFormat format, const std::string &path, QString &failure);
}

namespace FFmpegModule {

/// Its function of that name; nullptr with a line in the log where the module is missing. Any thread.
[[nodiscard]] QFunctionPointer function(const char *name);

}
