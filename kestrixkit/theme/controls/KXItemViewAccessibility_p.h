#pragma once

#include <QtGlobal>

QT_BEGIN_NAMESPACE
class QAbstractItemView;
class QAccessibleInterface;
QT_END_NAMESPACE

/// Describes an item view as Qt does, with one child more while something in its rows is edited: Qt's description knows
/// cells alone, so nobody who looks for the editor would find it. Null when asked by itself, and for null.
[[nodiscard]] QAccessibleInterface *KXDescribeItemView(QAbstractItemView *view);
