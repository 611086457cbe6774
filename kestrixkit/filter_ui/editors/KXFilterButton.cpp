#include <kestrixkit/filter_ui/editors/KXFilterButton.h>

#include <QContextMenuEvent>
#include <QKeyEvent>
#include <QPainter>
#include <QStyle>
#include <QStyleOptionButton>

#include <kestrixkit/foundation/KXStringWithFormat.h>
#include <kestrixkit/theme/controls/KXControlPainter.h>
#include <kestrixkit/toolkit/KXMenu.h>

namespace {

/// A small switch, drawn in the colours of the button that it lies in.
class FilterButtonSwitch : public QAbstractButton
{
public:
    explicit FilterButtonSwitch(QWidget *parent)
        : QAbstractButton(parent)
    {
        setCheckable(true);
        setFocusPolicy(Qt::TabFocus);
        setAttribute(Qt::WA_Hover);
        setCursor(Qt::ArrowCursor);
    }
    [[nodiscard]] QSize sizeHint() const override { return { KXFilterButtonCell::switchWidth, 20 }; }

protected:
    /// The button around it decides.
    void nextCheckState() override { }
    bool event(QEvent *event) override
    {
        if (event->type() == QEvent::ShortcutOverride && static_cast<QKeyEvent *>(event)->key() == Qt::Key_Space)
            event->accept();
        return QAbstractButton::event(event);
    }
    void keyPressEvent(QKeyEvent *event) override
    {
        if (event->key() == Qt::Key_Return || event->key() == Qt::Key_Enter)
            click();
        else
            QAbstractButton::keyPressEvent(event);
    }
    void paintEvent(QPaintEvent *) override
    {
        QPainter painter(this);
        painter.setRenderHint(QPainter::Antialiasing);
        const auto *const button = static_cast<KXThemeableButton *>(parentWidget());
        const QVariant colour = button->cell()->property("textColor");
        const QColor ink = KXControlPainter::firstOf({ colour.value<QColor>(), palette().color(QPalette::ButtonText) });
        QRectF track(0, 0, 16, 10);
        track.moveCenter(QRectF(rect()).center() + QPointF(layoutDirection() == Qt::RightToLeft ? -2 : 2, 0));
        const bool isAtEnd = isChecked() != (layoutDirection() == Qt::RightToLeft);
        const QColor on = KXControlPainter::focusRingColour(palette());
        painter.setPen(QPen(isChecked() ? on : ink, 1));
        painter.setOpacity(isEnabled() && (isChecked() || underMouse()) ? 1 : 0.6);
        painter.setBrush(isChecked() ? QBrush(on) : QBrush());
        painter.drawRoundedRect(track, 5, 5);
        painter.setPen(Qt::NoPen);
        painter.setBrush(isChecked() ? palette().color(QPalette::Base) : ink);
        painter.drawEllipse(QPointF(isAtEnd ? track.right() - 5 : track.left() + 5, track.center().y()), 3, 3);
        if (hasFocus()) {
            painter.setOpacity(1);
            KXControlPainter::focusRing(painter, track.adjusted(-3, -3, 3, 3), palette(), 7);
        }
    }
};

}

QSize KXFilterButtonCell::sizeHint(const QStyleOptionButton &option) const
{
    const int text = qMin(longestText, option.fontMetrics.size(Qt::TextShowMnemonic, option.text).width() + 1);
    const int image = option.icon.isNull() ? 0 : imageWidth;
    return { switchWidth + image + text + arrowWidth, option.fontMetrics.height() + 8 };
}

void KXFilterButtonCell::paintInterior(QPainter &painter, const QStyleOptionButton &option, const QRect &) const
{
    const auto visual = [&](const QRect &rect) { return QStyle::visualRect(option.direction, option.rect, rect); };
    const QRect all = option.rect;
    const QColor colour = textColour(option);
    int left = all.left() + switchWidth;
    if (!option.icon.isNull()) {
        const QRect image(left, all.center().y() - 7, 14, 14);
        KXControlPainter::icon(painter, visual(image), option.icon, colour, option.state);
        left += imageWidth;
    }
    painter.setOpacity(m_filterEnabled ? 1 : 0.55);
    const QRect text(left, all.top(), all.right() + 1 - arrowWidth - left, all.height());
    KXControlPainter::text(
        painter, visual(text), Qt::AlignLeft | Qt::AlignVCenter | Qt::TextShowMnemonic, option.text, colour);
    painter.setOpacity(1);
    const QRect arrow(all.right() + 1 - arrowWidth, all.top(), arrowWidth, all.height());
    KXControlPainter::chevron(painter, QRectF(visual(arrow)).center(), 7, 0, colour);
}

