#include <kestrixkit/filters/KXFilterSetPreset.h>

#include <kestrixkit/filters/KXFilterImages_p.h>
#include <kestrixkit/filters/KXFilterSet.h>
#include <kestrixkit/filters/KXFolderCounts_p.h>
#include <kestrixkit/foundation/KXCheck.h>
#include <kestrixkit/foundation/KXException.h>
#include <kestrixkit/foundation/KXLog.h>
#include <kestrixkit/foundation/KXMainQueue.h>
#include <kestrixkit/foundation/KXUndoManager.h>
#include <kestrixkit/theme/KXThemeStyleNames.h>

using namespace Qt::StringLiterals;

KXRef<KXFilterSet> KXFilterSetPreset::filterSet() const
{
    KXManagedObjectContext *context = managedObjectContext();
    // One that has been rolled back has left the context, and is not named any more.
    const bool hasLeft = m_filterSet && context && !m_filterSet->managedObjectContext() && !m_filterSet->isDeleted()
        && m_filterSet->objectID().URIRepresentation() != filterSetURI();
    if ((m_filterSet && !hasLeft) || !context)
        return m_filterSet;
    const KXManagedObjectID id
        = context->persistentStoreCoordinator()->managedObjectIDForURIRepresentation(filterSetURI());
    const KXRef<KXFilterSet> set = id ? KXFilterSet::cast(context->objectWithID(id)) : KXRef<KXFilterSet>();
    hold(set);
    return set;
}

void KXFilterSetPreset::hold(const KXRef<KXFilterSet> &set) const
{
    // Objects of a child context last as long as it does, and a handle among them would keep it for ever.
    m_filterSet = set && set->belongsToContext() ? KXRef<KXFilterSet>() : set;
}

void KXFilterSetPreset::setFilterSet(const KXRef<KXFilterSet> &set)
{
    if (set && !set->managedObjectContext()) {
        KXLogWarning(filters, "The preset \"%@\" cannot hold a filter set without context", title());
        return;
    }
    if (set && set->managedObjectContext() != managedObjectContext()) {
        throw KXException(QString(KXInvalidArgumentException),
            KXStringWithFormat("The preset \"%@\" cannot hold a filter set of another context", title()));
    }
    registerHeldSet();
    const KXRef<KXFilterSet> before = m_filterSet;
    hold(set); // whoever is told of the URI asks for it
    if (!setValueForKey(u"filterSetURI"_s, set ? QVariant(set->objectID().URIRepresentation()) : QVariant()))
        hold(before);
}

/// What is held is no stored value, so taking back that another set was named has to take it back, too.
void KXFilterSetPreset::registerHeldSet()
{
    const auto undo = managedObjectContext() ? managedObjectContext()->undoManager() : nullptr;
    if (!undo || belongsToContext())
        return;
    undo->registerUndo(KXRef<KXFilterSetPreset>(this), [this, held = m_filterSet] {
        registerHeldSet();
        hold(held);
    });
}

/// Itself, or the presets of a folder and of those in it, each once.
void KXFilterSetPreset::visitCounted(const std::function<void(const KXFilterSetPreset &)> &visit) const
{
    if (!isFolder())
        return visit(*this);
    QSet<const KXFilterSetPreset *> visited; // a damaged tree may lead back
    QList<KXRef<KXFilterSetPreset>> ahead { KXRef<KXFilterSetPreset>(const_cast<KXFilterSetPreset *>(this)) };
    while (!ahead.isEmpty()) {
        const KXRef<KXFilterSetPreset> preset = ahead.takeLast();
        if (visited.contains(preset.get()))
            continue;
        visited.insert(preset.get());
        if (preset->isFolder())
            ahead += preset->children();
        else
            visit(*preset);
    }
}

std::optional<KXCounts> KXFilterSetPreset::counts() const
{
    if (!isFolder())
        return m_counts;
    KXCounts sums;
    visitCounted([&sums](const KXFilterSetPreset &preset) {
        const KXCounts counts = preset.m_counts.value_or(KXCounts());
        for (auto entry = counts.cbegin(); entry != counts.cend(); ++entry)
            sums[entry.key()] += entry.value();
    });
    return sums;
}

