#pragma once

#include <ctime>

#include <sys/stat.h>

#include <kestrixkit/audio/KXAudioFileBackend.h>

/// Tells a local file that is still being written from one that was cut off.
struct KXAudioFileGrowth
{
    qint64 size = 0; ///< bytes there now
    bool recent = false; ///< shorter than promised, it is expected to grow

    static KXAudioFileGrowth of(const char *path, const KXAudioFileOptions &options)
    {
        struct stat info = {};
        if (stat(path, &info) != 0) // it vanished: an open file still reads, but nobody will add to it
            return {};
        const double age = std::difftime(std::time(nullptr), info.st_mtime);
        return { info.st_size, options.growing || (options.growthSeconds > 0 && age < options.growthSeconds) };
    }
};
