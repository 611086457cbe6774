#include <kestrixkit/filters/KXCounts.h>

#include <kestrixkit/foundation/KXStringWithFormat.h>

using namespace Qt::StringLiterals;

QVariant KXVariantFromCounts(const std::optional<KXCounts> &counts)
{
    if (!counts)
        return {};
    QVariantMap map;
    for (auto entry = counts->cbegin(); entry != counts->cend(); ++entry)
        map.insert(entry.key(), entry.value());
    return map;
}

QString KXCountBadgeText(qint64 count)
{
    if (count < 1)
        return {};
    return count < 1000 ? KXStringWithFormat("%ld", count) : u"999+"_s;
}
