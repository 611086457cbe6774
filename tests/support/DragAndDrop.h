#pragma once

#include <memory>

#include <QApplication>
#include <QDragEnterEvent>
#include <QDragLeaveEvent>
#include <QDropEvent>
#include <QMimeData>

#include <kestrixkit/source_list/KXSourceListView.h>

/// Drags as a view gets to know of them, where there is no pointer to drag with: entering, moving, dropping.
class DragAndDrop
{
public:
    /// Drags the data over the view and lets it go at that place of its viewport. Answers what came of it; without the
    /// view's consent nothing is dropped.
    static Qt::DropAction drop(QAbstractScrollArea &view, const QMimeData &data, const QPoint &place,
        Qt::DropActions possible = Qt::CopyAction | Qt::MoveAction | Qt::LinkAction,
        Qt::KeyboardModifiers modifiers = Qt::NoModifier)
    {
        QDragEnterEvent enter(place, possible, &data, Qt::LeftButton, modifiers);
        QApplication::sendEvent(view.viewport(), &enter);
        if (!enter.isAccepted())
            return Qt::IgnoreAction;
        QDragMoveEvent move(place, possible, &data, Qt::LeftButton, modifiers);
        QApplication::sendEvent(view.viewport(), &move);
        if (!move.isAccepted()) {
            QDragLeaveEvent leave;
            QApplication::sendEvent(view.viewport(), &leave);
            return Qt::IgnoreAction;
        }
        QDropEvent drop(place, possible, &data, Qt::LeftButton, modifiers);
        QApplication::sendEvent(view.viewport(), &drop);
        return drop.isAccepted() ? drop.dropAction() : Qt::IgnoreAction;
    }
    /// Rows of a source list onto a place in a row of it: 0 is the row's top, 1 its bottom.
    static Qt::DropAction rows(KXSourceListView &view, const QModelIndexList &rows, const QModelIndex &onto,
        double height, Qt::KeyboardModifiers modifiers = Qt::NoModifier)
    {
        const std::unique_ptr<QMimeData> data(view.delegate()->mimeDataForRows(view, rows));
        if (!data)
            return Qt::IgnoreAction;
        view.scrollTo(onto);
        const QRect row = onto.isValid() ? view.visualRect(onto) : QRect();
        const QPoint place = onto.isValid()
            ? QPoint(row.center().x(), row.top() + int(height * (row.height() - 1) + 0.5))
            : view.viewport()->rect().bottomLeft() + QPoint(20, -2);
        return drop(view, *data, place, Qt::CopyAction | Qt::MoveAction | Qt::LinkAction, modifiers);
    }
};