QDateTime KXFilterSetPreset::countDateForContextIdentifier(const QString &identifier) const
{
    QDateTime oldest;
    visitCounted([&](const KXFilterSetPreset &preset) {
        const QDateTime counted = preset.m_countDates.value(identifier);
        if (counted.isValid() && (!oldest.isValid() || counted < oldest))
            oldest = counted;
    });
    return oldest;
}

void KXFilterSetPreset::setCount(qint64 count, const QString &forContextIdentifier, const QDateTime &counted)
{
    setOwnCount(count, forContextIdentifier, counted);
    tellFolder();
}

void KXFilterSetPreset::removeCount(const QString &forContextIdentifier)
{
    if (!m_counts || !m_counts->contains(forContextIdentifier))
        return;
    setOwnCount(std::nullopt, forContextIdentifier);
    tellFolder();
}

void KXFilterSetPreset::tellFolder()
{
    if (const KXRef<KXFilterSetPreset> folder = parent())
        folder->countsInItDidChange();
}

void KXFilterSetPreset::setOwnCount(
    std::optional<qint64> count, const QString &forContextIdentifier, const QDateTime &counted)
{
    KX_CHECK(KXMainQueue::isMainThread(), "The count of a preset was set outside the main thread");
    if (!count && !(m_counts && m_counts->contains(forContextIdentifier)))
        return;
    willChangeValueForKey(u"counts");
    if (counted.isValid())
        m_countDates.insert(forContextIdentifier, counted);
    else
        m_countDates.remove(forContextIdentifier);
    if (!m_counts)
        m_counts.emplace();
    if (count)
        m_counts->insert(forContextIdentifier, *count);
    else
        m_counts->remove(forContextIdentifier);
    if (m_counts->isEmpty())
        m_counts.reset();
    didChangeValueForKey(u"counts");
}

void KXFilterSetPreset::countsInItDidChange()
{
    willChangeValueForKey(u"counts");
    didChangeValueForKey(u"counts");
}

std::optional<qint64> KXFilterSetPreset::countForContextIdentifier(const QString &identifier) const
{
    if (identifier.isEmpty())
        return 0;
    if (!isFolder())
        return m_counts ? m_counts->value(identifier) : 0;
    const QString own = KXFolderCountIdentifier(identifier);
    return m_counts && m_counts->contains(own) ? std::optional(m_counts->value(own)) : std::nullopt;
}

KXRef<KXFilterSetPreset> KXFilterSetPreset::duplicateInContext(KXManagedObjectContext &context) const
{
    const KXRef<KXFilterSetPreset> copy = cast(context.managedObjectForEntity(entity()->name()));
    if (!copy)
        return {};
    copy->setIsFolder(isFolder());
    copy->setValueForKey(u"title"_s, KXManagedObject::valueForKey(u"title"_s)); // none stays none
    copy->m_counts = counts(); // of a folder its sums, should the copy become a preset
    if (!isFolder())
        copy->m_countDates = m_countDates;
    const KXRef<KXFilterSet> set = filterSet();
    if (set && !set->isMissing()) {
        const KXRef<KXFilterSet> copiedSet = set->duplicateInContext(context);
        if (copiedSet && context.obtainPermanentIDsForObjects({ copiedSet }))
            copy->setFilterSet(copiedSet);
    }
    return copy;
}

void KXFilterSetPreset::prepareForDeletion()
{
    KXTreeObjectOf::prepareForDeletion();
    if (const KXRef<KXFilterSet> set = filterSet(); set && managedObjectContext())
        managedObjectContext()->removeManagedObject(set);
}

QIcon KXFilterSetPreset::image() const
{
    return KXThemeImage(isFolder() ? KXFilterPresetFolderIcon : KXFilterPresetIcon);
}

QVariant KXFilterSetPreset::valueForKey(const QString &key) const
{
    if (key == "counts"_L1)
        return KXVariantFromCounts(counts());
    return key == "filterSet"_L1 ? KXVariantFromRef(filterSet()) : KXTreeObjectOf::valueForKey(key);
}

QStringList KXFilterSetPreset::keyPathsForValuesAffectingKey(const QString &key) const
{
    return key == "counts"_L1 ? QStringList { u"children"_s, u"parent"_s }
                              : KXTreeObjectOf::keyPathsForValuesAffectingKey(key);
}
