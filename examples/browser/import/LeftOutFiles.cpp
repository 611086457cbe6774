#include "import/LeftOutFiles.h"

#include <algorithm>

#include <kestrixkit/context/KXManagedObjectContext.h>

namespace {

constexpr double leftOutLikeLength = 0.6; // seconds: other tags change guesses of lengths a little

} // namespace

LeftOutFiles::LeftOutFiles(KXManagedObjectContext &context)
{
    for (const KXRef<LeftOutFile> &out : LeftOutFile::findAllInContext(context)) {
        if (!out)
            continue;
        m_byPath.emplace(pathOfUrl(out->location()), m_files.size());
        if (const auto seconds = out->duration())
            m_byLength.emplace(*seconds, m_files.size());
        m_files.push_back({ out, pathOfUrl(out->location()), out->fileSize().value_or(-1),
            out->fileModified().value_or(-1), out->soundHash().value_or(0) });
    }
}

void LeftOutFiles::add(const Track &track)
{
    KXManagedObjectContext *const context = track.managedObjectContext();
    const KXRef<LeftOutFile> out = context ? LeftOutFile::createInContext(*context) : KXRef<LeftOutFile>();
    if (!out)
        return;
    out->setLocation(track.location());
    out->setFileSize(track.fileSize());
    out->setFileModified(track.fileModified());
    out->setDuration(track.duration());
    out->setSoundHash(track.soundHash().value_or(0) ? track.soundHash() : std::nullopt);
}

void LeftOutFiles::letIn(const std::string &path)
{
    const auto [from, to] = m_byPath.equal_range(path);
    for (auto file = from; file != to; ++file) {
        const KXRef<LeftOutFile> &out = m_files[file->second].object;
        if (KXManagedObjectContext *const context = out->managedObjectContext())
            context->removeManagedObject(out);
    }
    m_byPath.erase(from, to);
}

std::vector<size_t> LeftOutFiles::ofLength(std::optional<double> duration) const
{
    std::vector<size_t> files;
    if (!duration)
        return files;
    const auto to = m_byLength.upper_bound(*duration + leftOutLikeLength);
    for (auto file = m_byLength.lower_bound(*duration - leftOutLikeLength); file != to; ++file)
        files.push_back(file->second);
    return files;
}

bool LeftOutFiles::isGone(File &file)
{
    if (!file.isGone)
        file.isGone = ::isGone(file.path);
    return *file.isGone;
}

bool LeftOutFiles::mayHave(std::optional<double> duration)
{
    const std::vector<size_t> files = ofLength(duration);
    return std::any_of(
        files.begin(), files.end(), [&](size_t file) { return m_files[file].hash != 0 && isGone(m_files[file]); });
}

bool LeftOutFiles::hasMoved(const ScannedFile &file, const TrackSound &sound, std::optional<double> duration)
{
    for (const size_t number : ofLength(duration)) {
        File &out = m_files[number];
        const bool isSame
            = (out.size == file.size && out.modified == file.modified) || (sound.hash != 0 && out.hash == sound.hash);
        if (!isSame || !isGone(out))
            continue;
        out.object->setLocation(urlOfPath(file.path));
        out.object->setFileSize(file.size);
        out.object->setFileModified(file.modified);
        out.isGone = false; // one new file is it, and no second one
        m_byPath.emplace(file.path, number);
        return true;
    }
    return false;
}
