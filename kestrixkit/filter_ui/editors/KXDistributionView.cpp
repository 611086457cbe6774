#include <kestrixkit/filter_ui/editors/KXDistributionView.h>

#include <algorithm>
#include <cmath>
#include <mutex>

#include <QAccessible>
#include <QAccessibleWidget>
#include <QKeyEvent>
#include <QMouseEvent>
#include <QPainter>

#include <kestrixkit/foundation/KXClock.h>
#include <kestrixkit/foundation/KXStringWithFormat.h>
#include <kestrixkit/theme/controls/KXControlPainter.h>

using namespace Qt::StringLiterals;

namespace {

// In points.
constexpr int distributionMargin = 4;
constexpr int distributionReach = 6; // within which a bound is dragged

/// A width that people count in: 1, 2 or 5 times a power of ten.
double distributionStep(double span, int most)
{
    const double least = span / most, power = std::pow(10, std::floor(std::log10(least)));
    for (const double factor : { 1.0, 2.0, 5.0 }) {
        if (factor * power >= least * (1 - 1e-9))
            return factor * power;
    }
    return 10 * power;
}

/// Moved like a slider; its value is what lies within the bounds.
class DistributionAccessible : public QAccessibleWidget
{
public:
    explicit DistributionAccessible(KXDistributionView *view)
        : QAccessibleWidget(view, QAccessible::Slider)
    {
    }
    QString text(QAccessible::Text kind) const override
    {
        return kind == QAccessible::Value ? widget()->accessibleDescription() : QAccessibleWidget::text(kind);
    }
};

QAccessibleInterface *distributionInterface(const QString &, QObject *object)
{
    auto *const view = qobject_cast<KXDistributionView *>(object);
    return view ? new DistributionAccessible(view) : nullptr;
}

}

KXDistributionView::KXDistributionView(QWidget *parent)
    : QWidget(parent)
{
    static std::once_flag once;
    std::call_once(once, [] { QAccessible::installFactory(distributionInterface); });
    setFocusPolicy(Qt::StrongFocus);
    setSizePolicy(QSizePolicy::Expanding, QSizePolicy::Fixed);
    setAccessibleName(KXLocalizedString("Distribution"));
}

QSize KXDistributionView::sizeHint() const { return { 260, 64 }; }

void KXDistributionView::setNumbers(const QList<KXWhatIfCounts::NumberCount> &numbers)
{
    m_numbers = numbers;
    m_bars.clear();
    if (!numbers.isEmpty()) {
        const double least = numbers.first().number, most = numbers.last().number;
        m_step = most > least ? distributionStep(most - least, mostBars - 1) : 1;
        m_first = std::floor(least / m_step) * m_step;
        m_bars.resize(qsizetype(std::floor((most - m_first) / m_step)) + 1);
        for (const KXWhatIfCounts::NumberCount &each : numbers) {
            const auto bar = qsizetype(std::floor((each.number - m_first) / m_step));
            m_bars[std::clamp<qsizetype>(bar, 0, m_bars.size() - 1)] += each.count;
        }
    }
    describe();
    update();
}

void KXDistributionView::setBounds(const Bounds &bounds)
{
    if (m_grip != Grip::None || m_bounds == bounds)
        return; // what is being dragged stays
    m_bounds = bounds;
    describe();
    update();
}

qint64 KXDistributionView::countWithin() const
{
    qint64 count = 0;
    for (const KXWhatIfCounts::NumberCount &each : m_numbers) {
        if ((!m_bounds.lower || each.number >= *m_bounds.lower) && (!m_bounds.upper || each.number <= *m_bounds.upper))
            count += each.count;
    }
    return count;
}

/// What assistive technology says.
void KXDistributionView::describe()
{
    const QLocale locale = KXClock::locale();
    const auto text = [&locale](const std::optional<double> &bound) {
        return bound ? locale.toString(*bound, 'g', 10) : KXLocalizedString("any");
    };
    const QString description = KXStringWithFormat(
        KXLocalizedString("%@ to %@: %@"), text(m_bounds.lower), text(m_bounds.upper), locale.toString(countWithin()));
    if (description == accessibleDescription())
        return;
    setAccessibleDescription(description);
    setToolTip(description);
    QAccessibleEvent event(this, QAccessible::DescriptionChanged);
    QAccessible::updateAccessibility(&event);
}

// Places

double KXDistributionView::xOf(double number) const
{
    const double span = m_step * double(std::max<qsizetype>(1, m_bars.size()));
    const double part = std::clamp((number - m_first) / span, 0.0, 1.0);
    const double room = width() - 2 * distributionMargin;
    return distributionMargin + room * (isMirrored() ? 1 - part : part);
}

qsizetype KXDistributionView::edgeAt(double x) const
{
    const double room = std::max(1, width() - 2 * distributionMargin);
    double part = std::clamp((x - distributionMargin) / room, 0.0, 1.0);
    if (isMirrored())
        part = 1 - part;
    return qsizetype(std::lround(part * double(m_bars.size())));
}

