#include <kestrixkit/navigation/KXSearchRowDelegate_p.h>

#include <QAbstractItemView>
#include <QApplication>
#include <QLineEdit>
#include <QMouseEvent>
#include <QPainter>
#include <QTableView>
#include <QTextLayout>

#include <kestrixkit/navigation/KXSearchViewController.h>
#include <kestrixkit/search/KXSearchMatches.h>

namespace {

constexpr int searchRowMargin = 8;
constexpr int searchImageSize = 32;

}

KXSearchRowDelegate::KXSearchRowDelegate(KXSearchViewController &controller, QObject *parent)
    : QStyledItemDelegate(parent)
    , m_controller(controller)
{
}

QSize KXSearchRowDelegate::sizeHint(const QStyleOptionViewItem &option, const QModelIndex &index) const
{
    return { option.rect.width(), m_controller.heightOfRow(index.row()) };
}

QRect KXSearchRowDelegate::buttonRect(const QStyleOptionViewItem &option, int row) const
{
    const QString title = m_controller.buttonTitleForRow(row);
    if (title.isEmpty())
        return {};
    const int width = option.fontMetrics.horizontalAdvance(title) + 2 * searchRowMargin;
    const QRect rect(option.rect.right() + 1 - width, option.rect.top(), width, option.rect.height());
    return QStyle::visualRect(option.direction, option.rect, rect);
}

void KXSearchRowDelegate::paint(QPainter *painter, const QStyleOptionViewItem &given, const QModelIndex &index) const
{
    QStyleOptionViewItem option = given;
    initStyleOption(&option, index);
    option.text.clear();
    option.icon = {};
    painter->save();
    const QStyle *style = option.widget ? option.widget->style() : QApplication::style();
    if (m_controller.isGroupRow(index.row())) {
        paintGroup(*painter, option, index.row());
    } else {
        style->drawControl(QStyle::CE_ItemViewItem, &option, painter, option.widget);
        paintResult(*painter, option, index);
    }
    painter->restore();
}

void KXSearchRowDelegate::paintGroup(QPainter &painter, const QStyleOptionViewItem &option, int row) const
{
    const auto grouping = m_controller.groupingAtRow(row);
    painter.fillRect(option.rect, option.palette.alternateBase());
    const QRect button = buttonRect(option, row);
    if (!button.isEmpty()) {
        painter.setPen(option.palette.color(QPalette::Link));
        painter.drawText(button, Qt::AlignCenter, m_controller.buttonTitleForRow(row));
    }
    QFont font = option.font;
    font.setBold(true);
    painter.setFont(font);
    painter.setPen(option.palette.color(QPalette::PlaceholderText));
    QRect text = option.rect.adjusted(searchRowMargin, 0, -searchRowMargin - button.width(), 0);
    text = QStyle::visualRect(option.direction, option.rect, text);
    painter.drawText(text, int(Qt::AlignVCenter | Qt::AlignLeading) | Qt::TextSingleLine,
        QFontMetrics(font).elidedText(grouping->name, Qt::ElideRight, text.width()));
}

/// One line in which what matches the term is bold and underlined.
void KXSearchRowDelegate::paintText(QPainter &painter, const QRect &rect, const QString &text,
    const QStyleOptionViewItem &option, const QColor &colour) const
{
    const QString shown = QFontMetrics(painter.font()).elidedText(text, Qt::ElideRight, rect.width());
    QTextLayout layout(shown, painter.font());
    QTextOption line(Qt::AlignLeading | Qt::AlignVCenter);
    line.setWrapMode(QTextOption::NoWrap);
    line.setTextDirection(option.direction);
    layout.setTextOption(line);
    QList<QTextLayout::FormatRange> formats;
    for (const auto &[from, length] : KXSearchMatches(shown, m_controller.searchTerm())) {
        QTextLayout::FormatRange range { int(from), int(length), {} };
        range.format.setFontWeight(QFont::Bold);
        range.format.setFontUnderline(true);
        formats.append(range);
    }
    layout.setFormats(formats);
    layout.beginLayout();
    QTextLine only = layout.createLine();
    if (only.isValid())
        only.setLineWidth(rect.width());
    layout.endLayout();
    painter.setPen(colour);
    painter.setClipRect(rect);
    layout.draw(&painter, rect.topLeft() + QPointF(0, (rect.height() - layout.boundingRect().height()) / 2));
    painter.setClipping(false);
}

void KXSearchRowDelegate::paintResult(
    QPainter &painter, const QStyleOptionViewItem &option, const QModelIndex &index) const
{
    const KXSearchResultCell cell = m_controller.resultCell(index.data(KXListController::ObjectRole));
    const bool isSelected = option.state & QStyle::State_Selected;
    QRect rest = option.rect.adjusted(searchRowMargin, 0, -searchRowMargin, 0);
    if (!cell.image.isNull()) {
        QRect image(rest.left(), rest.center().y() - searchImageSize / 2, searchImageSize, searchImageSize);
        cell.image.paint(&painter, QStyle::visualRect(option.direction, option.rect, image));
        rest.setLeft(image.right() + searchRowMargin);
    }
    const QColor strong = option.palette.color(isSelected ? QPalette::HighlightedText : QPalette::Text);
    QColor weak = strong;
    weak.setAlphaF(0.65F);
    painter.setFont(option.font);
    const auto visual = [&](const QRect &rect) { return QStyle::visualRect(option.direction, option.rect, rect); };
    if (cell.detail.isEmpty()) {
        paintText(painter, visual(rest), cell.title, option, strong);
        return;
    }
    const int half = rest.height() / 2;
    paintText(painter, visual(rest.adjusted(0, 3, 0, -half)), cell.title, option, strong);
    paintText(painter, visual(rest.adjusted(0, half, 0, -3)), cell.detail, option, weak);
}

bool KXSearchRowDelegate::editorEvent(
    QEvent *event, QAbstractItemModel *, const QStyleOptionViewItem &option, const QModelIndex &index)
{
    if (event->type() != QEvent::MouseButtonPress && event->type() != QEvent::MouseButtonRelease)
        return false;
    auto *mouse = static_cast<QMouseEvent *>(event);
    if (mouse->button() != Qt::LeftButton || !buttonRect(option, index.row()).contains(mouse->position().toPoint()))
        return false;
    if (event->type() == QEvent::MouseButtonRelease)
        m_controller.pressButtonOfRow(index.row());
    else if (QLineEdit *const field = m_controller.searchField(); field && m_controller.tableView()->hasFocus())
        field->setFocus(Qt::OtherFocusReason); // a button takes the keyboard from nobody, and so ends no search
    return true;
}