KXFilterButton::KXFilterButton(QWidget *parent)
    : KXThemeableButton(new KXFilterButtonCell, parent)
    , m_filterCell(static_cast<KXFilterButtonCell *>(cell()))
    , m_switch(new FilterButtonSwitch(this))
{
    m_switch->setChecked(true);
    connect(m_switch, &QAbstractButton::clicked, this, &KXFilterButton::enabledSwitchClicked);
    describe();
}

KXFilterButton::~KXFilterButton() = default;

QSize KXFilterButton::sizeHint() const
{
    QStyleOptionButton option;
    initStyleOption(&option);
    return m_filterCell->sizeHint(option);
}

void KXFilterButton::paintEvent(QPaintEvent *)
{
    QStyleOptionButton option;
    initStyleOption(&option);
    QPainter painter(this);
    m_filterCell->paint(painter, option);
}

bool KXFilterButton::isFilterEnabled() const { return m_switch->isChecked(); }

void KXFilterButton::setFilterEnabled(bool enabled)
{
    m_switch->setChecked(enabled);
    m_filterCell->setFilterEnabled(enabled);
    describe();
    update();
}

void KXFilterButton::setFilterText(const QString &text)
{
    m_text = text;
    QString shown = text.simplified();
    setText(shown.replace(u'&', QStringLiteral("&&")));
    describe();
    updateGeometry();
}

void KXFilterButton::setFilterName(const QString &name)
{
    m_name = name;
    describe();
}

void KXFilterButton::describe()
{
    const QString spoken = m_name.isEmpty() || m_name == m_text ? m_text : KXStringWithFormat("%@: %@", m_name, m_text);
    setAccessibleName(spoken.isEmpty() ? KXLocalizedString("Filter") : spoken);
    m_switch->setAccessibleName(KXStringWithFormat(KXLocalizedString("Use %@"), accessibleName()));
    m_switch->setToolTip(
        isFilterEnabled() ? KXLocalizedString("Switch this filter off") : KXLocalizedString("Switch this filter on"));
}

KXMenu *KXFilterButton::filterMenu() const { return m_menu; }

void KXFilterButton::setFilterMenu(std::unique_ptr<KXMenu> menu)
{
    delete m_menu;
    m_menu = menu.release();
    if (m_menu)
        m_menu->setParent(this, m_menu->windowFlags());
}

void KXFilterButton::showFilterMenu()
{
    if (!m_menu)
        return;
    setDown(false);
    const bool mirrored = layoutDirection() == Qt::RightToLeft;
    m_menu->popup(mapToGlobal(mirrored ? QPoint(width() - m_menu->sizeHint().width(), height()) : QPoint(0, height())));
}

bool KXFilterButton::isOnArrow(const QPoint &place) const
{
    const bool mirrored = layoutDirection() == Qt::RightToLeft;
    return m_menu
        && (mirrored ? place.x() < m_filterCell->arrowWidth : place.x() >= width() - m_filterCell->arrowWidth);
}

void KXFilterButton::mousePressEvent(QMouseEvent *event)
{
    if (event->button() == Qt::LeftButton && isOnArrow(event->position().toPoint())) {
        event->accept();
        showFilterMenu();
        return;
    }
    KXThemeableButton::mousePressEvent(event);
}

void KXFilterButton::mouseReleaseEvent(QMouseEvent *event)
{
    if (isDown())
        KXThemeableButton::mouseReleaseEvent(event);
}

bool KXFilterButton::event(QEvent *event)
{
    if (event->type() == QEvent::LayoutDirectionChange || event->type() == QEvent::FontChange)
        placeSwitch();
    return KXThemeableButton::event(event);
}

void KXFilterButton::keyPressEvent(QKeyEvent *event)
{
    const bool isReturn = event->key() == Qt::Key_Return || event->key() == Qt::Key_Enter;
    if (isReturn && event->modifiers() == Qt::NoModifier)
        click();
    else if (event->key() == Qt::Key_Down && event->modifiers() & Qt::AltModifier)
        showFilterMenu();
    else
        KXThemeableButton::keyPressEvent(event);
}

void KXFilterButton::contextMenuEvent(QContextMenuEvent *event)
{
    event->accept();
    if (event->reason() == QContextMenuEvent::Mouse && m_menu)
        m_menu->popup(event->globalPos());
    else
        showFilterMenu();
}

void KXFilterButton::resizeEvent(QResizeEvent *event)
{
    KXThemeableButton::resizeEvent(event);
    placeSwitch();
}

void KXFilterButton::placeSwitch()
{
    const QRect at(0, 0, KXFilterButtonCell::switchWidth, height());
    m_switch->setGeometry(QStyle::visualRect(layoutDirection(), rect(), at));
}
