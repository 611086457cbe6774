#include <kestrixkit/filter_ui/editors/KXDistributionFilterViewController.h>

#include <utility>

#include <QGridLayout>

#include <kestrixkit/foundation/KXStringWithFormat.h>

using namespace Qt::StringLiterals;

namespace {

bool distributionIsLower(KXPredicateOperator code)
{
    return code == KXPredicateOperator::GreaterThan || code == KXPredicateOperator::GreaterThanOrEqual;
}

bool distributionIsUpper(KXPredicateOperator code)
{
    return code == KXPredicateOperator::LessThan || code == KXPredicateOperator::LessThanOrEqual;
}

/// As somebody would write it: without the last digits of a binary number.
std::optional<KXDecimal> distributionDecimal(const std::optional<double> &number)
{
    return number ? KXDecimal::fromString(QString::number(*number, 'g', 10)) : std::nullopt;
}

}

KXDistributionFilterViewController::KXDistributionFilterViewController(KXRef<KXRangeFilter> filter, QObject *parent)
    : KXRangeFilterViewController(std::move(filter), parent)
{
}

KXDistributionFilterViewController::~KXDistributionFilterViewController() { setWhatIfCounts(nullptr); }

void KXDistributionFilterViewController::setWhatIfCounts(KXFilterSetWhatIfCounts *counts)
{
    if (m_counts) {
        m_counts->disconnect(this);
        stopWatching();
    }
    m_counts = counts;
    if (!counts)
        return;
    connect(
        counts, &KXFilterSetWhatIfCounts::countsDidChange, this, &KXDistributionFilterViewController::showDistribution);
    watch();
}

void KXDistributionFilterViewController::watch()
{
    m_isWatching = true;
    m_counts->addDistribution(filter());
    m_counts->update(); // which fails where the store does: then there are no bars
    showDistribution();
}

void KXDistributionFilterViewController::stopWatching()
{
    if (std::exchange(m_isWatching, false) && m_counts)
        m_counts->removeDistribution(filter());
}

void KXDistributionFilterViewController::popoverWillShow()
{
    KXRangeFilterViewController::popoverWillShow();
    if (m_counts && !m_isWatching)
        watch();
}

/// The next editor may watch the same filter before this one is deleted.
void KXDistributionFilterViewController::popoverWillClose()
{
    KXRangeFilterViewController::popoverWillClose();
    stopWatching();
}

void KXDistributionFilterViewController::viewDidLoad()
{
    if (auto *const grid = qobject_cast<QGridLayout *>(view()->layout())) {
        auto *const bars = new KXDistributionView(view());
        m_distributionView = bars;
        bars->setObjectName(u"distributionView"_s);
        if (const QString name = filter()->name().value_or(QString()); !name.isEmpty())
            bars->setAccessibleName(KXStringWithFormat(KXLocalizedString("Distribution of %@"), name));
        grid->addWidget(bars, grid->rowCount(), 0, 1, grid->columnCount());
        connect(bars, &KXDistributionView::boundsChosen, this, &KXDistributionFilterViewController::take);
    }
    showDistribution();
    KXRangeFilterViewController::viewDidLoad();
}

void KXDistributionFilterViewController::showDistribution()
{
    if (!m_distributionView || (m_counts && !m_isWatching)) // one that closes keeps what it shows
        return;
    m_distributionView->setNumbers(
        m_counts && canEdit() ? m_counts->distribution(filter()) : QList<KXWhatIfCounts::NumberCount>());
    m_distributionView->setVisible(!m_distributionView->bars().isEmpty());
    showBounds();
}

void KXDistributionFilterViewController::filterDidChange()
{
    KXRangeFilterViewController::filterDidChange();
    showBounds();
}

void KXDistributionFilterViewController::showBounds()
{
    if (!m_distributionView || !canEdit())
        return;
    KXDistributionView::Bounds bounds;
    const auto take = [&bounds](const std::optional<KXDecimal> &value, KXPredicateOperator code) {
        if (value && distributionIsLower(code))
            bounds.lower = std::max(value->toDouble(), bounds.lower.value_or(value->toDouble()));
        else if (value && distributionIsUpper(code))
            bounds.upper = std::min(value->toDouble(), bounds.upper.value_or(value->toDouble()));
    };
    take(filter()->startValue(), filter()->startValueOperatorType());
    take(filter()->endValue(), filter()->endValueOperatorType());
    m_distributionView->setBounds(bounds);
}

/// The lower bound is the first, the upper one the second; comparisons that say otherwise are set.
void KXDistributionFilterViewController::take(const KXDistributionView::Bounds &bounds)
{
    change([&] {
        if (!distributionIsLower(filter()->startValueOperatorType()))
            filter()->setStartValueOperatorType(KXPredicateOperator::GreaterThanOrEqual);
        if (!distributionIsUpper(filter()->endValueOperatorType()))
            filter()->setEndValueOperatorType(KXPredicateOperator::LessThanOrEqual);
        filter()->setStartValue(distributionDecimal(bounds.lower));
        filter()->setEndValue(distributionDecimal(bounds.upper));
    });
}
