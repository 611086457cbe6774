#include <kestrixkit/theme/controls/KXThemeableTableHeaderCell.h>

#include <QPainter>
#include <QStyleOptionHeader>

#include <kestrixkit/theme/KXThemeManager.h>
#include <kestrixkit/theme/controls/KXControlPainter.h>

namespace {

constexpr int headerArrow = 16;

}

void KXThemeableTableHeaderCell::paintBackground(QPainter &painter, const QRect &rect, bool highlighted) const
{
    painter.fillRect(rect,
        highlighted ? KXControlPainter::firstOf({ m_highlightedBackgroundGradient, m_backgroundGradient })
                    : m_backgroundGradient);
    const QColor inset
        = highlighted ? KXControlPainter::firstOf({ m_highlightedInsetColor, m_insetColor }) : m_insetColor;
    const auto line = [&](const QColor &colour, int y) {
        if (colour.isValid())
            painter.fillRect(QRect(rect.left(), y, rect.width(), 1), colour);
    };
    line(m_topBorderColor, rect.top());
    line(inset, rect.top() + (m_topBorderColor.isValid() ? 1 : 0));
    line(m_bottomBorderColor, rect.bottom());
}

void KXThemeableTableHeaderCell::paint(QPainter &painter, const QStyleOptionHeader &option) const
{
    painter.save();
    painter.setLayoutDirection(option.direction);
    const bool highlighted = option.state & (QStyle::State_Sunken | QStyle::State_MouseOver);
    paintBackground(painter, option.rect, highlighted);
    const bool mirrored = option.direction == Qt::RightToLeft;
    if (m_verticalSeparatorColor.isValid()) {
        const int x = mirrored ? option.rect.left() : option.rect.right();
        painter.fillRect(QRect(x, option.rect.top() + 5, 1, option.rect.height() - 10), m_verticalSeparatorColor);
    }
    const auto &theme = KXThemeManager::sharedManager().theme();
    const QColor colour = KXControlPainter::firstOf(
        { theme ? theme->tableHeaderTextColour() : QColor(), option.palette.color(QPalette::ButtonText) });
    const QRect inner = option.rect.adjusted(10, 0, -10, 0);
    QRect text = inner;
    if (option.sortIndicator != QStyleOptionHeader::None) {
        const QRect arrow = QStyle::visualRect(option.direction, inner,
            QRect(inner.right() - headerArrow + 4, inner.top(), headerArrow - 4, inner.height()));
        KXControlPainter::chevron(painter, QRectF(arrow).center(), 7,
            option.sortIndicator == QStyleOptionHeader::SortDown ? 180 : 0,
            KXControlPainter::firstOf({ m_sortIndicatorColor, colour }));
        text = QStyle::visualRect(option.direction, inner, inner.adjusted(0, 0, -headerArrow, 0));
    }
    QFont font = painter.font();
    font.setBold(true); // as the header measures it
    painter.setFont(font);
    KXControlPainter::text(painter, text, int(option.textAlignment), option.text, colour);
    if (option.state & QStyle::State_HasFocus)
        KXControlPainter::focusRing(painter, option.rect, option.palette, 2);
    painter.restore();
}

KXThemeableTableHeaderView::KXThemeableTableHeaderView(Qt::Orientation orientation, QWidget *parent)
    : QHeaderView(orientation, parent)
    , m_cell(new KXThemeableTableHeaderCell(this))
{
    setHighlightSections(false);
    setSectionsClickable(true);
    setMouseTracking(true);
    setDefaultAlignment(Qt::AlignLeft | Qt::AlignVCenter);
}

QSize KXThemeableTableHeaderView::sectionSizeFromContents(int logicalIndex) const
{
    QSize size = QHeaderView::sectionSizeFromContents(logicalIndex);
    if (m_cell->isThemed())
        size.setHeight(qMax(size.height(), fontMetrics().height() + 12));
    return size;
}

void KXThemeableTableHeaderView::paintEvent(QPaintEvent *event)
{
    QHeaderView::paintEvent(event);
    if (!m_cell->isThemed() || orientation() == Qt::Vertical)
        return;
    // What lies beyond the last section is the style's otherwise.
    QRect rest = viewport()->rect();
    if (isRightToLeft())
        rest.setRight(rest.right() - (length() - offset()));
    else
        rest.setLeft(length() - offset());
    QPainter painter(viewport());
    if (rest.isValid())
        m_cell->paintBackground(painter, rest, false);
}

void KXThemeableTableHeaderView::paintSection(QPainter *painter, const QRect &rect, int logicalIndex) const
{
    if (!m_cell->isThemed() || !rect.isValid()) {
        QHeaderView::paintSection(painter, rect, logicalIndex);
        return;
    }
    QStyleOptionHeaderV2 option;
    initStyleOption(&option);
    option.rect = rect;
    initStyleOptionForIndex(&option, logicalIndex);
    option.rect = rect;
    m_cell->paint(*painter, option);
}
