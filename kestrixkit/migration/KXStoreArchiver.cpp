#include <kestrixkit/migration/KXStoreArchiver.h>

#include <atomic>
#include <memory>
#include <numeric>

#include <QDir>
#include <QFile>
#include <QFileInfo>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <zlib.h>

#include <kestrixkit/foundation/KXLog.h>
#include <kestrixkit/migration/KXArchiveLibrary_p.h>
#include <kestrixkit/store/KXSQLite_p.h>
#include <kestrixkit/store/KXStoreReplacement_p.h>

using namespace Qt::StringLiterals;

namespace {

constexpr size_t archiveBlock = 1 << 20;
constexpr int archiveMostEntries = 8; // a store has three files
/// More than a store packs into so few bytes is no backup but fills the disk.
constexpr qint64 archiveAlwaysUnpacked = qint64(1) << 30;
constexpr qint64 archiveMostGrowth = 100;
constexpr int archiveFailed = 1;
constexpr int archiveWrongUse = 64;

using ArchiveEntry = std::unique_ptr<archive_entry, decltype(&archive_entry_free)>;
using ArchiveReader = std::unique_ptr<archive, decltype(&archive_read_free)>;
using ArchiveWriter = std::unique_ptr<archive, decltype(&archive_write_free)>;

KXError archiveError(archive *handle, const QString &path)
{
    return KXError(KXKestrixKitErrorDomain, KXStoreErrorCode::Damaged,
        KXStringWithFormat("%@: %s", path, KXLibarchive().errorString(handle)));
}

/// Where libarchive's bytes go, with the error that stopped them.
struct ArchiveSink
{
    KXNewFile file;
    KXError error;

