#include <kestrixkit/search/KXSearchMatches.h>

#include <kestrixkit/search/KXSearchWords_p.h>

QList<std::pair<qsizetype, qsizetype>> KXSearchMatches(const QString &text, const QString &term)
{
    QList<std::pair<qsizetype, qsizetype>> matches;
    for (const KXSearchWords::Range &range : KXSearchWords::matches(text, term))
        matches.append({ range.from, range.length });
    return matches;
}
