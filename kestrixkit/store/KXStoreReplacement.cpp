#include <kestrixkit/store/KXStoreReplacement_p.h>

#include <chrono>
#include <thread>

#include <QFileInfo>
#include <QJsonDocument>
#include <QJsonObject>
#include <QUuid>

#include <kestrixkit/foundation/KXLog.h>
#include <kestrixkit/store/KXSQLite_p.h>

using namespace Qt::StringLiterals;

namespace {

constexpr auto replacementPatience = std::chrono::seconds(5);
constexpr QByteArrayView replacementWhole = "whole\n";
constexpr qsizetype uuidLength = 36;

/// As unique names have them: in capitals.
bool isUUID(QStringView text)
{
    return text.size() == uuidLength && QUuid::fromString(text).toString(QUuid::WithoutBraces).toUpper() == text;
}

QString replacementNote(const QString &store) { return store + "-replacing"_L1; }

KXError replacementBusy(const QString &store)
{
    return KXError(KXKestrixKitErrorDomain, KXStoreErrorCode::Busy,
        KXStringWithFormat("%@ is being migrated or restored elsewhere", store));
}

/// The path of a name that a note may speak of: one that unique() makes, or a step of a migration keeps. Empty for any
/// other: whoever wrote that note, it was none of us.
QString replacementPath(const QString &store, const QJsonValue &name)
{
    const KXStorePath path(store);
    const QString text = name.toString();
    const QString end = u'.' + path.extension();
    const QString begin = path.name() + u'-';
    const bool isUnique = text.startsWith(begin) && text.endsWith(end)
        && isUUID(QStringView(text).sliced(begin.size()).chopped(end.size()));
    const bool isStep = text.indexOf(u'.') == uuidLength && text.size() > uuidLength + end.size() && text.endsWith(end)
        && !text.contains(u'/') && isUUID(text.first(uuidLength));
    return isUnique || isStep ? path.folder() + u'/' + text : QString();
}

}

KXStoreReplacement::KXStoreReplacement(QString store, QString fresh, QString kept)
    : m_store(std::move(store))
    , m_fresh(std::move(fresh))
    , m_kept(std::move(kept))
{
}

KXError KXStoreReplacement::begin()
{
    const QString path = replacementNote(m_store);
    for (;; std::this_thread::yield()) {
        m_note.close();
        if (KXError error = m_note.open(path))
            return error;
        if (m_note.lock() && m_note.isInPlace())
            break;
        // Who looks whether the note is one that was left behind holds an empty one for a moment, and removes it.
        if (m_note.isInPlace() && !m_note.content().isEmpty())
            return replacementBusy(m_store);
    }
    if (!m_note.content().isEmpty())
        return replacementBusy(m_store);
    KXStoreFiles::shareModeOf(m_store, path);
    QJsonObject note { { "fresh"_L1, QFileInfo(m_fresh).fileName() } };
    if (!m_kept.isEmpty())
        note["kept"_L1] = QFileInfo(m_kept).fileName();
    KXError error = m_note.write(QJsonDocument(note).toJson(QJsonDocument::Compact) + '\n');
    if (!error)
        error = m_note.sync();
    if (error)
        end(true);
    return error;
}

KXError KXStoreReplacement::freshIsWhole()
{
    KXError error = KXStoreFiles::sync(m_fresh);
    if (!error)
        error = KXStoreFiles::syncFolderOf(m_fresh); // what SQLite removed beside both files is gone for good as well
    if (!error)
        error = m_note.write(replacementWhole);
    if (!error)
        error = m_note.sync();
    m_isWhole = !error;
    return error;
}

void KXStoreReplacement::discardFresh()
{
    for (const QString &path : KXStoreFiles::companions(m_fresh)) {
        if (KXError error = KXStoreFiles::remove(path))
            KXLogWarning(store, "Cannot remove %@", error);
    }
}

void KXStoreReplacement::end(bool failed)
{
    if (failed && !KXStoreFiles::exists(m_store) && !m_kept.isEmpty() && KXStoreFiles::exists(m_kept)) {
        KXLogError(store, "The old store is %@", m_kept);
        if (m_isWhole)
            return m_note.close();
    }
    if (failed)
        discardFresh();
    if (KXError error = KXStoreFiles::remove(m_note.path()))
        KXLogWarning(store, "Cannot remove %@", error);
    m_note.close();
}

