#include <kestrixkit/theme/controls/KXHyperlinkButton.h>

#include <QPainter>

#include <kestrixkit/theme/KXThemeManager.h>
#include <kestrixkit/theme/controls/KXControlAccessibility_p.h>
#include <kestrixkit/theme/controls/KXControlPainter.h>

KXHyperlinkButton::KXHyperlinkButton(QWidget *parent)
    : QAbstractButton(parent)
    , m_theme(KXNotificationCenter::defaultCenter().addObserver(
          KXThemeDidChangeNotification, &KXThemeManager::sharedManager(), [this](const KXNotification &) { update(); }))
{
    KXInstallControlAccessibility();
    setAttribute(Qt::WA_Hover);
    setCursor(Qt::PointingHandCursor);
    setSizePolicy(QSizePolicy::Maximum, QSizePolicy::Fixed);
    setFocusPolicy(Qt::StrongFocus);
}

KXHyperlinkButton::KXHyperlinkButton(const QString &text, QWidget *parent)
    : KXHyperlinkButton(parent)
{
    setText(text);
}

QSize KXHyperlinkButton::sizeHint() const
{
    return { fontMetrics().size(Qt::TextShowMnemonic, text()).width() + 9, fontMetrics().height() + 6 };
}

void KXHyperlinkButton::paintEvent(QPaintEvent *)
{
    const auto &theme = KXThemeManager::sharedManager().theme();
    QColor colour = palette().color(QPalette::Link);
    if (theme)
        colour = isDown() ? theme->highlightedTextColour() : theme->textColour();
    if (!isEnabled())
        colour = theme ? theme->disabledTextColour() : palette().color(QPalette::Disabled, QPalette::Text);
    QPainter painter(this);
    QFont font = painter.font();
    font.setUnderline(isEnabled() && (underMouse() || hasFocus() || isDown()));
    painter.setFont(font);
    KXControlPainter::text(painter, QRectF(rect()).adjusted(4, 0, -4, 0),
        Qt::AlignLeft | Qt::AlignVCenter | Qt::TextShowMnemonic, text(), colour);
    if (hasFocus())
        KXControlPainter::focusRing(painter, rect(), palette());
}
