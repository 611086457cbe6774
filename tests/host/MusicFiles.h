#pragma once

// Small music files for the tests of the browser.

#include <cmath>
#include <filesystem>
#include <fstream>
#include <initializer_list>
#include <string>
#include <utility>

#include <fileref.h>
#include <gtest/gtest.h>
#include <tpropertymap.h>

#include <demo/AudioEncoder.h>

using Tags = std::initializer_list<std::pair<const char *, const char *>>;

inline void setTags(const std::string &path, Tags tags)
{
    TagLib::FileRef file(path.c_str());
    ASSERT_FALSE(file.isNull()) << path;
    TagLib::PropertyMap properties;
    for (const auto &[name, value] : tags)
        properties[name].append(TagLib::String(value, TagLib::String::UTF8));
    file.file()->setProperties(properties);
    ASSERT_TRUE(file.save()) << path;
}

/// A third of a second of a tone, tagged; the folder is made.
inline void makeMusic(const std::string &path, Tags tags = {}, AudioFormat format = AudioFormat::Flac)
{
    std::filesystem::create_directories(std::filesystem::path(path).parent_path());
    AudioBuffer sound { preferredSampleRate(format), { std::vector<float>(size_t(preferredSampleRate(format) / 3)) } };
    for (size_t i = 0; i < sound.frames(); ++i)
        sound.channels[0][i] = 0.5F * float(std::sin(0.06 * double(i)));
    ASSERT_EQ(encodeAudio(sound, format, path), QString());
    if (tags.size())
        setTags(path, tags);
}

inline std::string readBytes(const std::string &path)
{
    std::ifstream file(path, std::ios::binary);
    return { std::istreambuf_iterator<char>(file), {} };
}

inline void writeBytes(const std::string &path, const std::string &bytes)
{
    std::filesystem::create_directories(std::filesystem::path(path).parent_path());
    std::ofstream(path, std::ios::binary) << bytes;
}

/// An MP3 file whose chapters hold chapters: more than the tag library's stack has room for.
inline std::string nestedChapters(quint32 levels)
{
    const auto size = [](quint32 n) {
        return std::string { char(n >> 21 & 127), char(n >> 14 & 127), char(n >> 7 & 127), char(n & 127) };
    };
    std::string frames;
    for (quint32 i = levels; i > 0; --i)
        frames += "CHAP" + size(18 + (i - 1) * 28) + std::string("\0\0a", 3) + std::string(17, '\0');
    const std::string sound = std::string("\xff\xfb\x90\x64") + std::string(413, '\0');
    return "ID3" + std::string("\4\0\0", 3) + size(quint32(frames.size())) + frames + sound + sound;
}
