#pragma once

#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include <kestrixkit/counts/KXCountColumn_p.h>
#include <kestrixkit/foundation/KXDecimal.h>
#include <kestrixkit/store/KXRowReader_p.h>

/// Fills columns with the values of rows that a KXRowReader reads. Borrows the columns.
class KXCountFiller
{
public:
    explicit KXCountFiller(std::vector<KXCountColumn *> columns)
        : m_columns(std::move(columns))
        , m_known(m_columns.size())
    {
    }
    /// `values(i)` is the KXColumnValue of the i-th column.
    template <typename Values> void fill(size_t row, const Values &values)
    {
        for (size_t i = 0; i < m_columns.size(); ++i)
            set(*m_columns[i], row, values(i), m_known[i]);
    }

private:
    struct BytesHash
    {
        using is_transparent = void;
        size_t operator()(std::string_view bytes) const noexcept { return std::hash<std::string_view>()(bytes); }
    };
    /// Codes of a column's values by what the store has.
    using Known = std::unordered_map<std::string, quint32, BytesHash, std::equal_to<>>;

    static void set(KXCountColumn &column, size_t row, KXColumnValue value, Known &known)
    {
        if (column.kind() == KXCountColumn::Kind::Relation)
            column.setKeys(row, value.isNull() ? std::vector<qint64>() : std::vector<qint64> { value.integer() });
        else if (column.kind() == KXCountColumn::Kind::Value)
            column.setCode(row, value.isNull() ? 0 : codeOf(column, value.utf8(), known));
        else if (value.isNull())
            column.setNumber(row, KXCountColumn::absent);
        else
            column.setNumber(row,
                column.property().type() == KXAttributeType::Double ? KXCountColumn::numberFromDouble(value.real())
                                                                    : value.integer());
    }
    /// A text or a decimal number; each is looked at as a value once.
    static quint32 codeOf(KXCountColumn &column, QByteArrayView utf8, Known &known)
    {
        const std::string_view bytes(utf8.data(), size_t(utf8.size()));
        if (const auto found = known.find(bytes); found != known.end())
            return found->second;
        const QString text = QString::fromUtf8(utf8);
        const bool isDecimal = column.property().type() == KXAttributeType::Decimal;
        const quint32 code = column.codeOfValue(
            isDecimal ? QVariant::fromValue(KXDecimal::fromString(text).value_or(KXDecimal())) : QVariant(text));
        known.emplace(bytes, code);
        return code;
    }

    std::vector<KXCountColumn *> m_columns;
    std::vector<Known> m_known;
};
