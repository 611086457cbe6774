#pragma once

#include <optional>

#include <QIcon>
#include <QPixmap>

#include <kestrixkit/foundation/KXGlobal.h>

class KXBadgeCell;
class QWidget;

/// What hangs from the pointer while rows are dragged: the title of one of them on a plate, and a badge with the number
/// of rows where they are several. Main thread.
struct KX_UI_EXPORT KXDragImage
{
    QString title;
    std::optional<QIcon> icon; ///< in front of the title; the room for it is left where there is an icon that is null
    qsizetype count = 1;
    int mostTitleWidth = 260; ///< points; what is longer is cut

    /// In the view's font and colours.
    [[nodiscard]] QPixmap draw(const QWidget &view, const KXBadgeCell &badge) const;
};
