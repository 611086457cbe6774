#pragma once

#include <optional>

#include <kestrixkit/store/KXStoreFiles_p.h>

/// Puts a new file in a store's place, so that whenever the work ends early one of the two is there when the store is
/// opened next.
///
/// The note "<store>-replacing" says what goes on: it is written before the new file is begun, and removed when all is
/// in place. While the work runs the note is locked, so that nobody else takes it for one that was left behind. The new
/// file and the name that the old one is kept under are in the store's folder. docs/formats/store.md describes the
/// note.
class KX_CORE_EXPORT KXStoreReplacement
{
public:
    /// Without a name to keep it under, the old file goes when the new one comes.
    KXStoreReplacement(QString store, QString fresh, QString kept = {});
    Q_DISABLE_COPY_MOVE(KXStoreReplacement)

    /// Writes the note. Busy where another process is at work on the store.
    [[nodiscard]] KXError begin();
    /// Says that the new file is whole; syncs it first. Moves come after that.
    [[nodiscard]] KXError freshIsWhole();
    /// Moves the old store, with what SQLite left beside it, to its other name.
    [[nodiscard]] KXError moveOldAside() const;
    /// Removes the note, and after a failure what there is of the new file. But where the failure left nothing in the
    /// store's place while the new file is whole, note and file stay, and the next opening brings the work to its end.
    /// A note that cannot be removed does no harm.
    void end(bool failed);

    /// Brings a replacement that was interrupted to its end, or takes it back where the new file was not whole yet, and
    /// says so in the log. To be called before a store is looked at. Busy where the replacement is still going on.
    [[nodiscard]] static KXError recover(const QString &store);

private:
    void discardFresh();

    const QString m_store;
    const QString m_fresh;
    const QString m_kept;
    KXNewFile m_note;
    bool m_isWhole = false;
};

/// A store's path in its parts, and the names that are made of them. Of a link, the place that it leads to.
class KXStorePath
{
public:
    explicit KXStorePath(const QString &path);
    [[nodiscard]] const QString &path() const { return m_path; }
    /// Everything before the last point of the file's name; all where there is none, or only a leading one.
    [[nodiscard]] const QString &base() const { return m_base; }
    [[nodiscard]] const QString &extension() const { return m_extension; } ///< without the point
    /// The part of the base behind the folder.
    [[nodiscard]] QString name() const;
    [[nodiscard]] QString folder() const;
    /// "base-UUID.extension": beside the store, of a name that is nowhere else.
    [[nodiscard]] QString unique() const;
    /// ".name-UUID": likewise, for what has no meaning to anybody.
    [[nodiscard]] QString hidden() const;
    /// In capitals, without braces.
    [[nodiscard]] static QString newUUID();

private:
    QString m_path;
    QString m_base;
    QString m_extension;
};
