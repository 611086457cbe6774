#include "tags/TagChanges.h"

#include <cerrno>
#include <cstring>

#include <mp4file.h>
#include <mp4tag.h>
#include <tfilestream.h>

#include "tags/TagFiles.h"

using namespace Qt::StringLiterals;

namespace {

/// MP4 has no atoms for some names, and for tempos whole numbers alone: free ones hold the rest.
void writeFreeForm(TagLib::MP4::Tag &tag, const TagChanges &changes, const TagLib::PropertyMap &rest)
{
    for (auto change = changes.begin(); change != changes.end(); ++change) {
        const TagLib::String name = TagFiles::text(change.key()), atom = "----:com.apple.iTunes:" + name;
        const bool isFraction = name == "BPM" && change.value().value(0).contains(u'.');
        TagLib::StringList values;
        for (const QString &value : change.value())
            values.append(TagFiles::text(value));
        if (values.isEmpty() || name == "BPM")
            tag.removeItem(atom);
        if (!values.isEmpty() && (isFraction || rest.contains(name)))
            tag.setItem(atom, TagLib::MP4::Item(values));
    }
}

QString writeChanges(TagLib::FileStream &stream, const TagChanges &changes)
{
    if (TagFiles::levelsOfBoxes(stream, TagFiles::mostLevelsOfBoxes) > TagFiles::mostLevelsOfBoxes)
        return u"cannot be written: it is damaged"_s;
    const TagFiles::File file = TagFiles::openByContent(stream);
    if (!file || !file->isValid())
        return u"cannot be written: tags of this kind of file are not known"_s;
    TagLib::PropertyMap properties = file->properties();
    for (auto change = changes.begin(); change != changes.end(); ++change) {
        const TagLib::String name = TagFiles::text(change.key());
        properties.erase(name);
        for (const QString &value : change.value())
            properties[name].append(TagFiles::text(value));
    }
    const TagLib::PropertyMap rest = file->setProperties(properties);
    if (auto *const mp4 = dynamic_cast<TagLib::MP4::File *>(file.get()))
        writeFreeForm(*mp4->tag(), changes, rest);
    return file->save() ? QString() : u"cannot be written: its tags cannot be changed"_s;
}

} // namespace

TagReading changeTags(const std::string &path, const TagChanges &changes)
{
    try {
        TagLib::FileStream stream(path.c_str(), false);
        if (!stream.isOpen() || stream.readOnly())
            return { {}, u"cannot be written: %1"_s.arg(QString::fromLocal8Bit(std::strerror(errno))) };
        if (const QString refusal = writeChanges(stream, changes); !refusal.isEmpty())
            return { {}, refusal };
    } catch (const std::exception &exception) {
        return { {}, u"cannot be written: %1"_s.arg(QString::fromLocal8Bit(exception.what())) };
    }
    return readTags(path);
}
