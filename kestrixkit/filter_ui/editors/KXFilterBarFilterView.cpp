#include <kestrixkit/filter_ui/editors/KXFilterBarFilterView.h>

#include <QEvent>
#include <QStyle>

#include <kestrixkit/filter_ui/editors/KXFilterBar.h>
#include <kestrixkit/filter_ui/editors/KXFilterButton.h>
#include <kestrixkit/filter_ui/editors/KXRangeFilterViewController.h>
#include <kestrixkit/foundation/KXObserver.h>
#include <kestrixkit/foundation/KXStringWithFormat.h>
#include <kestrixkit/theme/KXThemeStyleNames.h>
#include <kestrixkit/theme/controls/KXThemeableTextField.h>

using namespace Qt::StringLiterals;

namespace {

constexpr int filterViewLabelTop = 2; // in points
constexpr int filterViewLabelHeight = 16;
constexpr int filterViewButtonMargin = 5; // at either side
constexpr int filterViewLongestLabel = 280;

}

KXFilterBarFilterView::KXFilterBarFilterView(KXRef<KXFilter> filter, QWidget *parent)
    : QWidget(parent)
    , m_filter(std::move(filter))
    , m_label(new KXThemeableTextField(this))
    , m_button(new KXFilterButton(this))
{
    m_label->setLabel(true);
    QFont font = m_label->font();
    font.setPointSizeF(font.pointSizeF() * 0.85);
    m_label->setFont(font);
    m_label->setThemeStyleName(KXFilterBarFilterLabelStyles);
    m_label->setAttribute(Qt::WA_TransparentForMouseEvents); // the view is dragged by it
    m_label->setFocusPolicy(Qt::NoFocus);
    m_button->setThemeStyleName(KXFilterBarFilterButtonStyles);
    m_button->setSizePolicy(QSizePolicy::Fixed, QSizePolicy::Fixed);
    for (const QString &key : { u"label"_s, u"name"_s, u"enabled"_s })
        m_observers.append(
            KXObserver::observerFor(m_filter.get(), key, {}, [this](const KXKeyValueChange &) { refresh(); }));
    refresh();
}

KXFilterBarFilterView::~KXFilterBarFilterView() = default;

namespace {

QString filterViewBound(KXPredicateOperator comparison, const KXDecimal &bound)
{
    const char16_t *const signs[] = { u"<", u"≤", u">", u"≥", u"=", u"≠" }; // by code
    const int code = int(comparison);
    const QString sign = code >= 0 && code < int(std::size(signs)) ? QString::fromUtf16(signs[code]) : u"?"_s;
    return KXStringWithFormat("%@ %@", sign, KXRangeFilterViewController::textOfNumber(bound));
}

/// "112 – 126", "≥ 112", "> 112, < 126"; empty without bounds.
QString filterViewRange(const KXRangeFilter &range)
{
    const auto start = range.startValue(), end = range.endValue();
    const auto text = [](const KXDecimal &bound) { return KXRangeFilterViewController::textOfNumber(bound); };
    if (start && end && range.startValueOperatorType() == KXPredicateOperator::GreaterThanOrEqual
        && range.endValueOperatorType() == KXPredicateOperator::LessThanOrEqual)
        return KXStringWithFormat("%@ – %@", text(*start), text(*end));
    QStringList bounds;
    if (start)
        bounds.append(filterViewBound(range.startValueOperatorType(), *start));
    if (end)
        bounds.append(filterViewBound(range.endValueOperatorType(), *end));
    return bounds.join(u", "_s);
}

}

QString KXFilterBarFilterView::textOfFilter(const KXFilter &filter)
{
    if (const auto own = filter.storedLabel(); own && !own->isEmpty())
        return *own;
    const auto *const range = dynamic_cast<const KXRangeFilter *>(&filter);
    const QString text = range ? filterViewRange(*range) : filter.label();
    const bool isNameAlone = !range && text == filter.name().value_or(QString());
    return text.isEmpty() || isNameAlone ? KXLocalizedString("Any") : text;
}

void KXFilterBarFilterView::refresh()
{
    // A filter that is deleted is taken out of the bar; till then it shows what it showed.
    if (!m_filter || m_filter->isDeleted() || !m_filter->managedObjectContext())
        return;
    m_label->setText(m_filter->name().value_or(QString()).simplified());
    m_button->setFilterName(m_label->text());
    m_button->setFilterText(textOfFilter(*m_filter));
    m_button->setFilterEnabled(m_filter->enabled());
    setProblem(m_problem);
    updateGeometry();
    place();
}

void KXFilterBarFilterView::setProblem(const QString &problem)
{
    m_problem = problem;
    m_button->setIcon(problem.isEmpty() ? QIcon() : QIcon(u":/kestrixkit/icons/warning.svg"_s));
    m_button->setToolTip(problem.isEmpty() ? m_button->filterText() : problem);
    m_button->setAccessibleDescription(problem);
    m_button->updateGeometry();
    updateGeometry();
}

QSize KXFilterBarFilterView::sizeHint() const
{
    const QFontMetrics metrics(m_label->font());
    const int label = qMin(filterViewLongestLabel, metrics.horizontalAdvance(m_label->text()) + 4);
    const int button = m_button->sizeHint().width();
    return { label > button ? label : button + 2 * filterViewButtonMargin, KXFilterBarFilterViewHeight };
}

void KXFilterBarFilterView::place()
{
    const int height = qMin(m_button->sizeHint().height(), KXFilterBarFilterViewHeight - filterViewLabelHeight - 4);
    const int button = qMin(width(), m_button->sizeHint().width());
    const auto visual = [this](const QRect &rect) { return QStyle::visualRect(layoutDirection(), this->rect(), rect); };
    const int left = qBound(0, width() - button, filterViewButtonMargin);
    m_label->setGeometry(visual({ left, filterViewLabelTop, width() - left, filterViewLabelHeight }));
    m_button->setGeometry(visual({ left, filterViewLabelTop + filterViewLabelHeight + 1, button, height }));
}

void KXFilterBarFilterView::resizeEvent(QResizeEvent *event)
{
    QWidget::resizeEvent(event);
    place();
}

void KXFilterBarFilterView::changeEvent(QEvent *event)
{
    QWidget::changeEvent(event);
    if (event->type() == QEvent::LayoutDirectionChange)
        place();
}

/// The button asks for another size by this, having no layout.
bool KXFilterBarFilterView::event(QEvent *event)
{
    if (event->type() == QEvent::LayoutRequest) {
        updateGeometry();
        place();
    }
    return QWidget::event(event);
}
