#include "crates/CrateDrops.h"

#include <QMimeData>

#include <kestrixkit/store/KXPersistentStore.h>
#include <kestrixkit/toolkit/KXObjectPasteboard.h>

using namespace Qt::StringLiterals;

namespace {

const QString crateOriginType = u"com.kestrix.browser.crate"_s; // the crate's URI

} // namespace

void CrateDrag::setOrigin(QMimeData &data, const Crate &crate)
{
    data.setData(crateOriginType, crate.objectID().URIRepresentation().toEncoded());
}

KXRef<Crate> CrateDrag::origin(const QMimeData &data, KXManagedObjectContext &context)
{
    if (!data.hasFormat(crateOriginType))
        return {};
    const auto objects
        = context.objectInstancesFromURIRepresentations({ QUrl::fromEncoded(data.data(crateOriginType)) });
    const KXRef<Crate> crate = objects.isEmpty() ? KXRef<Crate>() : Crate::cast(objects.first());
    return crate && !crate->isDeleted() && !crate->isMissing() ? crate : KXRef<Crate>();
}

std::vector<qint64> CrateDrag::tracks(const QMimeData &data, const KXManagedObjectContext &context)
{
    std::vector<qint64> keys;
    for (const KXManagedObjectID &track : KXObjectPasteboard::objectsOfMimeData(
             &data, context.persistentStoreCoordinator()->store()->identity(), QString(Track::entityName)))
        keys.push_back(track.key());
    return keys;
}

bool CrateDrag::hasTracks(const QMimeData &data) { return data.hasFormat(KXObjectPasteboardType); }

Qt::DropAction CrateDrag::actionFor(
    const QMimeData &data, Qt::DropActions allowed, const KXRef<Crate> &crate, KXManagedObjectContext &context)
{
    if (!crate || !crate->isFilledByUser() || !hasTracks(data))
        return Qt::IgnoreAction;
    const KXRef<Crate> from = origin(data, context);
    const Qt::DropAction wanted = from && from->isFilledByUser() ? Qt::MoveAction : Qt::CopyAction;
    return allowed & wanted ? wanted : allowed & Qt::CopyAction && from != crate ? Qt::CopyAction : Qt::IgnoreAction;
}

CrateDrops::CrateDrops(KXManagedObjectContext::Ref context, CrateEditor *editor)
    : m_context(std::move(context))
    , m_editor(editor)
{
    Crate::setSharedController(this);
}

CrateDrops::~CrateDrops() { Crate::setSharedController(nullptr); }

Qt::DropAction CrateDrops::validateDrop(KXSourceListView &, const QMimeData &data, Qt::DropActions allowed,
    KXSourceListItem *proposedItem, int proposedChildIndex)
{
    const KXRef<Crate> crate(proposedChildIndex < 0 ? dynamic_cast<Crate *>(proposedItem) : nullptr);
    m_action = CrateDrag::actionFor(data, allowed, crate, *m_context);
    if (m_action == Qt::MoveAction && CrateDrag::origin(data, *m_context) == crate)
        m_action = Qt::IgnoreAction; // they are there
    return m_action;
}

bool CrateDrops::acceptDrop(KXSourceListView &, const QMimeData &data, KXSourceListItem *item, int)
{
    const KXRef<Crate> crate(dynamic_cast<Crate *>(item));
    const std::vector<qint64> tracks = CrateDrag::tracks(data, *m_context);
    if (!crate || tracks.empty())
        return false;
    if (m_action == Qt::MoveAction)
        return m_editor->move(crate, tracks, 0, CrateDrag::origin(data, *m_context));
    return m_editor->add(crate, tracks) > 0;
}
