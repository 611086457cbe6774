#include <kestrixkit/theme/controls/KXThemeableButton.h>

#include <QKeyEvent>
#include <QPainter>
#include <QStyleOptionButton>

KXThemeableButton::KXThemeableButton(QWidget *parent)
    : KXThemeableButton(new KXThemeableButtonCell, parent)
{
}

KXThemeableButton::KXThemeableButton(const QString &text, QWidget *parent)
    : KXThemeableButton(parent)
{
    setText(text);
}

KXThemeableButton::KXThemeableButton(KXThemeableButtonCell *cell, QWidget *parent)
    : QPushButton(parent)
    , m_cell(cell)
{
    m_cell->setParent(this);
    setAttribute(Qt::WA_Hover);
}

QSize KXThemeableButton::sizeHint() const
{
    if (!m_cell->isThemed())
        return QPushButton::sizeHint();
    QStyleOptionButton option;
    initStyleOption(&option);
    return m_cell->sizeHint(option);
}

QSize KXThemeableButton::minimumSizeHint() const
{
    return m_cell->isThemed() ? sizeHint() : QPushButton::minimumSizeHint();
}

void KXThemeableButton::paintEvent(QPaintEvent *event)
{
    if (!m_cell->isThemed()) {
        QPushButton::paintEvent(event);
        return;
    }
    QStyleOptionButton option;
    initStyleOption(&option);
    QPainter painter(this);
    m_cell->paint(painter, option);
}

bool KXThemeableButton::event(QEvent *event)
{
    if (event->type() == QEvent::ShortcutOverride && static_cast<QKeyEvent *>(event)->key() == Qt::Key_Space)
        event->accept();
    return QPushButton::event(event);
}
