#pragma once

#include <optional>

#include <QBrush>
#include <QFont>

#include <kestrixkit/theme/controls/KXThemeableCell.h>

class QStyleOptionComboBox;

/// The looks of a pop-up button. "Highlighted" is one under the mouse, "selected" one whose list is open. Main thread.
class KX_UI_EXPORT KXThemeablePopUpButtonCell : public KXThemeableCell
{
    Q_OBJECT
    Q_PROPERTY(QFont titleFont READ titleFont WRITE setTitleFont)
    Q_PROPERTY(QColor textColor MEMBER m_textColor)
    Q_PROPERTY(QColor highlightedTextColor MEMBER m_highlightedTextColor)
    Q_PROPERTY(QColor disabledTextColor MEMBER m_disabledTextColor)
    Q_PROPERTY(QColor borderColor MEMBER m_borderColor)
    Q_PROPERTY(QColor highlightedBorderColor MEMBER m_highlightedBorderColor)
    Q_PROPERTY(QColor highlightedBackgroundColor MEMBER m_highlightedBackgroundColor)
    Q_PROPERTY(QColor selectedBackgroundColor MEMBER m_selectedBackgroundColor)
    Q_PROPERTY(QBrush backgroundGradient MEMBER m_backgroundGradient)
    Q_PROPERTY(QBrush highlightedBackgroundGradient MEMBER m_highlightedBackgroundGradient)
    Q_PROPERTY(QBrush selectedBackgroundGradient MEMBER m_selectedBackgroundGradient)
    Q_PROPERTY(QColor imageTintColor MEMBER m_imageTintColor)
    Q_PROPERTY(QColor highlightedImageTintColor MEMBER m_highlightedImageTintColor)
public:
    using KXThemeableCell::KXThemeableCell;

    /// The control's own font unless set.
    [[nodiscard]] QFont titleFont() const { return m_titleFont.value_or(QFont()); }
    void setTitleFont(const QFont &font) { m_titleFont = font; }

    void paint(QPainter &painter, const QStyleOptionComboBox &option) const;

private:
    std::optional<QFont> m_titleFont;
    QColor m_textColor, m_highlightedTextColor, m_disabledTextColor, m_borderColor, m_highlightedBorderColor;
    QColor m_highlightedBackgroundColor, m_selectedBackgroundColor;
    QBrush m_backgroundGradient, m_highlightedBackgroundGradient, m_selectedBackgroundGradient;
    QColor m_imageTintColor, m_highlightedImageTintColor;
};
