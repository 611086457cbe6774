#pragma once

#include <optional>

#include <QIcon>
#include <QMetaType>
#include <QString>

/// What one row of a source list shows. Main thread.
struct KXSourceListCell
{
    QString title;
    QIcon image;
    std::optional<bool> isChecked; ///< a check box before the image; absent: none
    qint64 count = 0; ///< in a badge at the row's end; none below 1
    bool inProgress = false; ///< work is under way: a sign in the badge's place
    bool isEnabled = true; ///< false: drawn as of no use at present. It can be selected all the same.
    bool isEditable = false; ///< the title, in place
    bool isExpandable = true; ///< with a disclosure triangle, where there are rows below it
    bool isGroup = false; ///< a heading
    QString toolTip;
};
Q_DECLARE_METATYPE(KXSourceListCell)
