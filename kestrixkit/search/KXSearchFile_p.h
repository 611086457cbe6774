#pragma once

#include <optional>

#include <QString>

#include <kestrixkit/foundation/KXError.h>
#include <kestrixkit/search/KXSearchSegment_p.h>

/// The files in which an index outlives a process, beside its store; docs/formats/search.md describes them. Any thread.
///
/// A file that is missing, damaged, of another store, model or format, or not the user's own, is no file: the index is
/// built anew.
class KXSearchFile
{
public:
    /// Of the store at the path (with links followed) and the index of that name; the fingerprint is that of its plan.
    KXSearchFile(const QString &storePath, const QString &name, QString storeUuid, QByteArray fingerprint);

    struct Index
    {
        qint64 changeNumber; ///< of the store when it was read
        std::vector<std::shared_ptr<const KXSearchSegment>> segments; ///< by group
    };
    [[nodiscard]] std::optional<Index> read() const;
    /// Takes the place of an older one as a whole.
    [[nodiscard]] KXError write(qint64 changeNumber, const std::vector<QByteArray> &segments) const;

    /// Rows that were saved since the index was written: keys by group.
    struct Changes
    {
        qint64 indexNumber; ///< change number of the index that they belong to
        qint64 changeNumber; ///< of the store once they were saved
        std::vector<std::vector<qint64>> keys;
    };
    [[nodiscard]] std::optional<Changes> readChanges() const;
    [[nodiscard]] KXError writeChanges(const Changes &changes) const;
    void removeChanges() const;
    /// What processes that were killed have left.
    void removeAbandoned() const;

    [[nodiscard]] const QString &path() const { return m_path; }

private:
    [[nodiscard]] QString changesPath() const;
    [[nodiscard]] KXError replace(const QString &path, const std::vector<QByteArrayView> &parts) const;

    QString m_path;
    QByteArray m_uuid;
    QByteArray m_fingerprint;
};
