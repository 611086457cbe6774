#pragma once

#include <Qt>

#include <kestrixkit/foundation/KXGlobal.h>

/// Where items of a source list may be dropped, decided from values alone. Any thread.
namespace KXSourceListDropRules {

/// The part of a row of the top level, above and below, that stands for the place beside it.
inline constexpr double besideZone = 0.2;

/// Everything that the answer depends on.
struct Question
{
    Qt::DropActions allowed; ///< by the drag
    bool canBeDuplicated = false; ///< what is dragged
    bool hasTarget = false; ///< false: the top level itself
    bool targetHasParent = false;
    bool targetCanBeParent = false; ///< of all that is dragged
    bool targetIsInside = false; ///< dragged itself, or below something that is
    bool isRefused = false; ///< by what is dragged, which cannot be a child of the target
    bool targetIsBelow = false; ///< further down in the list than what is dragged
    int targetIndex = 0; ///< among its siblings
    int childIndex = -1; ///< proposed; -1: onto the target itself
    double height = 0.5; ///< of the pointer in the target's row, from 0 (top) to 1 (bottom)
};

/// What a drop would do.
struct Answer
{
    Qt::DropAction operation = Qt::IgnoreAction; ///< IgnoreAction: no drop
    bool intoTarget = false; ///< else into the top level
    int childIndex = -1; ///< in front of which row there; -1: as a drop onto the target
};

/// Moves where that is allowed, copies only where nothing else is. Rows of the top level are divided: dropped onto
/// their upper fifth something goes beside them, above, onto the lower fifth below, else into them. What cannot be
/// nested there goes beside them wherever it is dropped. No target is the top level, which takes everything but what
/// refuses.
[[nodiscard]] KX_UI_EXPORT Answer decide(const Question &question);

}
