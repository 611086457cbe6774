#pragma once

#include <QColor>
#include <QIcon>

#include <kestrixkit/theme/controls/KXThemeableCell.h>

class QStyleOption;

/// One of the parts of a segmented control. Main thread.
struct KXSegment
{
    QString label;
    QIcon icon;
    bool enabled = true;
    bool selected = false;
};

/// The looks of a segmented control: one plate, parted by lines, its selected segments filled. Main thread.
class KX_UI_EXPORT KXThemeableSegmentedControlCell : public KXThemeableCell
{
    Q_OBJECT
    Q_PROPERTY(QColor textColor MEMBER m_textColor)
    Q_PROPERTY(QColor highlightedTextColor MEMBER m_highlightedTextColor)
    Q_PROPERTY(QColor selectedTextColor MEMBER m_selectedTextColor)
    Q_PROPERTY(QColor disabledTextColor MEMBER m_disabledTextColor)
    Q_PROPERTY(QColor borderColor MEMBER m_borderColor)
    Q_PROPERTY(QColor backgroundColor MEMBER m_backgroundColor)
    Q_PROPERTY(QColor highlightedBackgroundColor MEMBER m_highlightedBackgroundColor)
    Q_PROPERTY(QColor selectedBackgroundColor MEMBER m_selectedBackgroundColor)
public:
    using KXThemeableCell::KXThemeableCell;

    /// Rects are those of the segments, in the option's direction. State_Sunken and State_MouseOver are of the segment
    /// `active`; State_HasFocus of `current`; -1 for none.
    void paint(QPainter &painter, const QStyleOption &option, const QList<KXSegment> &segments,
        const QList<QRect> &rects, int active, int current) const;

private:
    QColor m_textColor, m_highlightedTextColor, m_selectedTextColor, m_disabledTextColor, m_borderColor;
    QColor m_backgroundColor, m_highlightedBackgroundColor, m_selectedBackgroundColor;
};
