#pragma once

#include <kestrixkit/theme/controls/KXThemeableOutlineView.h>

/// The outline of an inspector: headers that fold what lies below them up, by a click, Space, Return or the arrow keys.
/// Main thread.
class KX_UI_EXPORT KXInspectorOutlineView : public KXThemeableOutlineView
{
    Q_OBJECT
public:
    explicit KXInspectorOutlineView(QWidget *parent = nullptr);

    /// Headers that cannot be folded, or are none, stay as they are.
    void toggle(const QModelIndex &header);
    using KXThemeableOutlineView::scheduleDelayedItemsLayout;

Q_SIGNALS:
    /// Rows have another width, and so perhaps another height.
    void widthDidChange();

protected:
    void drawBranches(QPainter *, const QRect &, const QModelIndex &) const override { }
    void mousePressEvent(QMouseEvent *event) override;
    void mouseDoubleClickEvent(QMouseEvent *event) override { mousePressEvent(event); }
    void keyPressEvent(QKeyEvent *event) override;
    void resizeEvent(QResizeEvent *event) override;
};
