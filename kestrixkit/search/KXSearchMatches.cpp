#include <kestrixkit/search/KXSearchMatches.h>

#include <kestrixkit/predicate/KXTextWords_p.h>

QList<std::pair<qsizetype, qsizetype>> KXSearchMatches(const QString &text, const QString &term)
{
    QList<std::pair<qsizetype, qsizetype>> matches;
    for (const KXTextWords::Range &range : KXTextWords::matches(text, term))
        matches.append({ range.from, range.length });
    return matches;
}