    static la_ssize_t write(archive *handle, void *sink, const void *bytes, size_t size)
    {
        auto *const self = static_cast<ArchiveSink *>(sink);
        self->error = self->file.write(QByteArrayView(static_cast<const char *>(bytes), qsizetype(size)));
        if (!self->error)
            return la_ssize_t(size);
        KXLibarchive().setError(handle, EIO, "cannot be written");
        return -1;
    }
};

/// Where libarchive reads an archive from: zlib unpacks it, which compares its checksum, as libarchive does not.
struct ArchiveSource
{
    explicit ArchiveSource(const QString &path)
        : block(archiveBlock, Qt::Uninitialized)
    {
        // A pipe would be waited for until somebody writes into it.
        const int descriptor = ::open(QFile::encodeName(path).constData(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
        struct stat status;
        if (descriptor >= 0 && ::fstat(descriptor, &status) == 0 && S_ISREG(status.st_mode))
            file = gzdopen(descriptor, "rb");
        if (descriptor >= 0 && !file)
            ::close(descriptor);
    }
    ~ArchiveSource()
    {
        if (file)
            gzclose(file);
    }
    Q_DISABLE_COPY_MOVE(ArchiveSource)

    static la_ssize_t read(archive *handle, void *source, const void **bytes)
    {
        auto *const self = static_cast<ArchiveSource *>(source);
        *bytes = self->block.constData();
        const int size = gzread(self->file, self->block.data(), unsigned(self->block.size()));
        int problem = Z_OK;
        const char *const text = gzerror(self->file, &problem);
        if (size >= 0 && problem == Z_OK && !gzdirect(self->file))
            return size;
        KXLibarchive().setError(handle, EIO, "%s", problem == Z_OK ? "not compressed" : text);
        return -1;
    }
    gzFile file = nullptr;
    QByteArray block;
};

/// An error where there is no libarchive.
KXError archiveLookForLibrary()
{
    return KXArchiveLibrary::shared() ? KXError()
                                      : KXError(KXKestrixKitErrorDomain, KXStoreErrorCode::CannotOpen,
                                          u"A part of the program is missing, without which there are no backups"_s);
}

KXError archiveAdd(archive *handle, const ArchiveSink &sink, const QString &path, const QString &name,
    const std::function<void(qint64 bytes)> &added)
{
    KXPinnedFile file;
    if (KXError error = file.open(path))
        return error;
    const ArchiveEntry entry(KXLibarchive().entryNew(), KXLibarchive().entryFree);
    KXLibarchive().entrySetPathname(entry.get(), "./" + QFile::encodeName(name));
    KXLibarchive().entrySetFiletype(entry.get(), AE_IFREG);
    KXLibarchive().entrySetPerm(entry.get(), 0600);
    KXLibarchive().entrySetNlink(entry.get(), 1); // or readers would take files with one number for links
    KXLibarchive().entrySetMtime(entry.get(), file.modified(), 0);
    KXLibarchive().entrySetSize(entry.get(), file.size());
    const auto fail = [&] { return sink.error ? sink.error : archiveError(handle, name); };
    if (KXLibarchive().writeHeader(handle, entry.get()) != ARCHIVE_OK)
        return fail();
    QByteArray block(archiveBlock, Qt::Uninitialized);
    for (qint64 offset = 0; offset < file.size();) {
        const qint64 wanted = std::min(qint64(archiveBlock), file.size() - offset);
        const qint64 size = file.read(offset, block.data(), wanted);
        if (size < 0)
            return KXError(KXKestrixKitErrorDomain, KXStoreErrorCode::InputOutput,
                KXStringWithFormat("%@: %s", path, std::strerror(errno)));
        // A log may be emptied by its writers while it is read, when all of it is in the store: zeros say that it has
        // ended.
        std::fill(block.begin() + size, block.begin() + wanted, '\0');
        if (KXLibarchive().writeData(handle, block.constData(), size_t(wanted)) < 0)
            return fail();
        offset += wanted;
        added(wanted);
    }
    return {};
}

KXError archiveWrite(const QString &folder, const QString &path, const KXStoreProgress &progress)
{
    ArchiveSink sink;
    if (KXError error = sink.file.create(path))
        return error;
    (void)sink.file.lock(); // nobody else knows it; while it is locked nobody takes it for one that was left behind
    const ArchiveWriter handle(KXLibarchive().writeNew(), KXLibarchive().writeFree);
    KXLibarchive().writeAddFilterGzip(handle.get());
    KXLibarchive().writeSetFormatCpio(handle.get());
    KXLibarchive().writeSetOptions(handle.get(), "gzip:compression-level=3");
    KXLibarchive().writeSetBytesInLastBlock(handle.get(), 1);
    if (KXLibarchive().writeOpen(handle.get(), &sink, nullptr, ArchiveSink::write, nullptr) != ARCHIVE_OK)
        return sink.error ? sink.error : archiveError(handle.get(), path);
    // In the order of names a store comes before its log, which is how both fit together in the end.
    const QFileInfoList files = QDir(folder).entryInfoList(QDir::Files | QDir::Hidden, QDir::Name);
    const double all = std::accumulate(
        files.begin(), files.end(), 0.0, [](double sum, const QFileInfo &file) { return sum + double(file.size()); });
    double done = 0;
    const auto added = [&](qint64 bytes) {
        done += double(bytes);
        if (progress)
            progress(done / all);
    };
    for (const QFileInfo &file : files) {
        if (KXError error = archiveAdd(handle.get(), sink, file.filePath(), file.fileName(), added))
            return error;
    }
    if (KXLibarchive().writeClose(handle.get()) != ARCHIVE_OK)
        return sink.error ? sink.error : archiveError(handle.get(), path);
    return sink.file.sync();
}

class ArchiveCommand : public KXStoreArchiver
{
public:
    int run(const QStringList &arguments, const QString &workingFolder, const KXStoreProgress &progress) override
    {
        if (arguments.size() != 4 || arguments[0] != "-z"_L1 || arguments[1] != "-c"_L1)
            return archiveWrongUse;
        const QString folder = QDir(workingFolder).absoluteFilePath(arguments[2]);
        const QString archive = QDir(workingFolder).absoluteFilePath(arguments[3]);
        // Under its own name once it is whole: no half of an archive is ever taken for one.
        const QString part = QFileInfo(archive).path() + "/."_L1 + QFileInfo(archive).fileName() + u'-'
            + KXStorePath::newUUID() + ".part"_L1;
        KXError error = archiveLookForLibrary();
        if (!error)
            error = QDir(folder).exists() ? archiveWrite(folder, part, progress)
                                          : KXError(KXKestrixKitErrorDomain, KXStoreErrorCode::CannotOpen,
                                              KXStringWithFormat("There is no folder %@", folder));
        if (!error)
            error = KXStoreFiles::move(part, archive);
        if (!error)
            return 0;
        KXLogWarning(store, "Cannot make the archive %@: %@", archive, error);
        if (KXError left = KXStoreFiles::remove(part))
            KXLogWarning(store, "Cannot remove %@", left);
        return archiveFailed;
    }
};

std::atomic<KXStoreArchiver *> archiveShared { nullptr };

}

KXStoreArchiver::~KXStoreArchiver() = default;

KXStoreArchiver &KXStoreArchiver::shared()
{
    static ArchiveCommand own;
    KXStoreArchiver *const replaced = archiveShared.load();
    return replaced ? *replaced : own;
}

void KXStoreArchiver::setShared(KXStoreArchiver *archiver) { archiveShared.store(archiver); }

KXError KXStoreArchiver::unpack(const QString &path, const QString &folder, const KXStoreProgress &progress)
{
    if (KXError error = archiveLookForLibrary())
        return error;
    const double packed = std::max(double(QFileInfo(path).size()), 1.0);
    qint64 room = archiveAlwaysUnpacked + archiveMostGrowth * QFileInfo(path).size();
    ArchiveSource source(path);
    if (!source.file)
        return KXError(
            KXKestrixKitErrorDomain, KXStoreErrorCode::CannotOpen, KXStringWithFormat("%@ cannot be opened", path));
    const ArchiveReader handle(KXLibarchive().readNew(), KXLibarchive().readFree);
    KXLibarchive().readSupportFormatCpio(handle.get());
    if (KXLibarchive().readOpen(handle.get(), &source, nullptr, ArchiveSource::read, nullptr) != ARCHIVE_OK)
        return archiveError(handle.get(), path);
    archive_entry *entry = nullptr;
    for (int entries = 0;; ++entries) {
        const int code = KXLibarchive().readNextHeader(handle.get(), &entry);
        if (code == ARCHIVE_EOF)
            break;
        if (code != ARCHIVE_OK)
            return archiveError(handle.get(), path);
        QByteArray name(KXLibarchive().entryPathname(entry));
        if (name.startsWith("./"))
            name.remove(0, 2);
        if (KXLibarchive().entryFiletype(entry) == AE_IFDIR && (name.isEmpty() || name == "."))
            continue;
        if (KXLibarchive().entryFiletype(entry) != AE_IFREG || name.isEmpty() || name.contains('/') || name == ".."
            || entries == archiveMostEntries)
            return KXError(KXKestrixKitErrorDomain, KXStoreErrorCode::NotAStore,
                KXStringWithFormat("%@ is not a backup of a store", path));
        // The reader unpacks just the size that the entry names.
        room -= KXLibarchive().entrySize(entry);
        if (room < 0)
            return KXError(KXKestrixKitErrorDomain, KXStoreErrorCode::NotAStore,
                KXStringWithFormat("%@ would unpack to more than a hundred times its size and 1 GiB", path));
        KXNewFile file;
        if (KXError error = file.create(folder + u'/' + QFile::decodeName(name)))
            return error;
        QByteArray block(archiveBlock, Qt::Uninitialized);
        la_ssize_t size = 0;
        while ((size = KXLibarchive().readData(handle.get(), block.data(), archiveBlock)) > 0) {
            if (KXError error = file.write(QByteArrayView(block.constData(), size)))
                return error;
            if (progress)
                progress(double(gzoffset(source.file)) / packed);
        }
        if (size < 0)
            return archiveError(handle.get(), path);
    }
    // The checksum stands behind everything.
    const void *rest = nullptr;
    la_ssize_t size = 1;
    while (size > 0)
        size = ArchiveSource::read(handle.get(), &source, &rest);
    return size == 0 ? KXError() : archiveError(handle.get(), path);
}
