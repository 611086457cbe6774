#pragma once

#include <optional>

#include <QList>
#include <QSplitter>

#include <kestrixkit/foundation/KXDelayedCall.h>

class KXSourceListView;

/// Shares a column's height among the lists that lie in it, one below the other: each gets what its open rows need.
/// Where that is more than there is, the long ones share what the short ones leave; what is over comes behind the last
/// one. So it goes on until the user drags a handle: then the heights are the user's.
///
/// A list whose rows are opened grows only by what the others do not use, so that what is looked at stays where it is.
class SidebarRoom : public QObject
{
    Q_OBJECT
public:
    /// Both outlive this; a list for each widget of the splitter, from top to bottom, with their models set.
    SidebarRoom(QSplitter *splitter, const QList<KXSourceListView *> &lists);

    /// The heights that the user chose; absent until then.
    [[nodiscard]] std::optional<QList<int>> chosen() const;
    /// As if the user had chosen them.
    void choose(const QList<int> &heights);

protected:
    bool eventFilter(QObject *watched, QEvent *event) override;

private:
    void shareSoon(bool onlyUnused);
    void share();
    [[nodiscard]] int wanted(qsizetype index) const;

    QSplitter *const m_splitter;
    const QList<KXSourceListView *> m_lists;
    bool m_isUsers = false;
    bool m_onlyUnused = true; // of the sharing that is due
    KXDelayedCall m_soon { this };
};
