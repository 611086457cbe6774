#include <kestrixkit/navigation/KXNavigationBarButton.h>

#include <QPainter>

#include <kestrixkit/foundation/KXStringWithFormat.h>
#include <kestrixkit/theme/KXThemeStyleNames.h>
#include <kestrixkit/theme/controls/KXControlPainter.h>

KXNavigationBarButton::KXNavigationBarButton(KXNavigationItem *item, QWidget *parent)
    : KXThemeableButton(parent)
    , m_item(item)
{
    setThemeStyleName(KXNavigationBarButtonStyles);
    if (item)
        connect(item, &KXNavigationItem::titleChanged, this, &KXNavigationBarButton::showTitle);
    showTitle();
}

void KXNavigationBarButton::showTitle()
{
    const QString title = m_item ? m_item->title() : QString();
    setText(QString(title).replace(u'&', QLatin1String("&&"))); // a name's, not the mark of a key
    setAccessibleName(title.isEmpty() ? KXLocalizedString("Untitled") : title);
    setToolTip(title);
    updateGeometry();
}

void KXNavigationBarButton::setBeginsTrail(bool begins)
{
    m_beginsTrail = begins;
    update();
}

void KXNavigationBarButton::setCurrent(bool current)
{
    if (current == m_isCurrent)
        return;
    m_isCurrent = current;
    setThemeStyleName(current ? KXNavigationBarButtonActiveStyles : KXNavigationBarButtonStyles);
    setAccessibleDescription(current ? KXLocalizedString("Current place") : QString());
}

QSize KXNavigationBarButton::sizeHint() const
{
    const int text = fontMetrics().size(Qt::TextShowMnemonic, this->text()).width() + 1;
    return { text + 2 * int(KXNavigationBarButtonInset), KXThemeableButton::sizeHint().height() };
}

QSize KXNavigationBarButton::minimumSizeHint() const { return { 2 * int(KXNavigationBarButtonInset), 0 }; }

void KXNavigationBarButton::paintEvent(QPaintEvent *event)
{
    KXThemeableButton::paintEvent(event);
    if (m_beginsTrail)
        return;
    QPainter painter(this);
    const bool mirrored = layoutDirection() == Qt::RightToLeft;
    const QPointF place(mirrored ? width() - 4 : 4, height() / 2.0);
    KXControlPainter::chevron(
        painter, place, 6, mirrored ? 90 : -90, palette().color(QPalette::Active, QPalette::PlaceholderText));
}
