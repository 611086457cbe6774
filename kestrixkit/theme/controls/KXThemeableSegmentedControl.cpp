#include <kestrixkit/theme/controls/KXThemeableSegmentedControl.h>

#include <numeric>

#include <QAccessible>
#include <QHoverEvent>
#include <QPainter>
#include <QStyleOption>

#include <kestrixkit/theme/controls/KXControlAccessibility_p.h>
#include <kestrixkit/theme/controls/KXControlPainter.h>

KXThemeableSegmentedControl::KXThemeableSegmentedControl(QWidget *parent)
    : QWidget(parent)
    , m_cell(new KXThemeableSegmentedControlCell(this))
{
    KXInstallControlAccessibility();
    setAttribute(Qt::WA_Hover);
    setFocusPolicy(Qt::StrongFocus);
    setSizePolicy(QSizePolicy::Preferred, QSizePolicy::Fixed);
}

KXThemeableSegmentedControl::~KXThemeableSegmentedControl() = default;

void KXThemeableSegmentedControl::setSegments(const QList<KXSegment> &segments)
{
    m_segments = segments;
    m_current = qBound(0, m_current, qMax(0, int(segments.size()) - 1));
    m_hovered = m_pressed = -1;
    updateGeometry();
    update();
    Q_EMIT selectionChanged();
}

void KXThemeableSegmentedControl::setLabels(const QStringList &labels)
{
    QList<KXSegment> segments;
    for (const QString &label : labels)
        segments.append({ label, {} });
    setSegments(segments);
}

void KXThemeableSegmentedControl::setSegmentEnabled(int segment, bool enabled)
{
    if (segment >= 0 && segment < m_segments.size()) {
        m_segments[segment].enabled = enabled;
        update();
    }
}

int KXThemeableSegmentedControl::selectedSegment() const
{
    const auto selected
        = std::find_if(m_segments.begin(), m_segments.end(), [](const KXSegment &segment) { return segment.selected; });
    return selected == m_segments.end() ? -1 : int(selected - m_segments.begin());
}

void KXThemeableSegmentedControl::setSelectedSegment(int segment)
{
    for (int i = 0; i < m_segments.size(); ++i)
        m_segments[i].selected = i == segment;
    if (segment >= 0 && segment < m_segments.size())
        m_current = segment;
    update();
    KXAccessibleValueChanged(this);
    Q_EMIT selectionChanged();
}

void KXThemeableSegmentedControl::click(int segment)
{
    if (!isEnabled() || segment < 0 || segment >= m_segments.size() || !m_segments[segment].enabled)
        return;
    m_current = segment;
    const QPointer<KXThemeableSegmentedControl> self(this); // a receiver may destroy it
    if (m_mode == SelectOne && selectedSegment() != segment) {
        setSelectedSegment(segment);
    } else if (m_mode == SelectAny) {
        m_segments[segment].selected = !m_segments[segment].selected;
        KXAccessibleValueChanged(this);
        Q_EMIT selectionChanged();
    }
    if (!self)
        return;
    update();
    Q_EMIT clicked(segment);
}

QList<int> KXThemeableSegmentedControl::widths() const
{
    QList<int> widths;
    for (const KXSegment &segment : m_segments) {
        const int text = segment.label.isEmpty() ? 0 : fontMetrics().horizontalAdvance(segment.label) + 1;
        const int image = segment.icon.isNull() ? 0 : segment.label.isEmpty() ? 16 : 20;
        widths.append(text + image + 2 * KXControlPainter::padding);
    }
    return widths;
}

QRect KXThemeableSegmentedControl::segmentRect(int segment) const
{
    QList<int> all = widths();
    if (segment < 0 || segment >= all.size())
        return {};
    // What there is too much or too little is shared out, the remainder to the last.
    const int wanted = std::accumulate(all.begin(), all.end(), 0);
    const int share = (width() - wanted) / int(all.size());
    for (int &one : all)
        one += share;
    all.last() += width() - wanted - share * int(all.size());
    const int left = std::accumulate(all.begin(), all.begin() + segment, 0);
    return QStyle::visualRect(layoutDirection(), rect(), QRect(left, 0, all[segment], height()));
}

int KXThemeableSegmentedControl::segmentAt(const QPoint &position) const
{
    for (int i = 0; i < m_segments.size(); ++i) {
        if (segmentRect(i).contains(position))
            return i;
    }
    return -1;
}

QSize KXThemeableSegmentedControl::sizeHint() const
{
    const QList<int> all = widths();
    return { std::accumulate(all.begin(), all.end(), 0), fontMetrics().height() + 8 };
}

bool KXThemeableSegmentedControl::event(QEvent *event)
{
    if (event->type() == QEvent::HoverMove || event->type() == QEvent::HoverEnter)
        m_hovered = segmentAt(static_cast<QHoverEvent *>(event)->position().toPoint());
    else if (event->type() == QEvent::HoverLeave)
        m_hovered = -1;
    else
        return QWidget::event(event);
    update();
    return true;
}

void KXThemeableSegmentedControl::paintEvent(QPaintEvent *)
{
    QStyleOption option;
    option.initFrom(this);
    option.state.setFlag(QStyle::State_Sunken, m_pressed >= 0);
    QList<QRect> rects;
    for (int i = 0; i < m_segments.size(); ++i)
        rects.append(segmentRect(i));
    QPainter painter(this);
    m_cell->paint(painter, option, m_segments, rects, m_pressed >= 0 ? m_pressed : m_hovered, m_current);
}

void KXThemeableSegmentedControl::mousePressEvent(QMouseEvent *event)
{
    if (event->button() != Qt::LeftButton)
        return;
    m_pressed = segmentAt(event->position().toPoint());
    update();
}

void KXThemeableSegmentedControl::mouseReleaseEvent(QMouseEvent *event)
{
    const int pressed = std::exchange(m_pressed, -1);
    update();
    if (event->button() == Qt::LeftButton && segmentAt(event->position().toPoint()) == pressed)
        click(pressed);
}

/// To the next segment that is enabled; stays where there is none.
void KXThemeableSegmentedControl::moveTo(int from, int step)
{
    for (int segment = from; segment >= 0 && segment < m_segments.size(); segment += step) {
        if (!m_segments[segment].enabled)
            continue;
        m_current = segment;
        update();
        if (m_mode == SelectOne)
            click(segment);
        return;
    }
}

void KXThemeableSegmentedControl::keyPressEvent(QKeyEvent *event)
{
    const int forward = layoutDirection() == Qt::RightToLeft ? -1 : 1;
    switch (event->key()) {
    case Qt::Key_Right:
        moveTo(m_current + forward, forward);
        break;
    case Qt::Key_Left:
        moveTo(m_current - forward, -forward);
        break;
    case Qt::Key_Home:
        moveTo(0, 1);
        break;
    case Qt::Key_End:
        moveTo(int(m_segments.size()) - 1, -1);
        break;
    case Qt::Key_Space:
        click(m_current);
        break;
    default:
        QWidget::keyPressEvent(event);
    }
}
