#include "support/FaultDisk.h"

#include <algorithm>
#include <random>

#include <QDir>
#include <QDirIterator>
#include <QFile>
#include <QFileInfo>

namespace {

constexpr qint64 sectorSize = 512;

QByteArray contentOf(const QByteArray &path)
{
    QFile file(QFile::decodeName(path));
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

QByteArray faultFolderOf(const QByteArray &path) { return path.left(path.lastIndexOf('/')); }

} // namespace

void FaultDisk::apply(QByteArray &content, const Change &change)
{
    if (change.bytes.isNull()) {
        content.resize(change.offset, '\0');
        return;
    }
    if (content.size() < change.offset + change.bytes.size())
        content.resize(change.offset + change.bytes.size(), '\0');
    std::copy(change.bytes.begin(), change.bytes.end(), content.begin() + change.offset);
}

void FaultDisk::apply(Names &names, std::set<QByteArray> &folders, const Entry &entry)
{
    switch (entry.kind) {
    case Add:
        names[entry.path] = entry.content;
        break;
    case Remove:
        names.erase(entry.path);
        break;
    case Rename:
        if (auto found = names.extract(entry.path))
            names[entry.to] = found.mapped();
        break;
    case MakeFolder:
        folders.insert(entry.path);
        break;
    case RemoveFolder:
        folders.erase(entry.path);
        break;
    }
}

void FaultDisk::adopt(const QString &folder)
{
    m_root = QFile::encodeName(folder);
    m_live.clear();
    m_pending.clear();
    m_folders = { m_root };
    for (QDirIterator it(folder, QDir::AllEntries | QDir::Hidden | QDir::NoDotAndDotDot, QDirIterator::Subdirectories);
         it.hasNext();) {
        const QByteArray path = QFile::encodeName(it.next());
        if (it.fileInfo().isDir())
            m_folders.insert(path);
        else
            m_live[path] = std::make_shared<Content>(Content { contentOf(path), {} });
    }
    m_durable = m_live;
}

void FaultDisk::opened(const QByteArray &path, bool existed)
{
    if (m_root.isEmpty()) {
        m_root = faultFolderOf(path);
        m_folders.insert(m_root);
    }
    // A file may have been removed behind our back, as a creation that failed is.
    if (existed && m_live.contains(path))
        return;
    m_live[path] = std::make_shared<Content>(Content { existed ? contentOf(path) : QByteArray(), {} });
    if (existed)
        m_durable[path] = m_live[path];
    else
        m_pending.push_back({ Add, path, {}, m_live[path] });
}

void FaultDisk::changed(const QByteArray &path, qint64 offset, const QByteArray &bytes)
{
    if (const auto found = m_live.find(path); found != m_live.end())
        found->second->changes.push_back({ offset, bytes });
}

void FaultDisk::synced(const QByteArray &path)
{
    if (const auto found = m_live.find(path); found != m_live.end()) {
        for (const Change &change : std::exchange(found->second->changes, {}))
            apply(found->second->synced, change);
    }
}

void FaultDisk::removed(const QByteArray &path)
{
    if (m_live.erase(path) > 0)
        m_pending.push_back({ Remove, path, {}, {} });
}

void FaultDisk::renamed(const QByteArray &from, const QByteArray &to)
{
    if (auto found = m_live.extract(from)) {
        m_live[to] = found.mapped();
        if (faultFolderOf(from) == faultFolderOf(to)) {
            m_pending.push_back({ Rename, from, to, {} });
        } else { // each folder is synced by itself
            m_pending.push_back({ Add, to, {}, found.mapped() });
            m_pending.push_back({ Remove, from, {}, {} });
        }
    }
}

void FaultDisk::linked(const QByteArray &from, const QByteArray &to)
{
    if (const auto found = m_live.find(from); found != m_live.end()) {
        m_live[to] = found->second;
        m_pending.push_back({ Add, to, {}, found->second });
    }
}

void FaultDisk::folderSynced(const QByteArray &path)
{
    std::erase_if(m_pending, [&](const Entry &entry) {
        if (faultFolderOf(entry.path) != path)
            return false;
        apply(m_durable, m_folders, entry);
        return true;
    });
}

void FaultDisk::cut(const QString &folder, quint64 seed) const
{
    std::mt19937_64 random(seed);
    const auto chance = [&random](double probability) { return std::bernoulli_distribution(probability)(random); };
    const double kept = std::uniform_int_distribution(0, 4)(random) / 4.0; // none and all are likely, too
    Names names = m_durable;
    std::set<QByteArray> folders = m_folders;
    const double keptNames = std::uniform_int_distribution(0, 4)(random) / 4.0;
    for (const Entry &entry : m_pending) {
        if (chance(keptNames))
            apply(names, folders, entry);
    }
    for (const auto &[path, file] : names) {
        if (!path.startsWith(m_root + '/') || !folders.contains(faultFolderOf(path)))
            continue;
        QByteArray content = file->synced;
        for (const Change &change : file->changes) {
            if (!chance(kept))
                continue;
            if (change.bytes.isNull() || chance(0.75)) {
                apply(content, change);
                continue;
            }
            for (qint64 at = 0; at < change.bytes.size();) {
                const qint64 offset = change.offset + at;
                const qint64 size = std::min<qint64>(change.bytes.size() - at, sectorSize - offset % sectorSize);
                if (chance(0.5))
                    apply(content, { offset, change.bytes.mid(at, size) });
                at += size;
            }
        }
        QFile left(folder + QFile::decodeName(path.mid(m_root.size())));
        QDir().mkpath(QFileInfo(left).path());
        if (!left.open(QIODevice::WriteOnly) || left.write(content) != content.size())
            qFatal("Cannot write %s", qPrintable(left.fileName()));
    }
}
