#pragma once

#include <string>
#include <vector>

#include <QString>

/// Some of a file's music, mixed to one channel.
struct Music
{
    int rate = 0; ///< hertz: 44,100 or 48,000
    std::vector<float> samples;
    [[nodiscard]] double seconds() const { return rate > 0 ? double(samples.size()) / rate : 0; }
};

namespace MusicReader {

/// What is listened to of a long file, from its middle; and how long a short one goes round and round, since what is so
/// short is a loop. Seconds.
inline constexpr double most = 180, least = 40;

/// Decodes a file. Empty music and a problem where it has none.
Music read(const std::string &path, QString *problem);

} // namespace MusicReader
