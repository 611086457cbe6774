#pragma once

#include <utility>

#include <QList>
#include <QString>

#include <kestrixkit/foundation/KXGlobal.h>

/// Where in a text what a term looks for stands: beginnings and lengths in its characters, in order, for views that set
/// it off. Any thread.
[[nodiscard]] KX_CORE_EXPORT QList<std::pair<qsizetype, qsizetype>> KXSearchMatches(
    const QString &text, const QString &term);
