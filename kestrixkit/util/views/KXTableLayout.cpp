#include <kestrixkit/util/views/KXTableLayout_p.h>

#include <algorithm>
#include <cmath>
#include <optional>

#include <QSet>
#include <QVariantMap>

using namespace Qt::StringLiterals;

namespace {

constexpr double tableWidestColumn = 10'000;

/// Numbers, and texts that read as one; another program may have written the list.
std::optional<double> tableNumber(const QVariant &value)
{
    bool isNumber = false;
    const double number = value.toDouble(&isNumber);
    return isNumber && std::isfinite(number) && value.typeId() != QMetaType::Bool ? std::optional(number)
                                                                                  : std::nullopt;
}

bool tableFlag(const QVariant &value)
{
    if (value.typeId() == QMetaType::Bool)
        return value.toBool();
    return value.toString().compare("true"_L1, Qt::CaseInsensitive) == 0 || tableNumber(value).value_or(0) != 0;
}

}

QVariantMap KXTableLayout::preset(const Column &column, qsizetype position)
{
    return { { u"identifier"_s, column.identifier }, { u"position"_s, uint(position) }, { u"width"_s, column.width },
        { u"hidden"_s, column.hidden } };
}

QVariantList KXTableLayout::presets() const
{
    QVariantList list;
    for (const Column &column : columns)
        list.append(preset(column, list.size()));
    return list;
}

bool KXTableLayout::apply(const QVariantList &presets)
{
    QList<Column> arranged = columns;
    QSet<QString> mentioned;
    for (const QVariant &entry : presets) {
        const QVariantMap values = entry.toMap();
        const QVariant identifier = values.value(u"identifier"_s);
        const auto found = std::find_if(arranged.begin(), arranged.end(), [&](const Column &column) {
            return identifier.typeId() == QMetaType::QString && column.identifier == identifier.toString();
        });
        if (found == arranged.end())
            continue;
        mentioned.insert(found->identifier);
        if (const auto width = tableNumber(values.value(u"width"_s)); width && *width > 0)
            found->width = std::min(*width, tableWidestColumn);
        found->hidden = tableFlag(values.value(u"hidden"_s));
        if (const auto position = tableNumber(values.value(u"position"_s)); position && *position >= 0) {
            const Column column = *found;
            arranged.erase(found);
            arranged.insert(qsizetype(std::min(*position, double(arranged.size()))), column);
        }
    }
    if (mentioned.isEmpty())
        return false;
    for (Column &column : arranged)
        column.hidden = column.hidden || !mentioned.contains(column.identifier);
    // A header without columns could not be opened to bring one back.
    if (std::all_of(arranged.begin(), arranged.end(), [](const Column &column) { return column.hidden; }))
        arranged.first().hidden = false;
    columns = arranged;
    return true;
}