KXError KXStoreReplacement::moveOldAside() const
{
    const QStringList from = KXStoreFiles::companions(m_store);
    const QStringList to = KXStoreFiles::companions(m_kept);
    for (qsizetype i = 0; i < from.size(); ++i) {
        if (!KXStoreFiles::exists(from[i]))
            continue;
        if (KXError error = KXStoreFiles::move(from[i], to[i]))
            return error;
    }
    return {};
}

KXError KXStoreReplacement::recover(const QString &storePath)
{
    const QString store = KXStoreFiles::realPath(storePath);
    const QString path = replacementNote(store);
    const auto deadline = std::chrono::steady_clock::now() + replacementPatience;
    KXNewFile note;
    for (;; std::this_thread::sleep_for(std::chrono::milliseconds(20))) {
        note.close();
        if (!KXStoreFiles::exists(path))
            return {};
        if (KXError error = note.open(path)) {
            if (KXStoreFiles::isPlainFile(path))
                return error;
            if (KXStoreFiles::exists(path)) // what else has that name is no note of ours
                KXLogWarning(store, "%@ is in the way", path);
            return {};
        }
        if (note.lock() && note.isInPlace())
            break;
        if (std::chrono::steady_clock::now() > deadline)
            return replacementBusy(store);
    }

    const QByteArrayList lines = note.content().split('\n');
    const QJsonObject names = QJsonDocument::fromJson(lines.first()).object();
    const QString fresh = replacementPath(store, names["fresh"_L1]);
    const QString kept = replacementPath(store, names["kept"_L1]);
    KXStoreReplacement replacement(store, fresh, kept);
    KXError error;
    // A note that cannot be read was never synced, and nothing was begun before that.
    if (!fresh.isEmpty()) {
        const bool oldIsAside = !kept.isEmpty() && KXStoreFiles::isPlainFile(kept);
        if (oldIsAside && !KXStoreFiles::exists(store)) {
            if (lines.size() > 2 && KXStoreFiles::isPlainFile(fresh)) {
                error = replacement.moveOldAside(); // what lay beside it: the new file must not meet an old log
                if (!error)
                    error = KXStoreFiles::move(fresh, store);
                if (!error)
                    KXLogWarning(store, "Finished an interrupted replacement of %@, the old store is %@", store, kept);
            } else {
                replacement.discardFresh();
                // The store itself comes last: while it is missing the work is not done.
                for (const auto suffix : { "-journal"_L1, "-shm"_L1, "-wal"_L1, ""_L1 }) {
                    if (!error && KXStoreFiles::exists(kept + suffix))
                        error = KXStoreFiles::move(kept + suffix, store + suffix);
                }
                if (!error)
                    KXLogWarning(store, "Took back an interrupted replacement of %@", store);
            }
        } else {
            // Either nothing was moved yet or everything was.
            if (KXStoreFiles::exists(fresh))
                KXLogWarning(store, "Took back an interrupted replacement of %@", store);
            replacement.discardFresh();
        }
    }
    if (error) {
        KXLogError(store, "Cannot recover from an interrupted replacement of %@: %@", store, error);
        return error;
    }
    if (KXError left = KXStoreFiles::remove(path))
        KXLogWarning(store, "Cannot remove %@", left);
    return {};
}

KXStorePath::KXStorePath(const QString &path)
    : m_path(KXStoreFiles::realPath(path))
{
    const qsizetype start = m_path.lastIndexOf(u'/') + 1;
    const qsizetype point = m_path.lastIndexOf(u'.');
    const bool has = point > start;
    m_base = has ? m_path.left(point) : m_path;
    m_extension = has ? m_path.mid(point + 1) : QString();
}

QString KXStorePath::name() const { return m_base.mid(m_base.lastIndexOf(u'/') + 1); }

QString KXStorePath::folder() const { return QFileInfo(m_path).absolutePath(); }

QString KXStorePath::newUUID() { return QUuid::createUuid().toString(QUuid::WithoutBraces).toUpper(); }

QString KXStorePath::unique() const { return m_base + u'-' + newUUID() + u'.' + m_extension; }

QString KXStorePath::hidden() const { return folder() + "/."_L1 + name() + u'-' + newUUID(); }
