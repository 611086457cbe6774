#include "filters/PresetCommands.h"

#include <QClipboard>
#include <QGuiApplication>

using namespace Qt::StringLiterals;

namespace Editing = KXFilterSetPresetEditing;

PresetCommands::PresetCommands(KXSourceListViewController *list)
    : QObject(list)
    , m_list(list)
    , m_menu(new QMenu(list->sourceListView()))
{
    newFolder = add(tr("New &Folder"), QKeySequence(Qt::CTRL | Qt::SHIFT | Qt::Key_N), [this] {
        const auto folder = Editing::addFolder(*m_list->treeController(), selected().value(0));
        m_list->selectForEditing(folder.get());
    });
    copy = add(tr("&Copy"), QKeySequence::Copy, [this] { Editing::copyPresets(selected()); });
    paste = add(tr("&Paste"), QKeySequence::Paste, [this] {
        const auto copies = Editing::duplicatePresets(
            *m_list->treeController(), Editing::presetsOnPasteboard(*m_list->treeController()), selected().value(0));
        m_list->selectItem(copies.value(0).get());
    });
    duplicate = add(tr("&Duplicate"), QKeySequence(Qt::CTRL | Qt::Key_D), [this] {
        // After the last of them.
        Editing::Presets presets = selected();
        presets.removeIf([](const auto &preset) { return preset->isFolder(); });
        const auto copies = Editing::duplicatePresets(*m_list->treeController(), presets, presets.last());
        m_list->selectItem(copies.value(0).get());
    });
    remove = add(tr("De&lete"), QKeySequence(Qt::Key_Delete), [this] { removeSelected(); });
    rename
        = add(tr("&Rename"), QKeySequence(Qt::Key_F2), [this] { m_list->selectForEditing(selected().value(0).get()); });

    m_menu->addActions({ newFolder });
    m_menu->addSeparator();
    m_menu->addActions({ copy, paste, duplicate });
    m_menu->addSeparator();
    m_menu->addActions({ rename, remove });
    KXSourceListView *const view = list->sourceListView();
    view->setContextMenu(m_menu);
    connect(view, &KXSourceListView::deletePressed, this, &PresetCommands::removeSelected);
    connect(list->treeController(), &KXTreeController::selectionChanged, this, &PresetCommands::update);
    connect(QGuiApplication::clipboard(), &QClipboard::dataChanged, this, &PresetCommands::update);
    connect(m_menu, &QMenu::aboutToShow, this, &PresetCommands::update);
    update();
}

QAction *PresetCommands::add(const QString &title, const QKeySequence &keys, std::function<void()> perform)
{
    auto *const action = new QAction(title, this);
    action->setShortcut(keys);
    action->setShortcutContext(Qt::WidgetShortcut); // the same keys mean other things elsewhere
    connect(action, &QAction::triggered, this, [this, action, perform = std::move(perform)] {
        update();
        if (action->isEnabled() && m_list->treeController())
            perform();
    });
    m_list->sourceListView()->addAction(action);
    return action;
}

Editing::Presets PresetCommands::selected() const
{
    const KXTreeController *const tree = m_list->treeController();
    return tree ? Editing::selectedPresets(*tree) : Editing::Presets();
}

void PresetCommands::update()
{
    const Editing::Presets presets = selected();
    copy->setEnabled(
        std::any_of(presets.begin(), presets.end(), [](const auto &preset) { return !preset->isFolder(); }));
    duplicate->setEnabled(copy->isEnabled());
    // Presets of another library cannot be copied from here.
    const KXTreeController *const tree = m_list->treeController();
    paste->setEnabled(Editing::canPaste(presets.value(0)) && tree && !Editing::presetsOnPasteboard(*tree).isEmpty());
    rename->setEnabled(presets.size() == 1 && presets.first()->isOverwritable());
    remove->setEnabled(
        std::any_of(presets.begin(), presets.end(), [](const auto &preset) { return preset->isDeletable(); }));
}

void PresetCommands::removeSelected()
{
    const Editing::Presets presets = selected();
    const QPointer<PresetCommands> alive(this);
    if (Editing::confirmRemoval(presets, m_list->sourceListView()->window()) && alive && m_list->treeController())
        Editing::removePresets(*m_list->treeController(), presets);
}
