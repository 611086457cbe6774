#pragma once

#include <memory>

#include <QAction>
#include <QObject>

#include <kestrixkit/source_list/KXSourceListViewController.h>

#include "crates/CrateDrops.h"
#include "crates/CrateEditor.h"

class CrateCounts;

/// The crates of the source list: their tree, their badges, and what the user does to them there, as commands for
/// menus, buttons and keys.
class CratesPane : public QObject
{
    Q_OBJECT
public:
    explicit CratesPane(KXManagedObjectContext::Ref context, QObject *parent = nullptr);
    ~CratesPane() override;

    [[nodiscard]] KXSourceListViewController *list() const { return m_list.get(); }
    [[nodiscard]] KXTreeController *tree() const { return m_tree.get(); }
    [[nodiscard]] CrateEditor &editor() { return m_editor; }

    QAction *newCrate, *newFolder, *rename, *remove;

    /// From top to bottom.
    [[nodiscard]] QList<KXRef<Crate>> selected() const;
    /// The one crate that is selected alone and has an order of its own; empty for anything else.
    [[nodiscard]] KXRef<Crate> ordered() const;
    void select(const KXRef<Crate> &crate);
    /// Titles from the topmost folder down, joined by "/".
    [[nodiscard]] static QString path(const Crate &crate);
    /// All that the user fills, with folders opened, in the order of the list.
    [[nodiscard]] QList<KXRef<Crate>> filledByUser() const;

    /// What is below the selected crates, by predicate and order; what to say where there is nothing.
    [[nodiscard]] KXPredicate predicate() const;
    [[nodiscard]] std::optional<KXSortDescriptor> order() const;
    [[nodiscard]] QString title() const;
    [[nodiscard]] QString emptyText() const;
    [[nodiscard]] QIcon iconOf(const Crate &crate);
    /// Icons are made anew in the theme's colours.
    void forgetIcons() { m_icons.clear(); }

    /// Counts from now on.
    void startCounting();
    /// Waits for what another thread counts.
    void finishCounting();

private:
    QAction *add(const QString &title, const QKeySequence &keys, std::function<void()> perform);
    void makeNew(Crate::Kind kind);
    void removeSelected();
    void updateActions();

    const KXManagedObjectContext::Ref m_context;
    CrateEditor m_editor;
    CrateDrops m_drops;
    std::unique_ptr<KXTreeController> m_tree;
    std::unique_ptr<KXSourceListViewController> m_list;
    std::unique_ptr<CrateCounts> m_counts;
    QHash<QString, QIcon> m_icons;
};
