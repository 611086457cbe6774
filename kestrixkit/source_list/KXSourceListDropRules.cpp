#include <kestrixkit/source_list/KXSourceListDropRules.h>

#include <algorithm>

KXSourceListDropRules::Answer KXSourceListDropRules::decide(const Question &question)
{
    Qt::DropAction operation = Qt::IgnoreAction;
    if (question.allowed & Qt::MoveAction)
        operation = Qt::MoveAction;
    else if (question.allowed & Qt::CopyAction)
        operation = question.canBeDuplicated ? Qt::CopyAction : Qt::MoveAction;
    const Answer none;
    if (operation == Qt::IgnoreAction)
        return none;

    if (!question.hasTarget)
        return question.isRefused ? none : Answer { operation, false, std::max(question.childIndex, 0) };
    const Answer before { operation, false, question.targetIndex };
    const Answer after { operation, false, question.targetIndex + 1 };
    const bool isOntoTopLevel = !question.targetHasParent && question.childIndex < 0;
    if (question.targetCanBeParent && !question.targetIsInside) {
        if (isOntoTopLevel && question.height < besideZone)
            return before;
        if (isOntoTopLevel && question.height > 1 - besideZone)
            return after;
        return { operation, true, question.childIndex };
    }
    if (question.isRefused || !isOntoTopLevel)
        return none;
    return question.targetIsBelow ? after : before;
}
