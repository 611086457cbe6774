#pragma once

#include <map>
#include <string>
#include <unordered_map>
#include <vector>

#include "files/Sounds.h"
#include "import/Scanner.h"
#include "library/Library.h"

/// The files that the user took out of the library, under the names that they have by now: an import of their folder
/// passes over them. On the context's thread, whose context is borrowed; what is changed here is saved with the rest.
class LeftOutFiles
{
public:
    explicit LeftOutFiles(KXManagedObjectContext &context);

    /// What is known of a track's file, so that it is passed over from now on.
    static void add(const Track &track);

    [[nodiscard]] bool contains(const std::string &path) const { return m_byPath.contains(path); }
    /// The user asks for it by name: it is left out no more.
    void letIn(const std::string &path);
    /// Whether there is one of about that length whose sound is known: then the sound of a new file says more.
    [[nodiscard]] bool mayHave(std::optional<double> duration);
    /// Whether it is one of these, which has moved: the same file or the same sound, and the old file is gone. It is
    /// left out under the new name from then on.
    [[nodiscard]] bool hasMoved(const ScannedFile &file, const TrackSound &sound, std::optional<double> duration);

private:
    struct File
    {
        KXRef<LeftOutFile> object;
        std::string path;
        qint64 size, modified, hash; // -1, -1, 0: not known
        std::optional<bool> isGone = {}; // once it was looked for
    };
    [[nodiscard]] bool isGone(File &file);
    [[nodiscard]] std::vector<size_t> ofLength(std::optional<double> duration) const;

    std::vector<File> m_files;
    std::unordered_multimap<std::string, size_t> m_byPath;
    std::multimap<double, size_t> m_byLength; // seconds
};
