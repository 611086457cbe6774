#include "crates/CratesPane.h"

#include <algorithm>

#include <QMenu>

#include <kestrixkit/foundation/KXClock.h>
#include <kestrixkit/foundation/KXUndoManager.h>
#include <kestrixkit/theme/KXStandardTheme.h>

#include "crates/CrateCounts.h"
#include "window/BrowserStyle.h"

using namespace Qt::StringLiterals;

/// Those of a static library are not there by themselves.
static void registerBrowserResources() { Q_INIT_RESOURCE(browser); }

CratesPane::CratesPane(KXManagedObjectContext::Ref context, QObject *parent)
    : QObject(parent)
    , m_context(std::move(context))
    , m_editor(m_context)
    , m_drops(m_context, &m_editor)
{
    registerBrowserResources();
    Crates::makeFixed(*m_context);
    KXTreeRequest request { QString(Crate::entityName) };
    request.sortDescriptors = { { u"position"_s } };
    request.titleKeyPath = u"name"_s;
    m_tree = std::make_unique<KXTreeController>(m_context, request);
    m_list = std::make_unique<KXSourceListViewController>();
    m_list->setTreeController(m_tree.get());

    newCrate = add(tr("New &Crate"), QKeySequence(Qt::CTRL | Qt::Key_N), [this] { makeNew(Crate::Kind::Plain); });
    newCrate->setShortcutContext(Qt::WindowShortcut);
    newFolder = add(tr("New Crate &Folder"), {}, [this] { makeNew(Crate::Kind::Folder); });
    rename
        = add(tr("&Rename"), QKeySequence(Qt::Key_F2), [this] { m_list->selectForEditing(selected().value(0).get()); });
    remove = add(tr("De&lete"), QKeySequence(Qt::Key_Delete), [this] { removeSelected(); });
    KXSourceListView *const view = m_list->sourceListView();
    auto *const menu = new QMenu(view);
    menu->addActions({ newCrate, newFolder });
    menu->addSeparator();
    menu->addActions({ rename, remove });
    view->setContextMenu(menu);
    connect(menu, &QMenu::aboutToShow, this, &CratesPane::updateActions);
    connect(view, &KXSourceListView::deletePressed, this, &CratesPane::removeSelected);
    connect(m_tree.get(), &KXTreeController::selectionChanged, this, &CratesPane::updateActions);
    updateActions();
}

CratesPane::~CratesPane() = default;

QAction *CratesPane::add(const QString &title, const QKeySequence &keys, std::function<void()> perform)
{
    auto *const action = new QAction(title, this);
    action->setShortcut(keys);
    action->setShortcutContext(Qt::WidgetShortcut); // the same keys mean other things elsewhere
    connect(action, &QAction::triggered, this, [this, action, perform = std::move(perform)] {
        updateActions();
        if (action->isEnabled())
            perform();
    });
    m_list->sourceListView()->addAction(action);
    return action;
}

void CratesPane::updateActions()
{
    const QList<KXRef<Crate>> crates = selected();
    rename->setEnabled(crates.size() == 1 && crates.first()->isOfUser());
    remove->setEnabled(
        std::any_of(crates.begin(), crates.end(), [](const auto &crate) { return crate->isDeletable(); }));
}

void CratesPane::makeNew(Crate::Kind kind)
{
    if (const KXRef<Crate> made = m_editor.make(kind, selected().value(0))) {
        m_context->processPendingChanges();
        m_list->selectForEditing(made.get());
    }
}

/// Nobody is asked: one step takes it back.
void CratesPane::removeSelected()
{
    QList<KXIndexPath> paths;
    for (const KXRef<Crate> &crate : selected()) {
        const KXTreeNode *const node = m_tree->treeNodeForObject(crate.get());
        if (node && crate->isDeletable())
            paths.append(node->indexPath());
    }
    if (paths.isEmpty())
        return;
    bool done = false;
    {
        const KXUndoGroup group(m_context->undoManager(),
            paths.size() == 1 ? tr("Delete Crate") : tr("Delete Crates", nullptr, int(paths.size())));
        done = m_tree->removeObjectsAtIndexPaths(paths);
    }
    if (done)
        m_context->save();
}

