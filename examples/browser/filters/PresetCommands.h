#pragma once

#include <QAction>
#include <QMenu>
#include <QObject>

#include <kestrixkit/filter_ui/KXFilterSetPresetEditing.h>
#include <kestrixkit/source_list/KXSourceListViewController.h>

/// What the user does to presets in a list of them, as commands for menus, buttons and keys. Each asks again whether it
/// makes sense before it does anything.
class PresetCommands : public QObject
{
    Q_OBJECT
public:
    explicit PresetCommands(KXSourceListViewController *list);

    QAction *newFolder, *copy, *paste, *duplicate, *remove, *rename;

    /// The context menu of the list.
    [[nodiscard]] QMenu *menu() const { return m_menu; }
    void update();

private:
    QAction *add(const QString &title, const QKeySequence &keys, std::function<void()> perform);
    void removeSelected();
    [[nodiscard]] KXFilterSetPresetEditing::Presets selected() const;

    KXSourceListViewController *const m_list;
    QMenu *m_menu;
};
