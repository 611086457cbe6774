#pragma once

#include <kestrixkit/filter_ui/editors/KXDistributionView.h>
#include <kestrixkit/filter_ui/editors/KXRangeFilterViewController.h>
#include <kestrixkit/filters/KXFilterSetWhatIfCounts.h>

/// The editor of a range with a row of bars below its bounds: how the numbers are spread over the objects that fit all
/// other filters of the set. The bounds can be dragged there. Main thread.
class KX_UI_EXPORT KXDistributionFilterViewController : public KXRangeFilterViewController
{
    Q_OBJECT
public:
    explicit KXDistributionFilterViewController(KXRef<KXRangeFilter> filter, QObject *parent = nullptr);
    ~KXDistributionFilterViewController() override;

    /// Counts of the set that the filter is in; nullptr: there are no bars. Borrowed.
    void setWhatIfCounts(KXFilterSetWhatIfCounts *counts);
    /// nullptr before the view is loaded.
    [[nodiscard]] KXDistributionView *distributionView() const { return m_distributionView; }

    void popoverWillShow() override;
    void popoverWillClose() override;

protected:
    void viewDidLoad() override;
    void filterDidChange() override;

private:
    void watch();
    void stopWatching();
    void showDistribution();
    void showBounds();
    void take(const KXDistributionView::Bounds &bounds);

    QPointer<KXFilterSetWhatIfCounts> m_counts;
    bool m_isWatching = false;
    QPointer<KXDistributionView> m_distributionView;
};
