#pragma once

#include <functional>
#include <vector>

#include "import/Scanner.h"
#include "library/Library.h"
#include "library/TrackFields.h"
#include "tags/TagReaders.h"

struct TagWriterResult
{
    qint64 written = 0;
    qint64 unchanged = 0; ///< files that said everything already
    std::vector<SkippedFile> failed;
    bool cancelled = false;
    KXError error; ///< of the store; the next import finds out what was written
};

/// Writes what the user changed into the tags of the files. A file is replaced as a whole: a copy beside it is changed,
/// read again, compared (its sound must be the same, and its tags what they were but for the changes), brought to the
/// disk and given the file's name. Whatever happens in between leaves the old file or the new one. On the context's
/// thread.
class TagWriter
{
public:
    using Stop = std::function<bool()>;
    using Progress = std::function<void(qint64 done, qint64 total)>;

    explicit TagWriter(KXManagedObjectContext::Ref context);

    /// Keys are those of tracks. Saves as it goes what files say now.
    TagWriterResult run(const std::vector<qint64> &keys, const Stop &stop, const Progress &progress = {});

private:
    [[nodiscard]] QString write(Track &track, const QList<TrackFields::Field> &fields);

    const KXManagedObjectContext::Ref m_context;
    TagReaders m_readers;
    std::string m_folder; // of the file before
};
