#pragma once

#include <functional>

#include <QHash>
#include <QUrl>

#include <kestrixkit/context/KXTreeObjectOf.h>
#include <kestrixkit/filters/KXCounts.h>

class KXFilterSet;

/// The tag of the top level of the presets in trees that show them.
inline constexpr qint64 KXFilterSetPresetTopLevelTag = 1;

/// A named, saved search that the user picks, or a folder of such. It owns its filter set, which it names by URI.
class KX_CORE_EXPORT KXFilterSetPreset : public KXTreeObjectOf<KXFilterSetPreset>
{
public:
    static constexpr QLatin1StringView entityName { "KXFilterSetPreset" };

    KX_ATTRIBUTE(QString, title, setTitle)
    KX_ATTRIBUTE(bool, isFolder, setIsFolder)
    KX_ATTRIBUTE(QUrl, filterSetURI, setFilterSetURI)
    /// Invalid when it never was.
    KX_ATTRIBUTE(QDateTime, lastLoaded, setLastLoaded)
    // What the user may do with it. A folder takes children in only while it is overwritable.
    KX_ATTRIBUTE(bool, isDeletable, setIsDeletable)
    KX_ATTRIBUTE(bool, isOverwritable, setIsOverwritable)
    KX_ATTRIBUTE(bool, isRepositionable, setIsRepositionable)
    /// For the host.
    KX_ATTRIBUTE(bool, isSticky, setIsSticky)

    /// The set that the URI names, held from then on: it is not looked up again, even if the URI changes or the set is
    /// deleted. (In a child context, which keeps its objects itself, it is looked up each time.) Empty without URI, for
    /// one that names no filter set of the store, and without context.
    [[nodiscard]] KXRef<KXFilterSet> filterSet() const;
    /// Names the set and holds it; undoing that holds what was held before. Throws KXException
    /// (KXInvalidArgumentException) for a set of another context; one without context is refused with a log line.
    void setFilterSet(const KXRef<KXFilterSet> &set);

    /// How many objects match, by the place that counts them. A folder's are the sums over its children, made anew by
    /// each reading and never absent; another preset's are absent before the first count. Kept in memory only.
    /// Observable under "counts".
    [[nodiscard]] std::optional<KXCounts> counts() const;
    /// Main thread. Announces the counts of the folder around it, too. The date is that of a count that grows old;
    /// none for one that is kept right.
    void setCount(qint64 count, const QString &forContextIdentifier, const QDateTime &counted = {});
    /// As if nobody had counted for the place yet. Otherwise as setCount().
    void removeCount(const QString &forContextIdentifier);
    /// Both of them without the folder around, which who sets very many counts tells by itself.
    void setOwnCount(std::optional<qint64> count, const QString &forContextIdentifier, const QDateTime &counted = {});
    /// Of a folder: its sums may have become others.
    void countsInItDidChange();
    /// Of a folder that of its oldest count. Invalid where there is none.
    [[nodiscard]] QDateTime countDateForContextIdentifier(const QString &identifier) const;

    /// Of a folder absent, unless somebody has set it: whoever shows a tree has the sum at hand.
    [[nodiscard]] std::optional<qint64> countForContextIdentifier(const QString &identifier) const override;
    [[nodiscard]] QString countNoteForContextIdentifier(const QString &identifier) const override
    {
        return KXCountAgeText(countDateForContextIdentifier(identifier));
    }
    [[nodiscard]] QStringList badgeKeys() const override { return { QStringLiteral("counts") }; }

    /// A preset of the same entity with a copy of the filter set: title, kind and counts are taken over, and neither
    /// place, permissions nor children. Empty where the store gives no identifier.
    [[nodiscard]] KXRef<KXFilterSetPreset> duplicateInContext(KXManagedObjectContext &context) const;

    [[nodiscard]] bool isEditable() const override { return true; }
    [[nodiscard]] bool canBeRepositioned() const override { return isRepositionable(); }
    [[nodiscard]] bool canBeParentForItem(const KXSourceListItem *) const override
    {
        return isFolder() && isOverwritable();
    }
    /// True for itself as well: a preset cannot be dropped onto itself.
    [[nodiscard]] bool isDescendantOfItem(const KXSourceListItem *item) const override
    {
        return item == this || hasAncestor(item);
    }
    /// The theme's "filterPresetIcons.folder" or "filterPresetIcons.preset".
    [[nodiscard]] QIcon image() const override;
    [[nodiscard]] QVariant valueForKey(const QString &key) const override;
    [[nodiscard]] QStringList keyPathsForValuesAffectingKey(const QString &key) const override;

protected:
    /// Deletes the filter set with it.
    void prepareForDeletion() override;

private:
    void hold(const KXRef<KXFilterSet> &set) const;
    void registerHeldSet();
    void tellFolder();
    void visitCounted(const std::function<void(const KXFilterSetPreset &)> &visit) const;

    std::optional<KXCounts> m_counts;
    QHash<QString, QDateTime> m_countDates; ///< of those that grow old
    mutable KXRef<KXFilterSet> m_filterSet;
};
