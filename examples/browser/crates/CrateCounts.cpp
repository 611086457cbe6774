#include "crates/CrateCounts.h"

#include <algorithm>

using namespace Qt::StringLiterals;

namespace {

constexpr double foldersAfter = 0.1; // seconds: a drop of many tracks is counted once

} // namespace

CrateCounts::CrateCounts(KXManagedObjectContext::Ref context, QObject *parent)
    : QObject(parent)
    , m_context(std::move(context))
    , m_counts(m_context, QString(CrateEntry::entityName))
{
    connect(&m_counts, &KXLiveCounts::countsDidChange, this, &CrateCounts::deliver);
    m_changes
        = KXManagedObjectContext::onChange(m_context.get(), [this](const KXObjectsDidChange &did) { follow(did); });
    followCrates();
}

void CrateCounts::update()
{
    followCrates();
    m_counts.updateSoon();
    countFolders();
}

void CrateCounts::finish() { m_counts.update(); }

/// Crates come and go, and change folders.
void CrateCounts::follow(const KXObjectsDidChange &did)
{
    const auto isCrate = [](const KXRef<KXManagedObject> &object) { return dynamic_cast<Crate *>(object.get()); };
    const auto hasMoved = [&](const KXRef<KXManagedObject> &object) {
        return isCrate(object) && did.changedKeys.value(object.get()).contains(u"children"_s);
    };
    if (std::any_of(did.inserted.begin(), did.inserted.end(), isCrate)
        || std::any_of(did.deleted.begin(), did.deleted.end(), isCrate)
        || std::any_of(did.updated.begin(), did.updated.end(), hasMoved)
        || std::any_of(did.refreshed.begin(), did.refreshed.end(), hasMoved) || !did.insertedKeys.isEmpty())
        m_cratesSoon.start(0, [this] { followCrates(); });
}

void CrateCounts::followCrates()
{
    m_cratesSoon.cancel();
    QHash<QString, KXRef<Crate>> before = std::exchange(m_crates, {});
    for (const KXRef<Crate> &crate : Crate::findAllInContext(*m_context)) {
        if (!crate)
            continue;
        if (crate->isFolder()) {
            m_folders.insert(crate->objectID().key());
            continue;
        }
        const QString identifier = QString::number(crate->objectID().key());
        m_crates.insert(identifier, crate);
        if (!before.remove(identifier))
            m_counts.setRule(identifier,
                KXPredicate::comparison(
                    u"crate"_s, KXPredicateOperator::Equal, QVariant::fromValue(crate->objectID())));
    }
    for (auto gone = before.cbegin(); gone != before.cend(); ++gone)
        m_counts.removeRule(gone.key());
    if (!m_folders.isEmpty())
        m_foldersSoon.start(foldersAfter, [this] { countFolders(); });
}

void CrateCounts::deliver(const QStringList &identifiers)
{
    for (const QString &identifier : identifiers) {
        const KXRef<Crate> crate = m_crates.value(identifier);
        if (!crate || crate->isDeleted())
            continue;
        crate->setCount(m_counts.count(identifier).value_or(0));
        for (KXRef<Crate> folder = crate->parent(); folder; folder = folder->parent())
            m_folders.insert(folder->objectID().key());
    }
    if (!m_folders.isEmpty())
        m_foldersSoon.start(foldersAfter, [this] { countFolders(); });
}

/// A track that is in several of a folder's crates counts once, so their numbers cannot be added up.
void CrateCounts::countFolders()
{
    m_foldersSoon.cancel();
    for (const KXRef<Crate> &folder : Crate::findAllInContext(*m_context)) {
        if (folder && m_folders.contains(folder->objectID().key()))
            folder->setCount(m_context->countForEntity(QString(Track::entityName), Crates::predicate(*folder)));
    }
    m_folders.clear();
}