// What is selected

QList<KXRef<Crate>> CratesPane::selected() const
{
    QList<KXRef<Crate>> crates;
    for (const KXRef<KXManagedObject> &object : m_tree->selectedObjects()) {
        if (const auto crate = Crate::cast(object); crate && !crate->isDeleted())
            crates.append(crate);
    }
    return crates;
}

KXRef<Crate> CratesPane::ordered() const
{
    const QList<KXRef<Crate>> crates = selected();
    return crates.size() == 1 && !crates.first()->isFolder() ? crates.first() : KXRef<Crate>();
}

void CratesPane::select(const KXRef<Crate> &crate)
{
    m_context->processPendingChanges();
    m_list->selectItem(crate.get());
}

QString CratesPane::path(const Crate &crate)
{
    QString path = crate.title();
    for (KXRef<Crate> folder = crate.parent(); folder; folder = folder->parent())
        path.prepend(folder->title() + u'/');
    return path;
}

QList<KXRef<Crate>> CratesPane::filledByUser() const
{
    QList<KXRef<Crate>> crates;
    for (const KXTreeNode *node : m_tree->flattenedNodes()) {
        if (const auto crate = Crate::cast(node->representedObject()); crate && crate->isFilledByUser())
            crates.append(crate);
    }
    return crates;
}

KXPredicate CratesPane::predicate() const
{
    QList<KXPredicate> parts;
    for (const KXRef<Crate> &crate : selected())
        parts.append(Crates::predicate(*crate));
    return parts.isEmpty()  ? KXPredicate::falsePredicate()
        : parts.size() == 1 ? parts.first()
                            : KXPredicate::orPredicate(parts);
}

std::optional<KXSortDescriptor> CratesPane::order() const
{
    const KXRef<Crate> crate = ordered();
    return crate ? std::optional(m_editor.membership().order(crate->objectID())) : std::nullopt;
}

QString CratesPane::title() const
{
    const QList<KXRef<Crate>> crates = selected();
    return crates.size() == 1
        ? path(*crates.first())
        : tr("%1 Crates", nullptr, int(crates.size())).arg(KXClock::locale().toString(crates.size()));
}

QString CratesPane::emptyText() const
{
    const KXRef<Crate> crate = selected().value(0);
    if (!crate || crate->kind() == Crate::Kind::History || crate->kind() == Crate::Kind::Day)
        return tr("Nothing has been played yet");
    if (crate->kind() == Crate::Kind::Prepare)
        return tr("Nothing is prepared.\nPress P on tracks to have them here.");
    return crate->isFolder() ? tr("No music in these crates")
                             : tr("This crate is empty.\nDrag tracks onto its name to keep them here.");
}

QIcon CratesPane::iconOf(const Crate &crate)
{
    const QString file = crate.kind() == Crate::Kind::Prepare                      ? u":/browser/icons/prepare.svg"_s
        : crate.kind() == Crate::Kind::History || crate.kind() == Crate::Kind::Day ? u":/browser/icons/history.svg"_s
        : crate.isFolder() ? u":/kestrixkit/icons/filter_set_folder.svg"_s
                           : u":/browser/icons/crate.svg"_s;
    QIcon &icon = m_icons[file];
    if (icon.isNull())
        icon = KXStandardTheme::icon(file, BrowserStyle::secondaryText());
    return icon;
}

void CratesPane::startCounting()
{
    if (!m_counts)
        m_counts = std::make_unique<CrateCounts>(m_context);
    m_counts->update();
}

void CratesPane::finishCounting()
{
    if (m_counts)
        m_counts->finish();
}
