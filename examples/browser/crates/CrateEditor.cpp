#include "crates/CrateEditor.h"

#include <algorithm>

#include <kestrixkit/foundation/KXApplication.h>
#include <kestrixkit/foundation/KXUndoManager.h>

#include "library/OwnChange.h"

using namespace Qt::StringLiterals;

namespace {

bool isThere(const KXRef<Crate> &crate) { return crate && !crate->isDeleted() && !crate->isMissing(); }

qint64 endOf(KXManagedObjectContext &context, const KXRef<Crate> &folder)
{
    qint64 end = 0;
    const auto level = folder
        ? Crate::findUsingPredicate(KXPredicate::predicateWithFormat("parent == %@", KXVariantFromRef(folder)), context)
        : Crate::findUsingPredicate(KXPredicate::predicateWithFormat("parent == nil"), context);
    for (const KXRef<Crate> &crate : level)
        end = std::max(end, crate->position() + 1);
    return end;
}

} // namespace

CrateEditor::CrateEditor(KXManagedObjectContext::Ref context)
    : m_context(std::move(context))
    , m_membership(Crates::membership(m_context))
{
}

template <typename Act> bool CrateEditor::perform(const QString &name, Act &&act)
{
    bool changed = false;
    {
        const KXUndoGroup group(m_context->undoManager(), name);
        changed = act();
    }
    return changed && m_context->save();
}

KXRef<Crate> CrateEditor::make(Crate::Kind kind, const KXRef<Crate> &beside, const QString &name, Tracks tracks)
{
    const bool isFolder = kind == Crate::Kind::Folder;
    KXRef<Crate> made;
    (void)perform(isFolder ? tr("New Crate Folder") : tr("New Crate"), [&] {
        const bool isBeside = isThere(beside) && beside->isOfUser();
        const KXRef<Crate> folder = !isBeside       ? KXRef<Crate>()
            : beside->kind() == Crate::Kind::Folder ? beside
                                                    : beside->parent();
        const qint64 position = endOf(*m_context, folder);
        made = Crate::createInContext(*m_context);
        if (!made)
            return false;
        made->setKind(kind);
        made->setName(!name.isEmpty() ? name : isFolder ? tr("untitled folder") : tr("untitled crate"));
        made->setPosition(position);
        made->setParent(folder);
        append(*made, tracks);
        return true;
    });
    return made;
}

qsizetype CrateEditor::add(const KXRef<Crate> &crate, Tracks tracks)
{
    qsizetype came = 0;
    if (isThere(crate) && crate->isFilledByUser())
        (void)perform(tr("Add to Crate"), [&] { return (came = append(*crate, tracks)) > 0; });
    return came;
}

qsizetype CrateEditor::append(const Crate &crate, Tracks tracks)
{
    KXError error;
    const qsizetype came = m_membership.appendAndSave(crate.objectID(), tracks, &error);
    if (error)
        KXApplication::presentError(error);
    return came;
}

bool CrateEditor::move(const KXRef<Crate> &crate, Tracks tracks, qint64 before, const KXRef<Crate> &from)
{
    if (!isThere(crate) || !crate->isFilledByUser())
        return false;
    const bool leaves = isThere(from) && from != crate && from->isFilledByUser();
    return perform(leaves || from == crate ? tr("Move Tracks") : tr("Add to Crate"), [&] {
        const qsizetype left = leaves ? m_membership.remove(from->objectID(), tracks) : 0;
        return m_membership.insert(crate->objectID(), tracks, before) > 0 || left > 0 || from == crate;
    });
}

bool CrateEditor::remove(const KXRef<Crate> &crate, Tracks tracks)
{
    return isThere(crate) && !crate->isFolder()
        && perform(tr("Remove from Crate"), [&] { return m_membership.remove(crate->objectID(), tracks) > 0; });
}

bool CrateEditor::togglePrepared(Tracks tracks)
{
    const KXRef<Crate> list = Crates::fixed(*m_context, Crate::Kind::Prepare);
    if (!list || tracks.empty())
        return false;
    bool added = false;
    const bool done = perform(tr("Prepare"), [&] {
        added = m_membership.append(list->objectID(), tracks) > 0;
        return added;
    });
    return added ? done
                 : perform(tr("Do Not Prepare"), [&] { return m_membership.remove(list->objectID(), tracks) > 0; });
}

// What was played

KXRef<Crate> CrateEditor::dayList(const QDate &day)
{
    const QString date = day.toString(Qt::ISODate);
    if (const auto known = Crate::findFirstUsingPredicate(
            KXPredicate::predicateWithFormat("kind == %d AND day == %@", int(Crate::Kind::Day), date), *m_context))
        return known;
    const KXRef<Crate> history = Crates::fixed(*m_context, Crate::Kind::History);
    qint64 first = 0; // the newest day stands at the top
    for (const KXRef<Crate> &other : history ? history->children() : QList<KXRef<Crate>>())
        first = std::min(first, other->position() - 1);
    const auto list = history ? Crate::createInContext(*m_context) : KXRef<Crate>();
    if (list) {
        list->setKind(Crate::Kind::Day);
        list->setDay(date);
        list->setName(date);
        list->setPosition(first);
        list->setParent(history);
    }
    return list;
}

void CrateEditor::notePlayed(qint64 track, const QDate &day)
{
    const OwnChange change(*m_context);
    if (const KXRef<Crate> list = dayList(day))
        m_membership.insert(list->objectID(), std::span(&track, 1));
}
