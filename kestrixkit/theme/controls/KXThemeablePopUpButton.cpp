#include <kestrixkit/theme/controls/KXThemeablePopUpButton.h>

#include <QPainter>
#include <QStyleOptionComboBox>

#include <kestrixkit/theme/controls/KXControlPainter.h>

KXThemeablePopUpButton::KXThemeablePopUpButton(QWidget *parent)
    : QComboBox(parent)
    , m_cell(new KXThemeablePopUpButtonCell(this))
{
    setAttribute(Qt::WA_Hover);
}

QSize KXThemeablePopUpButton::sizeHint() const
{
    QSize size = QComboBox::sizeHint();
    if (m_cell->isThemed()) {
        const QFontMetrics metrics(fontMetrics());
        int widest = 0;
        for (int i = 0; i < count(); ++i)
            widest = qMax(
                widest, metrics.horizontalAdvance(itemText(i)) + (itemIcon(i).isNull() ? 0 : iconSize().width() + 6));
        size = { widest + KXControlPainter::padding + 26, metrics.height() + 8 };
    }
    return size;
}

void KXThemeablePopUpButton::showPopup()
{
    m_open = true;
    QComboBox::showPopup();
}

void KXThemeablePopUpButton::hidePopup()
{
    m_open = false;
    QComboBox::hidePopup();
    update();
}

void KXThemeablePopUpButton::paintEvent(QPaintEvent *event)
{
    if (!m_cell->isThemed()) {
        QComboBox::paintEvent(event);
        return;
    }
    QStyleOptionComboBox option;
    initStyleOption(&option);
    option.rect = rect();
    option.state.setFlag(QStyle::State_On, m_open);
    option.state.setFlag(QStyle::State_Sunken, false);
    QPainter painter(this);
    m_cell->paint(painter, option);
}
