#pragma once

#include <functional>
#include <string>
#include <vector>

#include "Library.h"
#include "Scanner.h"

/// What an import found and did.
struct ImportResult
{
    qint64 added = 0;
    qint64 updated = 0; ///< files that had changed
    qint64 unchanged = 0;
    qint64 vanished = 0; ///< tracks whose files are gone since the last time
    qint64 returned = 0; ///< tracks whose files are back
    std::vector<SkippedFile> skipped; ///< sorted by file
    bool cancelled = false;
    KXError error; ///< of the store; what was saved before stays
};

/// Brings the library up to date with a folder of music: new files become tracks, changed ones are read again,
/// vanished ones are marked. Files that neither grew, shrank nor were written are not opened.
///
/// Saves as it goes, so that other contexts see the tracks arrive and a cancelled or killed import loses little and is
/// taken up by the next one.
class Importer
{
public:
    using Stop = std::function<bool()>;
    using Progress = std::function<void(qint64 done, qint64 total)>;

    /// The context is the import's alone. folder is in the bytes of the file system.
    Importer(KXManagedObjectContext::Ref context, std::string folder);

    /// Runs to the end or until stop answers true; a query that is interrupted then costs nothing. On the context's
    /// thread; stop and progress are called on that thread, progress
    /// about twenty times a second.
    ImportResult run(const Stop &stop, const Progress &progress = {}) const;

private:
    KXManagedObjectContext::Ref m_context;
    std::string m_folder;
};
