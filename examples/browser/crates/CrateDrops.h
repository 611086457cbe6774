#pragma once

#include <kestrixkit/source_list/KXSourceListItemController.h>

#include "crates/CrateEditor.h"

class QMimeData;

/// Tracks that are dragged: which they are, and from which crate they come.
namespace CrateDrag {

/// Adds to the data of dragged tracks that they come from a crate.
void setOrigin(QMimeData &data, const Crate &crate);
/// Empty where they come from elsewhere, or the crate is gone.
[[nodiscard]] KXRef<Crate> origin(const QMimeData &data, KXManagedObjectContext &context);
/// Of the context's store; none for anything else that is dragged.
[[nodiscard]] std::vector<qint64> tracks(const QMimeData &data, const KXManagedObjectContext &context);
/// Whether there may be any, without a look at each.
[[nodiscard]] bool hasTracks(const QMimeData &data);

/// What dropping them into a crate does: those of a crate that the user fills move, unless they are to be copied, all
/// others are added.
[[nodiscard]] Qt::DropAction actionFor(
    const QMimeData &data, Qt::DropActions allowed, const KXRef<Crate> &crate, KXManagedObjectContext &context);

} // namespace CrateDrag

/// Takes tracks that are dropped onto a crate in the source list. Serves all crates. Main thread.
class CrateDrops : public KXSourceListItemController
{
public:
    /// The editor, which carries it out, outlives this.
    CrateDrops(KXManagedObjectContext::Ref context, CrateEditor *editor);
    ~CrateDrops() override;

    [[nodiscard]] KXSourceListItem *sourceItem() const override { return nullptr; }
    void setSourceItem(KXSourceListItem *) override { }
    [[nodiscard]] Qt::DropAction validateDrop(KXSourceListView &view, const QMimeData &data, Qt::DropActions allowed,
        KXSourceListItem *proposedItem, int proposedChildIndex) override;
    bool acceptDrop(KXSourceListView &view, const QMimeData &data, KXSourceListItem *item, int childIndex) override;

private:
    const KXManagedObjectContext::Ref m_context;
    CrateEditor *const m_editor;
    Qt::DropAction m_action = Qt::IgnoreAction; // that the last question was answered by
};
