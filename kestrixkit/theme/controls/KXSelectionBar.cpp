#include <kestrixkit/theme/controls/KXSelectionBar.h>

#include <QPainter>

#include <kestrixkit/theme/KXThemeManager.h>
#include <kestrixkit/theme/controls/KXControlPainter.h>

KXSelectionBar::KXSelectionBar(QWidget *parent)
    : QWidget(parent)
    , m_theme(KXNotificationCenter::defaultCenter().addObserver(
          KXThemeDidChangeNotification, &KXThemeManager::sharedManager(), [this](const KXNotification &) { update(); }))
{
    setSizePolicy(QSizePolicy::Preferred, QSizePolicy::Fixed);
}

QSize KXSelectionBar::sizeHint() const { return QWidget::sizeHint().expandedTo({ 0, fontMetrics().height() + 18 }); }

void KXSelectionBar::paintEvent(QPaintEvent *)
{
    const auto &theme = KXThemeManager::sharedManager().theme();
    if (!theme)
        return;
    QPainter painter(this);
    painter.fillRect(rect(), theme->selectionBarGradient());
    KXControlPainter::grain(painter, rect());
    painter.fillRect(QRect(0, 0, width(), 1), theme->selectionBarBorderColour());
    painter.fillRect(QRect(0, 1, width(), 1), theme->selectionBarInsetColour());
    painter.fillRect(QRect(0, height() - 1, width(), 1), theme->selectionBarBorderColour());
}
