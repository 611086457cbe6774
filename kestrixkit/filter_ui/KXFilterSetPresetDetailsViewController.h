#pragma once

#include <memory>
#include <vector>

#include <kestrixkit/filters/KXFacetFilter.h>
#include <kestrixkit/filters/KXFilterDefaultValue.h>
#include <kestrixkit/filters/KXFilterSetPreset.h>
#include <kestrixkit/foundation/KXNotificationCenter.h>
#include <kestrixkit/foundation/KXWeakDelegate.h>
#include <kestrixkit/toolkit/KXViewController.h>

class KXFacetFilterValueCellView;
class KXFilterSetPresetDetailsModel;
class KXFilterSetPresetDetailsViewController;
class KXMenu;
class KXObserver;
class KXPlaceholderView;
class KXSourceListView;
struct KXObjectsDidChange;
QT_BEGIN_NAMESPACE
class QLabel;
QT_END_NAMESPACE

/// A user default, off unless set: details show only those values that have a count.
inline constexpr QLatin1StringView KXFilterSetPresetDetailsOnlyShowItemsWithCountsKey {
    "KXFilterSetPresetDetailsOnlyShowItemsWithCounts"
};

/// What details of a preset ask of whoever shows them.
class KX_UI_EXPORT KXFilterSetPresetDetailsViewControllerDelegate
{
public:
    virtual ~KXFilterSetPresetDetailsViewControllerDelegate();

    /// The user wants to use the set: the preset's, with the picked values alone enabled. It lives in a context of its
    /// own, which its handle keeps and which is never saved.
    virtual void loadFilterSet(KXFilterSetPresetDetailsViewController &details, const KXRef<KXFilterSet> &set) = 0;
    /// Whether values without count may be left out below the filter.
    [[nodiscard]] virtual bool isCountsFilterEnabledForFacetFilter(
        KXFilterSetPresetDetailsViewController &details, const KXRef<KXFacetFilter> &filter)
        = 0;
    /// The row is about to be painted, or asked for what it shows: the last word about it.
    virtual void willDisplayFacetFilterValueCell(
        KXFilterSetPresetDetailsViewController &details, KXFacetFilterValueCellView &cell)
        = 0;
};

/// Shows what a preset holds: its filters, and below each the values of a facet or the setting of any other. Values
/// can be picked and the preset be loaded with these alone, which leaves the stored preset as it is.
///
/// Follows the preset's counts, saves of its context and what is merged into that, while its view is in a window that
/// is shown; reads everything anew when it appears. Main thread.
class KX_UI_EXPORT KXFilterSetPresetDetailsViewController : public KXViewController
{
    Q_OBJECT
    Q_PROPERTY(QString countsContextIdentifier READ countsContextIdentifier WRITE setCountsContextIdentifier)
    Q_PROPERTY(bool loadEnabled READ isLoadEnabled WRITE setLoadEnabled)
    Q_PROPERTY(bool available READ isAvailable WRITE setAvailable)
    Q_PROPERTY(bool onlyShowItemsWithCounts READ onlyShowItemsWithCounts WRITE setOnlyShowItemsWithCounts)
public:
    static constexpr int filterRowHeight = 22; ///< in points
    static constexpr int valueRowHeight = 19;

    explicit KXFilterSetPresetDetailsViewController(KXRef<KXFilterSetPreset> preset, QObject *parent = nullptr);
    ~KXFilterSetPresetDetailsViewController() override;

    [[nodiscard]] const KXRef<KXFilterSetPreset> &filterSetPreset() const { return m_preset; }
    [[nodiscard]] KXFilterSetPresetDetailsViewControllerDelegate *delegate() const { return m_delegate.get(); }
    void setDelegate(KXFilterSetPresetDetailsViewControllerDelegate *delegate);
    /// Of the place whose counts are shown.
    [[nodiscard]] const QString &countsContextIdentifier() const { return m_identifier; }
    void setCountsContextIdentifier(const QString &identifier);
    /// Whether values can be picked and loaded at all.
    [[nodiscard]] bool isLoadEnabled() const { return m_loadEnabled; }
    void setLoadEnabled(bool enabled);
    /// Whether the preset can be used here; if not, the view says so in place of the outline.
    [[nodiscard]] bool isAvailable() const { return m_available; }
    void setAvailable(bool available);
    /// For the host's use: what is shown goes by the user default.
    [[nodiscard]] bool onlyShowItemsWithCounts() const { return m_onlyShowItemsWithCounts; }
    void setOnlyShowItemsWithCounts(bool only) { m_onlyShowItemsWithCounts = only; }
    /// Every row of a setting that was ever made; a new one for each reading of a filter that is no facet.
    [[nodiscard]] const std::vector<std::shared_ptr<const KXFilterDefaultValue>> &defaultValues() const
    {
        return m_defaultValues;
    }

    /// Of the user default.
    [[nodiscard]] const std::shared_ptr<KXObserver> &defaultsObserver() const { return m_defaultsObserver; }

    // Outlets; nullptr before the view is loaded.

    [[nodiscard]] KXSourceListView *outlineView() const;
    [[nodiscard]] QLabel *notAvailableLabel() const;
    [[nodiscard]] KXPlaceholderView *notAvailableMessageView() const;

    /// Reads everything anew. What is open, selected and scrolled to stays so.
    void reload();
    /// Loads the preset with the selected values. Nothing unless loading is enabled.
    void loadSelected();
    /// Loads the preset with these values alone enabled in their filters; other filters stay as they are. Identifiers
    /// of anything else are skipped. Nothing for a preset without set.
    void loadEnablingComponents(const QList<KXManagedObjectID> &valueIDs);
    /// Fills the outline's context menu.
    void menuNeedsUpdate(KXMenu &menu);

    void viewWillAppear() override;

protected:
    void loadView() override;
    void viewDidLoad() override;
    bool eventFilter(QObject *object, QEvent *event) override;

private:
    void findSet();
    void reloadSoon();
    void updateAvailability();
    [[nodiscard]] bool isInWindow() const;
    [[nodiscard]] bool concerns(const class KXStoreChange &change) const;
    void follow(const KXObjectsDidChange &did);
    void managedObjectContextDidSave(const KXNotification &notification);
    [[nodiscard]] QVariant cellFor(const QModelIndex &index);

    const KXRef<KXFilterSetPreset> m_preset;
    KXRef<KXFilterSet> m_set; // as the preset named it last; followed though the preset may go
    KXWeakDelegate<KXFilterSetPresetDetailsViewControllerDelegate> m_delegate;
    QString m_identifier;
    bool m_loadEnabled = false;
    bool m_available = false;
    bool m_onlyShowItemsWithCounts = false;
    bool m_reloadIsDue = false;
    std::vector<std::shared_ptr<const KXFilterDefaultValue>> m_defaultValues;
    KXFilterSetPresetDetailsModel *m_model;
    QPointer<KXSourceListView> m_outlineView;
    QPointer<KXPlaceholderView> m_notAvailableMessageView;
    std::shared_ptr<KXObserver> m_countsObserver;
    std::shared_ptr<KXObserver> m_defaultsObserver;
    KXNotificationToken m_saves;
    KXNotificationToken m_changes;
};
