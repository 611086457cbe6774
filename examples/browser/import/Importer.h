#pragma once

#include <functional>
#include <string>
#include <vector>

#include "files/FormerFiles.h"
#include "import/Scanner.h"
#include "library/Library.h"

/// What an import is to look through. Paths are in the bytes of the file system.
struct ImportTask
{
    ImportTask() = default;
    ImportTask(std::string folder) // NOLINT(google-explicit-constructor): a folder is what most imports are of
        : folder(std::move(folder))
    {
    }

    std::string folder;
    std::vector<std::string> files; ///< these alone, without a folder
    /// Files are looked at only for tracks whose own are gone; nothing is added, changed or marked.
    bool onlyFindsMissing = false;

    [[nodiscard]] bool isEmpty() const { return folder.empty() && files.empty(); }
    bool operator==(const ImportTask &) const = default;
};

/// What an import found and did.
struct ImportResult
{
    qint64 added = 0;
    qint64 updated = 0; ///< files that had changed
    qint64 unchanged = 0;
    qint64 vanished = 0; ///< tracks whose files are gone since the last time
    qint64 returned = 0; ///< tracks whose files are back
    qint64 moved = 0; ///< tracks whose files were found under other names
    std::vector<SkippedFile> skipped; ///< sorted by file
    /// Which file may be whose: it fits several, or is a track of the library itself. Somebody has to say.
    std::vector<LikelyFile> doubtful;
    bool foundMissing = false; ///< it looked for missing files only
    bool cancelled = false;
    KXError error; ///< of the store, or that the folder went away; what was saved before stays
};

/// Brings the library up to date with a folder of music: new files become tracks, changed ones are read again,
/// vanished ones are marked. Files that neither grew, shrank nor were written are not opened. A new file that is known
/// to be that of a track whose own is gone becomes that track's. What the user changed stays until the file says
/// something new. Files that the user took out of the library are left alone, unless they are asked for.
///
/// Saves as it goes, so that other contexts see the tracks arrive and a cancelled or killed import loses little and is
/// taken up by the next one.
class Importer
{
public:
    using Stop = std::function<bool()>;
    using Progress = std::function<void(qint64 done, qint64 total)>;

    /// The context is the import's alone.
    Importer(KXManagedObjectContext::Ref context, ImportTask task);

    /// Runs to the end or until stop answers true; a query that is interrupted then costs nothing. On the context's
    /// thread; stop and progress are called on that thread, progress
    /// about twenty times a second.
    ImportResult run(const Stop &stop, const Progress &progress = {}) const;

private:
    KXManagedObjectContext::Ref m_context;
    ImportTask m_task;
};
