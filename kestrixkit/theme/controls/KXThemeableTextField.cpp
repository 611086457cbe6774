#include <kestrixkit/theme/controls/KXThemeableTextField.h>

#include <QEvent>
#include <QPainter>
#include <QStyleOptionFrame>

#include <kestrixkit/theme/controls/KXControlAccessibility_p.h>
#include <kestrixkit/theme/controls/KXControlPainter.h>

using namespace Qt::StringLiterals;

namespace {

constexpr int fieldPadding = 4; // what the toolkit keeps free itself while the text is edited
constexpr int fieldMargin = 3;

// What the toolkit paints while the text is edited has the palette's colours.
void fieldSet(QPalette &palette, QPalette::ColorRole role, const QColor &colour)
{
    if (colour.isValid())
        palette.setColor(role, colour);
}

}

/// Another theme changes the colours of a field that is being edited at once.
class KXThemeableTextField::FieldCell : public KXThemeableTextFieldCell
{
public:
    explicit FieldCell(KXThemeableTextField *field)
        : KXThemeableTextFieldCell(field)
        , m_field(*field)
    {
    }

protected:
    void setNeedsDisplay() override
    {
        KXThemeableTextFieldCell::setNeedsDisplay();
        if (m_field.hasFocus())
            m_field.takeEditingColours();
    }

private:
    KXThemeableTextField &m_field;
};

KXThemeableTextField::KXThemeableTextField(QWidget *parent)
    : QLineEdit(parent)
    , m_cell(new FieldCell(this))
{
    KXInstallControlAccessibility();
    setAttribute(Qt::WA_Hover);
    setTextMargins(fieldMargin, 0, fieldMargin, 0);
}

KXThemeableTextField::KXThemeableTextField(const QString &text, QWidget *parent)
    : KXThemeableTextField(parent)
{
    setText(text);
}

void KXThemeableTextField::setLabel(bool label)
{
    if (std::exchange(m_isLabel, label) != label)
        KXForgetAccessibility(this); // it is described as something else
    setReadOnly(label);
    setFrame(!label);
    setTextMargins(label ? 0 : fieldMargin, 0, label ? 0 : fieldMargin, 0);
    setSizePolicy(label ? QSizePolicy::Preferred : QSizePolicy::Expanding, QSizePolicy::Fixed);
    setFocusPolicy(label ? Qt::NoFocus : Qt::StrongFocus);
    if (label) {
        setAccessibleName(text());
        connect(this, &QLineEdit::textChanged, this, &QWidget::setAccessibleName);
    } else {
        disconnect(this, &QLineEdit::textChanged, this, &QWidget::setAccessibleName);
    }
    updateGeometry();
}

void KXThemeableTextField::setHighlighted(bool highlighted)
{
    m_isHighlighted = highlighted;
    update();
}

QSize KXThemeableTextField::sizeHint() const
{
    if (!m_isLabel)
        return m_cell->isThemed() ? QSize(QLineEdit::sizeHint().width(), fontMetrics().height() + 8)
                                  : QLineEdit::sizeHint();
    return { fontMetrics().horizontalAdvance(text()) + 2, fontMetrics().height() + 2 };
}

QSize KXThemeableTextField::minimumSizeHint() const
{
    return m_isLabel ? sizeHint() : QSize(QLineEdit::minimumSizeHint().width(), sizeHint().height());
}

/// What the style says of editing is worked into the palette.
void KXThemeableTextField::takeEditingColours()
{
    if (!m_cell->isThemed())
        return;
    QPalette colours = palette();
    const QVariantMap &selected = m_cell->fieldEditorSelectedTextAttributes;
    fieldSet(colours, QPalette::Text, KXControlPainter::firstOf({ m_cell->editingTextColor, m_cell->textColor }));
    fieldSet(colours, QPalette::Highlight, selected.value(u"backgroundColor"_s).value<QColor>());
    fieldSet(colours, QPalette::HighlightedText, selected.value(u"color"_s).value<QColor>());
    fieldSet(colours, QPalette::PlaceholderText, m_cell->placeholderTextColor);
    fieldSet(colours, QPalette::Base, m_cell->backgroundColor);
    if (colours != palette())
        setPalette(colours);
}

bool KXThemeableTextField::event(QEvent *event)
{
    if (event->type() == QEvent::FocusIn) // before anything that asks for the palette
        takeEditingColours();
    return QLineEdit::event(event);
}

void KXThemeableTextField::paintEvent(QPaintEvent *event)
{
    if (!m_cell->isThemed() && !m_isLabel) {
        QLineEdit::paintEvent(event);
        return;
    }
    if (hasFocus() && !m_isLabel) {
        QLineEdit::paintEvent(event);
        QPainter painter(this);
        KXControlPainter::focusRing(painter, rect(), palette());
        return;
    }
    QPainter painter(this);
    painter.setLayoutDirection(layoutDirection());
    const QPalette &colours = palette();
    if (!m_isLabel) {
        const bool hovered = underMouse() && isEnabled();
        KXControlPainter::plate(painter, rect(), m_cell->backgroundColor,
            hovered ? colours.color(QPalette::PlaceholderText) : m_cell->borderColor);
    }
    QColor colour = KXControlPainter::firstOf({ m_cell->textColor, colours.color(QPalette::Text) });
    if (m_isHighlighted)
        colour = KXControlPainter::firstOf({ m_cell->highlightedTextColor, colour });
    if (!isEnabled())
        colour = KXControlPainter::firstOf(
            { m_cell->disabledTextColor, colours.color(QPalette::Disabled, QPalette::Text) });
    QString shown = displayText();
    if (shown.isEmpty()) {
        shown = placeholderText();
        if (isEnabled())
            colour
                = KXControlPainter::firstOf({ m_cell->placeholderTextColor, colours.color(QPalette::PlaceholderText) });
    }
    const int padding = m_isLabel ? 0 : fieldPadding;
    const QMargins margins = textMargins();
    const QRectF room = rect().adjusted(padding + margins.left(), 0, -padding - margins.right(), 0);
    if (!m_isLabel) // as the toolkit does while it is edited
        painter.setLayoutDirection(shown.isRightToLeft() ? Qt::RightToLeft : Qt::LeftToRight);
    const int side = int(alignment() & Qt::AlignHorizontal_Mask);
    KXControlPainter::text(painter, room, side | Qt::AlignVCenter, shown, colour, m_cell->shadow);
}
