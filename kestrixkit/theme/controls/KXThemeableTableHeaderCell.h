#pragma once

#include <QBrush>
#include <QHeaderView>

#include <kestrixkit/theme/controls/KXThemeableCell.h>

class QStyleOptionHeader;

/// The looks of the head of a column. The inset is a line of light just below the top border. Text is in the theme's
/// tableHeaderTextColour. Main thread.
class KX_UI_EXPORT KXThemeableTableHeaderCell : public KXThemeableCell
{
    Q_OBJECT
    Q_PROPERTY(QBrush backgroundGradient MEMBER m_backgroundGradient)
    Q_PROPERTY(QBrush highlightedBackgroundGradient MEMBER m_highlightedBackgroundGradient)
    Q_PROPERTY(QColor topBorderColor MEMBER m_topBorderColor)
    Q_PROPERTY(QColor bottomBorderColor MEMBER m_bottomBorderColor)
    Q_PROPERTY(QColor insetColor MEMBER m_insetColor)
    Q_PROPERTY(QColor highlightedInsetColor MEMBER m_highlightedInsetColor)
    Q_PROPERTY(QColor verticalSeparatorColor MEMBER m_verticalSeparatorColor)
    Q_PROPERTY(QColor sortIndicatorColor MEMBER m_sortIndicatorColor)
public:
    using KXThemeableCell::KXThemeableCell;

    void paint(QPainter &painter, const QStyleOptionHeader &option) const;
    /// Background and lines without text, for what lies beyond the last column.
    void paintBackground(QPainter &painter, const QRect &rect, bool highlighted) const;

private:
    QBrush m_backgroundGradient, m_highlightedBackgroundGradient;
    QColor m_topBorderColor, m_bottomBorderColor, m_insetColor, m_highlightedInsetColor, m_verticalSeparatorColor;
    QColor m_sortIndicatorColor;
};

/// A header that paints its sections with one cell. Main thread.
class KX_UI_EXPORT KXThemeableTableHeaderView : public QHeaderView
{
    Q_OBJECT
    Q_PROPERTY(QString themeStyleName READ themeStyleName WRITE setThemeStyleName)
    Q_PROPERTY(QObject *cell READ cell)
    KX_CONTROL_WITH_CELL(KXThemeableTableHeaderCell)
public:
    explicit KXThemeableTableHeaderView(Qt::Orientation orientation, QWidget *parent = nullptr);

protected:
    void paintSection(QPainter *painter, const QRect &rect, int logicalIndex) const override;
    void paintEvent(QPaintEvent *event) override;
    [[nodiscard]] QSize sectionSizeFromContents(int logicalIndex) const override;
};
