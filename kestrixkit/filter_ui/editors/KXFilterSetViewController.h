#pragma once

#include <kestrixkit/filter_ui/editors/KXFilterBar.h>
#include <kestrixkit/filter_ui/editors/KXFilterSetManagerViewController.h>
#include <kestrixkit/filters/KXFilterSetPreset.h>
#include <kestrixkit/toolkit/KXViewController.h>

class KXEntityDescription;
class KXFilterSetPresetSaveViewController;
class KXPopoverController;
class KXThemeableButton;
QT_BEGIN_NAMESPACE
class QAction;
QT_END_NAMESPACE

/// The editor of one filter set: a bar of its filters, a grid of types to add one, and deleting, switching and saving
/// them as a preset.
///
/// Deleting filters is a step to undo; switching them on and off is not. Both are saved; what insertFilter() puts in is
/// not. A host subclasses it to say which filters there are: addFilterOfType() and filterViewControllerForFilter().
/// Main thread.
class KX_UI_EXPORT KXFilterSetViewController : public KXViewController,
                                               public KXFilterBarDelegate,
                                               public KXFilterSetManagerViewControllerDelegate
{
    Q_OBJECT
    Q_PROPERTY(QString autosaveName READ autosaveName WRITE setAutosaveName)
public:
    /// Items of menus, for validateMenuItem().
    enum class MenuItem { ToggleFilter, DisableAll, EnableAll, DeleteAll, Other };

    /// With the application context. A null one shows nothing and does nothing.
    explicit KXFilterSetViewController(KXManagedObjectContext::Ref context, QObject *parent = nullptr);
    ~KXFilterSetViewController() override;

    [[nodiscard]] const KXManagedObjectContext::Ref &context() const { return m_context; }
    /// Empty at first, and after it was deleted.
    [[nodiscard]] const KXRef<KXFilterSet> &filterSet() const { return m_set; }
    void setFilterSet(const KXRef<KXFilterSet> &set);
    /// Of the presets library in the save popover.
    [[nodiscard]] const QString &autosaveName() const { return m_autosaveName; }
    void setAutosaveName(const QString &name) { m_autosaveName = name; }
    /// Which filters may be added.
    [[nodiscard]] KXFilterSetManagerViewController *filterSetManagerViewController() const { return m_typeGrid; }
    /// nullptr before it was first shown.
    [[nodiscard]] KXFilterSetPresetSaveViewController *filterSetPresetSaveViewController() const;
    /// The entity of what is filtered: filters that nothing can fit, or that contradict others, then say so in the bar.
    /// nullptr: they do not.
    void setFilteredEntity(const KXEntityDescription *entity);

    // Outlets; nullptr before the view is loaded.

    [[nodiscard]] KXFilterBar *filterBar() const;
    [[nodiscard]] KXThemeableButton *addButton() const;
    [[nodiscard]] KXThemeableButton *clearButton() const;
    [[nodiscard]] KXThemeableButton *saveButton() const;

    // Popovers; nullptr while there is none.

    [[nodiscard]] KXPopoverController *filterSetManagerPopover() const { return m_typePopover.get(); }
    [[nodiscard]] KXPopoverController *filterPopover() const { return m_filterPopover.get(); }
    [[nodiscard]] KXPopoverController *filterSetPresetSavePopover() const { return m_savePopover.get(); }

    // Filters

    /// Opens the grid of types below the add button.
    void showFilterSetManager();
    /// Makes a filter of the type and calls insertFilter(). Nothing unless overridden.
    virtual void addFilterOfType(const KXFilterTypeItem &type);
    /// Puts the filter last into the set.
    void insertFilter(const KXRef<KXFilter> &filter);
    /// Deletes it and numbers the rest anew. Nothing for a filter of another set.
    void removeFilter(const KXRef<KXFilter> &filter);
    void removeAllFilters();
    /// Opens the filter's editor below its button; nothing where it has none.
    void showFilter(const KXRef<KXFilter> &filter);
    /// A new editor, which the caller owns; null unless overridden.
    [[nodiscard]] virtual std::unique_ptr<KXViewController> filterViewControllerForFilter(
        const KXRef<KXFilter> &filter);

    // Actions. Senders are a filter, or an item of a menu (QAction) whose data it is: KXVariantFromRef().

    void deleteFilter(const QVariant &sender);
    void deleteAllFilters() { removeAllFilters(); }
    void toggleFilterEnabledState(const QVariant &sender);
    void disableAllFilters() { setAllEnabled(false); }
    void enableAllFilters() { setAllEnabled(true); }
    /// Opens the save popover below the sender. Nothing while it is open, and without set.
    void saveAsPreset(QWidget *sender);
    /// Whether the item makes sense. The action, where there is one, gets the title that it should have.
    [[nodiscard]] bool validateMenuItem(MenuItem item, QAction *action = nullptr) const;
    [[nodiscard]] static KXRef<KXFilter> filterOfSender(const QVariant &sender);

    // KXFilterBarDelegate

    void showFilter(KXFilterBar &bar, const KXRef<KXFilter> &filter) override;
    void toggleEnabledStateForFilter(KXFilterBar &bar, const KXRef<KXFilter> &filter) override;
    [[nodiscard]] std::unique_ptr<KXMenu> contextMenuForFilter(
        KXFilterBar &bar, const KXRef<KXFilter> &filter) override;
    void deleteFilter(KXFilterBar &bar, const KXRef<KXFilter> &filter) override;

    // KXFilterSetManagerViewControllerDelegate

    void addFilterOfType(KXFilterSetManagerViewController &manager, const KXFilterTypeItem &type) override;

Q_SIGNALS:
    /// Another set is edited, or something in it has changed: what it asks for may be different now.
    void filterSetDidChange();
    /// The set was saved as this preset.
    void didSavePreset(const KXRef<KXFilterSetPreset> &preset);

protected:
    void loadView() override;
    void viewDidLoad() override;

private:
    [[nodiscard]] bool canEdit() const;
    [[nodiscard]] bool isOwn(const KXRef<KXFilter> &filter) const;
    void setAllEnabled(bool enabled);
    void closeFilterPopover();
    KXRef<KXFilterSet> settled(bool closesPopover);
    void follow(const KXObjectsDidChange &did);
    void setDidChange();
    void updateButtons();
    void check();
    void presetWasSaved(const KXRef<KXFilterSetPreset> &preset);

    const KXManagedObjectContext::Ref m_context;
    KXRef<KXFilterSet> m_set;
    QString m_autosaveName;
    const KXEntityDescription *m_filteredEntity = nullptr;
    KXFilterSetManagerViewController *m_typeGrid;
    std::unique_ptr<KXFilterSetPresetSaveViewController> m_saveController;
    std::unique_ptr<KXPopoverController> m_typePopover, m_filterPopover, m_savePopover; // go before their contents
    KXRef<KXFilter> m_editedFilter; // in the popover
    QPointer<KXFilterBar> m_filterBar;
    QPointer<KXThemeableButton> m_addButton, m_clearButton, m_saveButton;
    KXNotificationToken m_changes;
};
