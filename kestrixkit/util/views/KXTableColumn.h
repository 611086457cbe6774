#pragma once

#include <QString>

#include <kestrixkit/predicate/KXFetchRequest.h>

/// What a KXTableView knows of a column of its model, beyond what the model's header says. A value; any thread.
struct KXTableColumn
{
    /// Under which layouts are kept: stays the same whatever language or version; unique in the table.
    QString identifier;
    double width = 100; ///< in points, until the user or a layout says otherwise
    bool hidden = false; ///< likewise
    /// How its rows are sorted first; no key for a column that cannot be sorted by.
    KXSortDescriptor sortDescriptorPrototype = {};
};
