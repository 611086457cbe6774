#pragma once

#include <QStringList>

#include <kestrixkit/foundation/KXError.h>
#include <kestrixkit/store/KXPersistentStore.h>

/// Makes archives out of folders. Called like a command, so that a test or a host's own program can take its place and
/// fail like one.
class KX_CORE_EXPORT KXStoreArchiver
{
public:
    virtual ~KXStoreArchiver();

    /// "-z -c FOLDER ARCHIVE" writes what is in the folder into a gzip-compressed archive; paths may be relative to
    /// the working folder. Answers an exit status, 0 when the archive is on the disk.
    [[nodiscard]] virtual int run(
        const QStringList &arguments, const QString &workingFolder, const KXStoreProgress &progress)
        = 0;

    /// Writes gzip-compressed cpio archives, unless replaced.
    [[nodiscard]] static KXStoreArchiver &shared();
    /// nullptr for the framework's own; not owned.
    static void setShared(KXStoreArchiver *archiver);

    /// Unpacks an archive of plain files, as run() writes it, into a folder that exists. What was unpacked before an
    /// error stays.
    [[nodiscard]] static KXError unpack(
        const QString &archive, const QString &folder, const KXStoreProgress &progress = {});
};
