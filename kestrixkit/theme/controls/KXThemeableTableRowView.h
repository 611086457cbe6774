#pragma once

#include <functional>

#include <QColor>
#include <QPalette>
#include <QRectF>

#include <kestrixkit/theme/controls/KXThemed.h>

class KXThemeableTableRowView;
class QPainter;

/// Paints a part of a row: its background, its selection or the line beneath it.
using KXRowDrawBlock = std::function<void(const KXThemeableTableRowView &row, QPainter &painter, const QRectF &rect)>;
Q_DECLARE_METATYPE(KXRowDrawBlock)

/// The looks of the rows of a table or outline. One serves them all: the view sets the state of the row that it is
/// about to paint. Without a routine for the selection its two colours are used, or the palette's. Main thread.
class KX_UI_EXPORT KXThemeableTableRowView : public KXThemed<QObject>
{
    Q_OBJECT
    Q_PROPERTY(QString themeStyleName READ themeStyleName WRITE setThemeStyleName)
    Q_PROPERTY(KXRowDrawBlock drawSelectionBlock READ drawSelectionBlock WRITE setDrawSelectionBlock)
    Q_PROPERTY(KXRowDrawBlock drawBackgroundBlock READ drawBackgroundBlock WRITE setDrawBackgroundBlock)
    Q_PROPERTY(KXRowDrawBlock drawSeparatorBlock READ drawSeparatorBlock WRITE setDrawSeparatorBlock)
    Q_PROPERTY(QColor selectionColor MEMBER m_selectionColor)
    Q_PROPERTY(QColor inactiveSelectionColor MEMBER m_inactiveSelectionColor)
public:
    /// The widget is painted again when a style is applied.
    explicit KXThemeableTableRowView(QWidget *view);

    /// How the row stands at the moment that it is painted in.
    struct State
    {
        bool selected = false;
        bool emphasised = false; ///< the view has the focus
        bool hovered = false;
        bool enabled = true;
        int row = 0;
    };
    [[nodiscard]] const State &state() const { return m_state; }
    void setState(const State &state) { m_state = state; }

    [[nodiscard]] KXRowDrawBlock drawSelectionBlock() const { return m_drawSelectionBlock; }
    void setDrawSelectionBlock(const KXRowDrawBlock &block) { m_drawSelectionBlock = block; }
    [[nodiscard]] KXRowDrawBlock drawBackgroundBlock() const { return m_drawBackgroundBlock; }
    void setDrawBackgroundBlock(const KXRowDrawBlock &block) { m_drawBackgroundBlock = block; }
    [[nodiscard]] KXRowDrawBlock drawSeparatorBlock() const { return m_drawSeparatorBlock; }
    void setDrawSeparatorBlock(const KXRowDrawBlock &block) { m_drawSeparatorBlock = block; }

    void draw(QPainter &painter, const QRectF &rect, const QPalette &palette) const;

protected:
    void setNeedsDisplay() override;

private:
    State m_state;
    QColor m_selectionColor, m_inactiveSelectionColor;
    KXRowDrawBlock m_drawSelectionBlock, m_drawBackgroundBlock, m_drawSeparatorBlock;
};