void KXDistributionView::paintEvent(QPaintEvent *)
{
    QPainter painter(this);
    painter.setRenderHint(QPainter::Antialiasing);
    const qint64 most = m_bars.isEmpty() ? 0 : *std::max_element(m_bars.begin(), m_bars.end());
    const double bottom = height() - distributionMargin, room = height() - 2 * distributionMargin;
    QColor within = palette().color(QPalette::Highlight), outside = palette().color(QPalette::Text);
    outside.setAlphaF(0.3F);
    painter.setPen(Qt::NoPen);
    for (qsizetype bar = 0; bar < m_bars.size() && most > 0; ++bar) {
        if (m_bars[bar] == 0)
            continue;
        const double middle = edge(bar) + m_step / 2;
        const bool isWithin
            = (!m_bounds.lower || middle >= *m_bounds.lower) && (!m_bounds.upper || middle <= *m_bounds.upper);
        const double left = std::min(xOf(edge(bar)), xOf(edge(bar + 1)));
        const double wide = std::abs(xOf(edge(bar + 1)) - xOf(edge(bar)));
        const double tall = std::max(1.0, room * double(m_bars[bar]) / double(most));
        painter.setBrush(isWithin ? within : outside);
        painter.drawRect(QRectF(left + 0.5, bottom - tall, std::max(1.0, wide - 1), tall));
    }
    painter.setPen(QPen(palette().color(QPalette::Text), 1));
    painter.drawLine(QPointF(distributionMargin, bottom), QPointF(width() - distributionMargin, bottom));
    for (const std::optional<double> &bound : { m_bounds.lower, m_bounds.upper }) {
        if (bound)
            painter.drawLine(QPointF(xOf(*bound), 0), QPointF(xOf(*bound), height()));
    }
    if (hasFocus())
        KXControlPainter::focusRing(painter, rect(), palette());
}

// Choosing

void KXDistributionView::choose(const Bounds &bounds)
{
    m_bounds = bounds;
    describe();
    update();
    Q_EMIT boundsChosen(bounds);
}

void KXDistributionView::drag(double x)
{
    const double number = edge(edgeAt(x));
    if (m_grip == Grip::Lower)
        m_bounds.lower = m_bounds.upper ? std::min(number, *m_bounds.upper) : number;
    else if (m_grip == Grip::Upper)
        m_bounds.upper = m_bounds.lower ? std::max(number, *m_bounds.lower) : number;
    else
        m_bounds = { std::min(m_pressed, number), std::max(m_pressed, number) };
    describe();
    update();
}

void KXDistributionView::mousePressEvent(QMouseEvent *event)
{
    if (event->button() != Qt::LeftButton || m_bars.isEmpty())
        return;
    const double x = event->position().x();
    const auto distance = [&](const std::optional<double> &bound) { return bound ? std::abs(xOf(*bound) - x) : 1e9; };
    m_before = m_bounds;
    m_pressed = edge(edgeAt(x));
    const double lower = distance(m_bounds.lower), upper = distance(m_bounds.upper);
    m_grip = std::min(lower, upper) > distributionReach ? Grip::Both : lower <= upper ? Grip::Lower : Grip::Upper;
}

void KXDistributionView::mouseMoveEvent(QMouseEvent *event)
{
    if (m_grip != Grip::None)
        drag(event->position().x());
}

void KXDistributionView::mouseReleaseEvent(QMouseEvent *event)
{
    if (event->button() != Qt::LeftButton || m_grip == Grip::None)
        return;
    m_grip = Grip::None;
    if (m_bounds != m_before)
        choose(m_bounds);
}

void KXDistributionView::focusOutEvent(QFocusEvent *event)
{
    QWidget::focusOutEvent(event);
    update();
}

bool KXDistributionView::event(QEvent *event)
{
    // Escape belongs to the drag that it takes back, before it closes anything.
    if (event->type() == QEvent::ShortcutOverride && m_grip != Grip::None
        && static_cast<QKeyEvent *>(event)->matches(QKeySequence::Cancel)) {
        event->accept();
        return true;
    }
    return QWidget::event(event);
}

void KXDistributionView::keyPressEvent(QKeyEvent *event)
{
    if (event->matches(QKeySequence::Cancel) && m_grip != Grip::None) {
        m_grip = Grip::None;
        setBounds(m_before);
        return;
    }
    const bool isArrow = event->key() == Qt::Key_Left || event->key() == Qt::Key_Right;
    const bool isEnd = event->key() == Qt::Key_Home || event->key() == Qt::Key_End;
    if (m_bars.isEmpty() || !(isArrow || isEnd))
        return QWidget::keyPressEvent(event);
    Bounds bounds = m_bounds;
    if (isEnd) {
        (event->key() == Qt::Key_Home ? bounds.lower : bounds.upper).reset();
        return choose(bounds);
    }
    const bool isUpper = event->modifiers() & Qt::ShiftModifier;
    const bool isForward = (event->key() == Qt::Key_Right) != isMirrored();
    const double from = isUpper ? bounds.upper.value_or(edge(m_bars.size())) : bounds.lower.value_or(edge(0));
    const double place = (from - m_first) / m_step;
    const double next = isForward ? std::floor(place + 1e-9) + 1 : std::ceil(place - 1e-9) - 1;
    const double number = edge(std::clamp<qsizetype>(qsizetype(next), 0, m_bars.size()));
    if (isUpper)
        bounds.upper = std::max(number, bounds.lower.value_or(number));
    else
        bounds.lower = std::min(number, bounds.upper.value_or(number));
    choose(bounds);
}
