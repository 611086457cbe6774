#include <kestrixkit/search/KXSearchFile_p.h>

#include <cstring>

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <QDataStream>
#include <QFile>
#include <QFileInfo>
#include <QUuid>
#include <QtEndian>

#include <kestrixkit/foundation/KXLog.h>
#include <kestrixkit/store/KXStoreFiles_p.h>

using namespace Qt::StringLiterals;

static_assert(Q_BYTE_ORDER == Q_LITTLE_ENDIAN, "Index files are little-endian");

namespace {

constexpr char fileMagic[8] = { 'K', 'X', 'S', 'E', 'A', 'R', 'C', 'H' };
constexpr char changesMagic[8] = { 'K', 'X', 'S', 'E', 'A', 'R', 'C', 'D' };
constexpr quint32 fileVersion = 1;
constexpr quint64 mostGroups = 64;
constexpr qint64 largestChanges = 64 << 20;

struct FileHead
{
    char magic[8];
    quint32 version;
    quint32 reserved;
    quint64 size; ///< of the file
    qint64 changeNumber;
    char uuid[40]; ///< of the store, filled up with zeros
    char fingerprint[32];
    quint64 groups;
    quint64 blocks;
    quint64 checksum; ///< of this with a zero here, and of the tables behind it
};

struct FileGroup
{
    quint64 from;
    quint64 size;
};

quint64 fileBlocks(quint64 size) { return (size + KXSearchBytes::BlockSize - 1) / KXSearchBytes::BlockSize; }

/// Bytes of head and tables: what the head's checksum covers.
quint64 fileTablesEnd(quint64 groups, quint64 blocks)
{
    return sizeof(FileHead) + groups * sizeof(FileGroup) + blocks * sizeof(quint64);
}

/// An open file of the user's own; closed when it goes.
class FileDescriptor
{
public:
    explicit FileDescriptor(const QString &path)
        : m_descriptor(::open(QFile::encodeName(path).constData(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK))
    {
        struct stat status;
        if (m_descriptor >= 0 && ::fstat(m_descriptor, &status) == 0 && S_ISREG(status.st_mode)
            && status.st_uid == ::geteuid())
            m_size = status.st_size;
    }
    ~FileDescriptor()
    {
        if (m_descriptor >= 0)
            ::close(m_descriptor);
    }
    Q_DISABLE_COPY_MOVE(FileDescriptor)
    [[nodiscard]] qint64 size() const { return m_size; } ///< 0 where there is none
    [[nodiscard]] int number() const { return m_descriptor; }

private:
    int m_descriptor;
    qint64 m_size = 0;
};

}

KXSearchFile::KXSearchFile(const QString &storePath, const QString &name, QString storeUuid, QByteArray fingerprint)
    : m_path(storePath + "-search-"_L1 + name)
    , m_uuid(storeUuid.toLatin1())
    , m_fingerprint(std::move(fingerprint))
{
}

QString KXSearchFile::changesPath() const { return m_path + "-changes"_L1; }

std::optional<KXSearchFile::Index> KXSearchFile::read() const
{
    const FileDescriptor file(m_path);
    FileHead head;
    if (file.size() < qint64(sizeof head) || ::pread(file.number(), &head, sizeof head, 0) != ssize_t(sizeof head))
        return std::nullopt;
    const auto fits = [](const QByteArray &bytes, const char *field, size_t size) {
        return size_t(bytes.size()) <= size
            && std::memcmp(field, bytes.leftJustified(qsizetype(size), '\0').constData(), size) == 0;
    };
    if (std::memcmp(head.magic, fileMagic, sizeof fileMagic) != 0 || head.version != fileVersion
        || head.size != quint64(file.size()) || head.blocks != fileBlocks(head.size) || head.groups > mostGroups
        || !fits(m_uuid, head.uuid, sizeof head.uuid)
        || !fits(m_fingerprint, head.fingerprint, sizeof head.fingerprint))
        return std::nullopt;
    const quint64 tablesEnd = fileTablesEnd(head.groups, head.blocks);
    if (tablesEnd > head.size)
        return std::nullopt;
    void *mapped = ::mmap(nullptr, size_t(head.size), PROT_READ, MAP_PRIVATE, file.number(), 0);
    if (mapped == MAP_FAILED)
        return std::nullopt;
    const auto *data = static_cast<const char *>(mapped);
    QByteArray tables(data, qsizetype(tablesEnd));
    std::memset(tables.data() + offsetof(FileHead, checksum), 0, sizeof head.checksum);
    if (KXSearchBytes::checksum(tables.constData(), tables.size()) != head.checksum) {
        ::munmap(mapped, size_t(head.size));
        return std::nullopt;
    }
    std::vector<quint64> checksums(head.blocks);
    std::memcpy(checksums.data(), data + tablesEnd - head.blocks * 8, head.blocks * 8);
    const auto bytes
        = std::make_shared<const KXSearchBytes>(data, qsizetype(head.size), std::move(checksums), qsizetype(tablesEnd));
    Index index { head.changeNumber, {} };
    try {
        for (quint64 i = 0; i < head.groups; ++i) {
            FileGroup group;
            std::memcpy(&group, data + sizeof head + i * sizeof group, sizeof group);
            index.segments.push_back(
                std::make_shared<const KXSearchSegment>(bytes, qsizetype(group.from), qsizetype(group.size)));
        }
    } catch (const KXSearchDamage &) {
        return std::nullopt;
    }
    return index;
}

/// Whole and on the disk, or as it was.
KXError KXSearchFile::replace(const QString &path, const std::vector<QByteArrayView> &parts) const
{
    const QString fresh = m_path + u'-' + QUuid::createUuid().toString(QUuid::WithoutBraces);
    KXError error;
    {
        KXNewFile file;
        if ((error = file.create(fresh)))
            return error;
        (void)file.lock(); // so that nobody takes it for abandoned
        for (const QByteArrayView part : parts) {
            if (!error)
                error = file.write(part);
        }
        if (!error)
            error = file.sync();
        if (!error)
            error = KXStoreFiles::replace(fresh, path);
    }
    if (error && KXStoreFiles::remove(fresh))
        KXLogInfo(search, "Cannot remove %@", fresh);
    return error;
}

KXError KXSearchFile::write(qint64 changeNumber, const std::vector<QByteArray> &segments) const
{
    FileHead head {};
    std::memcpy(head.magic, fileMagic, sizeof fileMagic);
    head.version = fileVersion;
    head.changeNumber = changeNumber;
    std::memcpy(head.uuid, m_uuid.constData(), size_t(std::min<qsizetype>(m_uuid.size(), sizeof head.uuid)));
    std::memcpy(head.fingerprint, m_fingerprint.constData(),
        size_t(std::min<qsizetype>(m_fingerprint.size(), sizeof head.fingerprint)));
    head.groups = segments.size();
    // The blocks of the tables have checksums too, of zeros: nobody asks for them.
    quint64 segmentBlocks = 0;
    for (const QByteArray &segment : segments)
        segmentBlocks += fileBlocks(quint64(segment.size()));
    quint64 headBlocks = 1;
    while (fileTablesEnd(head.groups, headBlocks + segmentBlocks) > headBlocks * KXSearchBytes::BlockSize)
        ++headBlocks;
    head.blocks = headBlocks + segmentBlocks;
    head.size = head.blocks * KXSearchBytes::BlockSize;
    std::vector<FileGroup> groups;
    std::vector<quint64> checksums(headBlocks, 0);
    std::vector<QByteArrayView> parts { {} };
    static const QByteArray zeros(KXSearchBytes::BlockSize, '\0');
    quint64 from = headBlocks * KXSearchBytes::BlockSize;
    for (const QByteArray &segment : segments) {
        groups.push_back({ from, quint64(segment.size()) });
        const qsizetype whole = segment.size() / KXSearchBytes::BlockSize * KXSearchBytes::BlockSize;
        for (qsizetype at = 0; at < whole; at += KXSearchBytes::BlockSize)
            checksums.push_back(KXSearchBytes::checksum(segment.constData() + at, KXSearchBytes::BlockSize));
        parts.push_back(segment);
        if (whole < segment.size()) {
            const QByteArray last = segment.sliced(whole).leftJustified(KXSearchBytes::BlockSize, '\0');
            checksums.push_back(KXSearchBytes::checksum(last.constData(), last.size()));
            parts.push_back(QByteArrayView(zeros).first(KXSearchBytes::BlockSize - (segment.size() - whole)));
        }
        from += fileBlocks(quint64(segment.size())) * KXSearchBytes::BlockSize;
    }
    QByteArray tables(reinterpret_cast<const char *>(&head), sizeof head);
    tables.append(reinterpret_cast<const char *>(groups.data()), qsizetype(groups.size() * sizeof(FileGroup)));
    tables.append(reinterpret_cast<const char *>(checksums.data()), qsizetype(checksums.size() * sizeof(quint64)));
    head.checksum = KXSearchBytes::checksum(tables.constData(), tables.size());
    std::memcpy(tables.data() + offsetof(FileHead, checksum), &head.checksum, sizeof head.checksum);
    tables = tables.leftJustified(qsizetype(headBlocks) * KXSearchBytes::BlockSize, '\0');
    parts[0] = tables;
    return replace(m_path, parts);
}

std::optional<KXSearchFile::Changes> KXSearchFile::readChanges() const
{
    const FileDescriptor file(changesPath());
    if (file.size() < qint64(sizeof changesMagic + sizeof(quint64)) || file.size() > largestChanges)
        return std::nullopt;
    QByteArray bytes(file.size(), Qt::Uninitialized);
    if (::pread(file.number(), bytes.data(), size_t(bytes.size()), 0) != ssize_t(bytes.size())
        || !bytes.startsWith(QByteArrayView(changesMagic, sizeof changesMagic)))
        return std::nullopt;
    const qsizetype end = bytes.size() - qsizetype(sizeof(quint64));
    if (KXSearchBytes::checksum(bytes.constData(), end) != qFromLittleEndian<quint64>(bytes.constData() + end))
        return std::nullopt;
    QDataStream stream(bytes.sliced(sizeof changesMagic, end - qsizetype(sizeof changesMagic)));
    stream.setVersion(QDataStream::Qt_6_0);
    quint32 version = 0;
    QByteArray uuid;
    QByteArray fingerprint;
    Changes changes {};
    quint32 groups = 0;
    stream >> version >> uuid >> fingerprint >> changes.indexNumber >> changes.changeNumber >> groups;
    if (version != fileVersion || uuid != m_uuid || fingerprint != m_fingerprint || groups > mostGroups)
        return std::nullopt;
    for (quint32 i = 0; i < groups; ++i) {
        QList<qint64> keys;
        stream >> keys;
        changes.keys.emplace_back(keys.begin(), keys.end());
    }
    return stream.status() == QDataStream::Ok ? std::optional(std::move(changes)) : std::nullopt;
}

KXError KXSearchFile::writeChanges(const Changes &changes) const
{
    QByteArray bytes(changesMagic, sizeof changesMagic);
    {
        QDataStream stream(&bytes, QIODevice::Append);
        stream.setVersion(QDataStream::Qt_6_0);
        stream << fileVersion << m_uuid << m_fingerprint << changes.indexNumber << changes.changeNumber
               << quint32(changes.keys.size());
        for (const std::vector<qint64> &keys : changes.keys)
            stream << QList<qint64>(keys.begin(), keys.end());
    }
    char checksum[sizeof(quint64)];
    qToLittleEndian(KXSearchBytes::checksum(bytes.constData(), bytes.size()), checksum);
    bytes.append(checksum, sizeof checksum);
    return replace(changesPath(), { bytes });
}

void KXSearchFile::removeChanges() const
{
    if (KXStoreFiles::exists(changesPath()) && KXStoreFiles::remove(changesPath()))
        KXLogInfo(search, "Cannot remove %@", changesPath());
}

void KXSearchFile::removeAbandoned() const
{
    const QFileInfo info(m_path);
    KXWorkFolder::removeAbandoned(info.absolutePath(),
        QRegularExpression(
            u'^' + QRegularExpression::escape(info.fileName()) + "-[0-9a-f]{8}(-[0-9a-f]{4}){3}-[0-9a-f]{12}$"_L1));
}
