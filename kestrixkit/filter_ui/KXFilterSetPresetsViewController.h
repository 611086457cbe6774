#pragma once

#include <QHash>

#include <kestrixkit/filter_ui/KXFilterSetPresetEditing.h>
#include <kestrixkit/foundation/KXDelayedCall.h>
#include <kestrixkit/foundation/KXWeakDelegate.h>
#include <kestrixkit/source_list/KXSourceListViewController.h>
#include <kestrixkit/toolkit/KXPopoverController.h>
#include <kestrixkit/toolkit/KXViewController.h>

class KXFilterSetPresetDetailsViewController;
class KXFilterSetPresetsViewController;
class KXMenu;
class KXPlaceholderView;
class KXThemeableButton;
class KXThemeableSplitView;

/// What the presets library asks of whoever shows it.
class KX_UI_EXPORT KXFilterSetPresetsViewControllerDelegate
{
public:
    virtual ~KXFilterSetPresetsViewControllerDelegate();

    /// Whether the preset can be used in the delegate's place. Asked for each row that is painted.
    [[nodiscard]] virtual bool isPresetAvailable(
        KXFilterSetPresetsViewController &library, const KXRef<KXFilterSetPreset> &preset)
        = 0;
    /// New details of the preset, asked for once; the library owns them. Null: it shows none.
    [[nodiscard]] virtual std::unique_ptr<KXFilterSetPresetDetailsViewController> detailsViewControllerForPreset(
        KXFilterSetPresetsViewController &library, const KXRef<KXFilterSetPreset> &preset)
        = 0;
};

/// The library of presets: an outline of presets in folders, and the details of the selected one beside it.
///
/// Folders are made, presets deleted, copied, pasted and duplicated, renamed and dragged; each saves the context.
/// Deleting can be undone, making and duplicating cannot. Main thread.
class KX_UI_EXPORT KXFilterSetPresetsViewController : public KXViewController, public KXSourceListViewControllerDelegate
{
    Q_OBJECT
    Q_PROPERTY(bool editActionsEnabled READ editActionsEnabled WRITE setEditActionsEnabled)
    Q_PROPERTY(bool deleteEnabled READ isDeleteEnabled NOTIFY enablingChanged)
    Q_PROPERTY(bool addEnabled READ isAddEnabled NOTIFY enablingChanged)
    Q_PROPERTY(bool loadEnabled READ isLoadEnabled WRITE setLoadEnabled)
    Q_PROPERTY(QString autosaveName READ autosaveName WRITE setAutosaveName)
    Q_PROPERTY(QString countsContextIdentifier READ countsContextIdentifier WRITE setCountsContextIdentifier)
public:
    using Presets = KXFilterSetPresetEditing::Presets;
    /// Items of menus, for validateMenuItem().
    enum class MenuItem { Copy, Paste, Delete, Other };

    /// A null context shows nothing and does nothing.
    explicit KXFilterSetPresetsViewController(KXManagedObjectContext::Ref context, QObject *parent = nullptr);
    ~KXFilterSetPresetsViewController() override;

    [[nodiscard]] const KXManagedObjectContext::Ref &context() const { return m_context; }
    [[nodiscard]] KXFilterSetPresetsViewControllerDelegate *delegate() const { return m_delegate.get(); }
    void setDelegate(KXFilterSetPresetsViewControllerDelegate *delegate);

    [[nodiscard]] KXSourceListViewController *sourceListViewController() const { return m_sourceList; }
    [[nodiscard]] KXTreeController *sourceListTreeController() const { return m_tree; }
    /// Of the filter sets shown, for the host's use.
    [[nodiscard]] const QString &filterSetEntityName() const { return m_filterSetEntityName; }
    void setFilterSetEntityName(const QString &name) { m_filterSetEntityName = name; }

    /// Whether copy and paste are offered.
    [[nodiscard]] bool editActionsEnabled() const { return m_editActionsEnabled; }
    void setEditActionsEnabled(bool enabled) { m_editActionsEnabled = enabled; }
    /// Something is selected, and all of it may be deleted.
    [[nodiscard]] bool isDeleteEnabled() const { return m_deleteEnabled; }
    /// All that is selected, if anything, may be overwritten.
    [[nodiscard]] bool isAddEnabled() const { return m_addEnabled; }
    /// Handed to all details.
    [[nodiscard]] bool isLoadEnabled() const { return m_loadEnabled; }
    void setLoadEnabled(bool enabled);
    /// Under which the divider's place, open folders and the selection are remembered.
    [[nodiscard]] const QString &autosaveName() const { return m_autosaveName; }
    void setAutosaveName(const QString &name);
    /// Of the place whose counts are shown. A null one hides the button that leaves out values without count.
    [[nodiscard]] const QString &countsContextIdentifier() const { return m_sourceList->countsContextIdentifier(); }
    void setCountsContextIdentifier(const QString &identifier);
    /// The popover that shows the library, if one does. It stays open while a question is asked.
    [[nodiscard]] KXPopoverController *presentingPopoverController() const { return m_popover; }
    void setPresentingPopoverController(KXPopoverController *popover) { m_popover = popover; }
    /// Made so far, by preset. They stay as long as the library.
    [[nodiscard]] const QHash<KXManagedObjectID, KXFilterSetPresetDetailsViewController *> &
    detailsViewControllers() const
    {
        return m_details;
    }
    /// On screen; nullptr while a placeholder is.
    [[nodiscard]] KXFilterSetPresetDetailsViewController *currentDetailsViewController() const;

