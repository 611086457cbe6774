#pragma once

#include <QBrush>
#include <QColor>

#include <kestrixkit/theme/controls/KXThemeableCell.h>

class QStyleOptionButton;

/// The looks of a push button. "Highlighted" is a pressed button; one under the mouse is half way there. A value that
/// is absent for a state is that of the state before it: normal, then highlighted, selected, disabled. The shadow lies
/// a point below text and image. Main thread.
class KX_UI_EXPORT KXThemeableButtonCell : public KXThemeableCell
{
    Q_OBJECT
    Q_PROPERTY(QColor textColor MEMBER m_textColor)
    Q_PROPERTY(QColor highlightedTextColor MEMBER m_highlightedTextColor)
    Q_PROPERTY(QColor disabledTextColor MEMBER m_disabledTextColor)
    Q_PROPERTY(QColor borderColor MEMBER m_borderColor)
    Q_PROPERTY(QColor highlightedBorderColor MEMBER m_highlightedBorderColor)
    Q_PROPERTY(QColor disabledBorderColor MEMBER m_disabledBorderColor)
    Q_PROPERTY(QColor highlightedBackgroundColor MEMBER m_highlightedBackgroundColor)
    Q_PROPERTY(QColor selectedBackgroundColor MEMBER m_selectedBackgroundColor)
    Q_PROPERTY(QColor disabledBackgroundColor MEMBER m_disabledBackgroundColor)
    Q_PROPERTY(QColor shadowColor MEMBER m_shadowColor)
    Q_PROPERTY(QBrush backgroundGradient MEMBER m_backgroundGradient)
    Q_PROPERTY(QBrush highlightedBackgroundGradient MEMBER m_highlightedBackgroundGradient)
    Q_PROPERTY(QBrush selectedBackgroundGradient MEMBER m_selectedBackgroundGradient)
    Q_PROPERTY(QBrush disabledBackgroundGradient MEMBER m_disabledBackgroundGradient)
    Q_PROPERTY(QColor imageTintColor MEMBER m_imageTintColor)
    Q_PROPERTY(QColor highlightedImageTintColor MEMBER m_highlightedImageTintColor)
    Q_PROPERTY(QColor disabledImageTintColor MEMBER m_disabledImageTintColor)
    Q_PROPERTY(qreal cornerRadius MEMBER m_cornerRadius)
public:
    using KXThemeableCell::KXThemeableCell;

    /// The whole button, focus ring included. Text, image, direction and state are the option's.
    virtual void paint(QPainter &painter, const QStyleOptionButton &option) const;
    /// What text and image need, padding included.
    [[nodiscard]] virtual QSize sizeHint(const QStyleOptionButton &option) const;

protected:
    virtual void paintBezel(QPainter &painter, const QStyleOptionButton &option) const;
    virtual void paintInterior(QPainter &painter, const QStyleOptionButton &option, const QRect &rect) const;
    [[nodiscard]] QColor textColour(const QStyleOptionButton &option) const;

private:
    QColor m_textColor, m_highlightedTextColor, m_disabledTextColor;
    QColor m_borderColor, m_highlightedBorderColor, m_disabledBorderColor;
    QColor m_highlightedBackgroundColor, m_selectedBackgroundColor, m_disabledBackgroundColor, m_shadowColor;
    QBrush m_backgroundGradient, m_highlightedBackgroundGradient, m_selectedBackgroundGradient;
    QBrush m_disabledBackgroundGradient;
    QColor m_imageTintColor, m_highlightedImageTintColor, m_disabledImageTintColor;
    qreal m_cornerRadius = 4;
};
