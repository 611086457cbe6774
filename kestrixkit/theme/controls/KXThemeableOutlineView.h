#pragma once

#include <QTreeView>

#include <kestrixkit/theme/controls/KXThemeableTableRowView.h>

/// A tree whose rows are painted by row views: one for ordinary rows, one for groups, which are the rows whose model
/// says so. Text of selected rows is in the palette's HighlightedText. Main thread.
class KX_UI_EXPORT KXThemeableOutlineView : public KXThemed<QTreeView>
{
    Q_OBJECT
    Q_PROPERTY(QString themeStyleName READ themeStyleName WRITE setThemeStyleName)
public:
    /// True for a row that heads a group.
    static constexpr int GroupRole = Qt::UserRole + 1000;

    explicit KXThemeableOutlineView(QWidget *parent = nullptr);

    [[nodiscard]] KXThemeableTableRowView *rowView() const { return m_rowView; }
    [[nodiscard]] KXThemeableTableRowView *groupRowView() const { return m_groupRowView; }

protected:
    void drawRow(QPainter *painter, const QStyleOptionViewItem &option, const QModelIndex &index) const override;
    void drawBranches(QPainter *painter, const QRect &rect, const QModelIndex &index) const override;
    void currentChanged(const QModelIndex &current, const QModelIndex &previous) override;
    void setNeedsDisplay() override;

private:
    KXThemeableTableRowView *m_rowView;
    KXThemeableTableRowView *m_groupRowView;
};