    // Outlets; nullptr before the view is loaded.

    [[nodiscard]] KXThemeableSplitView *splitView() const;
    [[nodiscard]] QWidget *filterSetDetailsContainerView() const;
    [[nodiscard]] KXPlaceholderView *placeholderView() const;
    [[nodiscard]] KXThemeableButton *countsFilterButton() const;
    [[nodiscard]] KXThemeableButton *addButton() const;
    [[nodiscard]] KXThemeableButton *deleteButton() const;
    /// The row of buttons, which begins with the two for adding and deleting and ends with the one for counts.
    [[nodiscard]] QWidget *buttonBar() const;

    // Selected, from top to bottom.

    [[nodiscard]] Presets selectedPresets() const { return KXFilterSetPresetEditing::selectedPresets(*m_tree); }
    [[nodiscard]] KXRef<KXFilterSetPreset> selectedPreset() const { return selectedPresets().value(0); }

    // Actions

    /// Makes a folder in the first selected one if that is a folder, else last at the top, and edits its title.
    void addFolder();
    /// Deletes what is selected, as removePresets() does.
    void deletePreset();
    /// Asks first, unless the user wants no question; then deletes those that may be deleted, in one step to undo.
    void removePresets(const Presets &presets);
    /// Puts the selected presets, folders left out, on the pasteboard.
    void copy();
    /// Duplicates what lies on the pasteboard, if the selected preset may be overwritten or none is.
    void paste();
    /// Puts copies behind the selected preset, into the selected folder, or last at the top; selects the first of them.
    void duplicatePresets(const Presets &presets);
    void showDetailsForPreset(const KXRef<KXFilterSetPreset> &preset);
    /// Brings back what was remembered under the autosave name; harmless when repeated.
    void restoreState();
    /// Deletes the selection by the keys for deleting. False for any other key.
    bool keyDown(const QKeyEvent &event);
    [[nodiscard]] bool validateMenuItem(MenuItem item) const;
    /// Fills the outline's context menu.
    void menuNeedsUpdate(KXMenu &menu);

    void viewWillAppear() override;

    // KXSourceListViewControllerDelegate

    void willDisplayCellView(
        KXSourceListViewController &sourceList, KXSourceListCell &cell, KXSourceListItem *item) override;

Q_SIGNALS:
    /// isDeleteEnabled() or isAddEnabled() may have changed.
    void enablingChanged();

protected:
    void viewDidLoad() override;

private:
    void restoreSoon();
    void saveSplit();
    void selectionDidChange();
    void showPlaceholder(const QString &text);
    void hideDetails();

    const KXManagedObjectContext::Ref m_context;
    KXWeakDelegate<KXFilterSetPresetsViewControllerDelegate> m_delegate;
    KXTreeController *m_tree;
    KXSourceListViewController *m_sourceList;
    QString m_filterSetEntityName;
    QString m_autosaveName;
    bool m_editActionsEnabled = false;
    bool m_loadEnabled = false;
    bool m_deleteEnabled = false;
    bool m_addEnabled = true;
    bool m_restoreIsDue = false;
    KXDelayedCall m_saveSplitSoon { this };
    QPointer<KXPopoverController> m_popover;
    QHash<KXManagedObjectID, KXFilterSetPresetDetailsViewController *> m_details;
    QPointer<KXFilterSetPresetDetailsViewController> m_current;
    QPointer<KXThemeableSplitView> m_splitView;
    QPointer<QWidget> m_detailsContainer;
    QPointer<KXPlaceholderView> m_placeholderView;
    QPointer<KXThemeableButton> m_countsFilterButton, m_addButton, m_deleteButton;
    QPointer<QWidget> m_buttonBar;
    std::shared_ptr<KXObserver> m_defaultsObserver;
    KXNotificationToken m_changes;
};
