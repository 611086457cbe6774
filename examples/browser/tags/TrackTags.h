#pragma once

#include <optional>
#include <string>

#include <QString>
#include <QStringList>

#include "tags/TagValues.h"

/// What a music file says about itself, cleaned: absent is absent, never 0 or "".
struct TrackTags
{
    QString title; ///< never empty: the file's name where there is none
    QString artistText; ///< the credit as it is written
    QStringList artists; ///< its single names
    QString album;
    QString albumArtist;
    QStringList genres;
    QStringList labels;
    QString comment;
    std::optional<MusicalKey> key;
    std::optional<double> bpm;
    std::optional<int> year;
    std::optional<int> trackNumber;
    std::optional<int> rating; ///< stars, 0 to 5
    std::optional<double> duration; ///< seconds; absent where the file does not tell
    std::optional<int> sampleRate; ///< hertz
    std::optional<int> channels;
    std::optional<int> bitrate; ///< kilobits a second

    /// What did not make sense and was left out, cut or guessed; for people to read.
    QStringList notes;

    bool operator==(const TrackTags &) const = default;
};

/// Either tags or the reason why the file is none that can be imported.
struct TagReading
{
    std::optional<TrackTags> tags;
    QString refusal;

    bool operator==(const TagReading &) const = default;
};

/// Longest title, name or comment that is kept, in characters.
inline constexpr int maximumTagLength = 1000;

/// Reads a file by its content, whatever its name says. path is in the bytes of the file system, which need
/// not be text. Any thread.
TagReading readTags(const std::string &path);

/// The note of a file that is shorter than it says.
QString cutOffNote();

/// Text of a path for people: bytes that are no UTF-8 are shown as \xNN.
QString displayPath(const std::string &path);
