#pragma once

#include <QStyledItemDelegate>

class KXSearchViewController;

/// Draws the rows of a search: groups with their button, results with what matched set off.
class KXSearchRowDelegate : public QStyledItemDelegate
{
public:
    explicit KXSearchRowDelegate(KXSearchViewController &controller, QObject *parent);

    void paint(QPainter *painter, const QStyleOptionViewItem &option, const QModelIndex &index) const override;
    [[nodiscard]] QSize sizeHint(const QStyleOptionViewItem &option, const QModelIndex &index) const override;
    /// Where the button of a group's row lies; empty where it is hidden.
    [[nodiscard]] QRect buttonRect(const QStyleOptionViewItem &option, int row) const;

protected:
    bool editorEvent(QEvent *event, QAbstractItemModel *model, const QStyleOptionViewItem &option,
        const QModelIndex &index) override;

private:
    void paintGroup(QPainter &painter, const QStyleOptionViewItem &option, int row) const;
    void paintResult(QPainter &painter, const QStyleOptionViewItem &option, const QModelIndex &index) const;
    void paintText(QPainter &painter, const QRect &rect, const QString &text, const QStyleOptionViewItem &option,
        const QColor &colour) const;

    KXSearchViewController &m_controller;
};
