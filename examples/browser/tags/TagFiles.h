#pragma once

#include <memory>

#include <QString>

#include <tfile.h>
#include <tiostream.h>
#include <tpropertymap.h>

/// Music files as the tag library has them, recognised by what is in them. Any thread.
namespace TagFiles {

using File = std::unique_ptr<TagLib::File>;

/// Levels of boxes inside each other in an MP4 file, as far as the tag library goes into them; 0 for other files. The
/// library calls itself for each level, and so many as a file can have end the program.
int levelsOfBoxes(TagLib::IOStream &stream, int most);
/// Honest files have ten.
inline constexpr int mostLevelsOfBoxes = 64;

/// nullptr where no format is recognised; a damaged file may be recognised and yet not be valid.
File openByContent(TagLib::IOStream &stream);

/// The file's tags by name. MP4 keeps what has no atom of its own in free-form ones ("----:owner:name").
TagLib::PropertyMap propertiesOf(TagLib::File *file);

/// Whether the file ends before its sound does, as far as it says how long that is.
bool isCutOff(TagLib::File &file, TagLib::IOStream &stream);

QString text(const TagLib::String &text);
TagLib::String text(const QString &text);

} // namespace TagFiles
