// The leaves of a compiled predicate: one value, written as an expression, against constants or another expression.

#include <kestrixkit/store/KXPredicateSQLCompiler_p.h>

#include <algorithm>
#include <cmath>
#include <compare>

#include <kestrixkit/predicate/KXPredicateEvaluator_p.h>
#include <kestrixkit/predicate/KXTextWords_p.h>

using namespace Qt::StringLiterals;

namespace {

constexpr size_t sqlMostParameters = 32'000; // SQLite's limit is 32766, and the caller has some of its own

KXSQLValue sqlInteger(qint64 value) { return { .type = KXSQLValue::Integer, .integer = value }; }
KXSQLValue sqlReal(double value) { return { .type = KXSQLValue::Real, .real = value }; }
KXSQLValue sqlText(const QByteArray &utf8) { return { .type = KXSQLValue::Text, .bytes = utf8 }; }

/// A list for json_each; none where JSON cannot carry the values exactly.
std::optional<QByteArray> sqlJson(const std::vector<KXSQLValue> &values)
{
    QByteArray json = "[";
    for (const KXSQLValue &value : values) {
        if (json.size() > 1)
            json += ',';
        if (value.type == KXSQLValue::Integer) {
            json += QByteArray::number(value.integer);
            continue;
        }
        if (value.type != KXSQLValue::Text || value.bytes.contains('\0'))
            return std::nullopt;
        json += '"';
        for (const char c : value.bytes) {
            if (c == '"' || c == '\\')
                json += '\\';
            if (uchar(c) < 0x20)
                json += "\\u00" + QByteArray(1, c).toHex();
            else
                json += c;
        }
        json += '"';
    }
    return json + ']';
}

}

void KXPredicateSQLCompiler::applyToValue(const Operand &operand, const Condition &condition)
{
    if (condition.inverted) {
        Condition straight = condition;
        straight.inverted = false;
        m_text += '(';
        applyToValue(operand, straight);
        m_text += ") IS NOT TRUE";
    } else if (condition.path) {
        applyOperand(operand, condition,
            operandOf(*condition.path, condition.path->scalar(m_row, 0, condition.path->size(), m_aliases), false));
    } else {
        applyValues(operand, condition);
    }
}

void KXPredicateSQLCompiler::applyValues(const Operand &operand, const Condition &condition)
{
    const std::vector<KXPredicateValue> &values = condition.values;
    if (condition.comparisonOperator == KXPredicateOperator::In && condition.isList)
        return isOneOf(operand, condition, false);
    if (condition.comparisonOperator == KXPredicateOperator::Equal && values.size() > 1)
        return isOneOf(operand, condition,
            std::any_of(values.begin(), values.end(), [](const auto &value) { return value.isNull(); }));
    if (condition.comparisonOperator == KXPredicateOperator::Between) {
        if (condition.reversed || !condition.isList || values.size() != 2) {
            m_text += '0';
            return;
        }
        m_text += '(';
        relation(operand, KXPredicateOperator::GreaterThanOrEqual, values[0], condition);
        m_text += " AND ";
        relation(operand, KXPredicateOperator::LessThanOrEqual, values[1], condition);
        m_text += ')';
        return;
    }
    join(0, qsizetype(values.size()), false, [&](qsizetype i) {
        if (condition.comparisonOperator == KXPredicateOperator::In) {
            Condition part = condition;
            part.reversed = true;
            textRelation(operand, KXPredicateOperator::Contains, values[size_t(i)], part);
        } else if (isRelation(condition.comparisonOperator)) {
            relation(operand, condition.comparisonOperator, values[size_t(i)], condition);
        } else {
            textRelation(operand, condition.comparisonOperator, values[size_t(i)], condition);
        }
    });
}

void KXPredicateSQLCompiler::relation(const Operand &operand, KXPredicateOperator comparisonOperator,
    const KXPredicateValue &value, const Condition &condition)
{
    const bool isEquality
        = comparisonOperator == KXPredicateOperator::Equal || comparisonOperator == KXPredicateOperator::NotEqual;
    if (value.isNull()) {
        if (isEquality)
            m_text += operand.text + (comparisonOperator == KXPredicateOperator::Equal ? " IS NULL" : " IS NOT NULL");
        else
            m_text += '0';
        return;
    }
    bool always = false;
    const std::optional<KXSQLValue> stored = storageForm(operand, value, comparisonOperator, always);
    if (!stored) {
        if (isEquality)
            m_text += comparisonOperator == KXPredicateOperator::Equal ? '0' : '1';
        else
            m_text += always ? operand.text + " IS NOT NULL" : "0";
        return;
    }
    static constexpr const char *signs[] = { "<", "<=", ">", ">=", "=", " IS NOT " };
    add(operand, condition.options);
    m_text += signs[int(comparisonOperator)];
    add(*stored);
}

std::optional<KXSQLValue> KXPredicateSQLCompiler::storageForm(
    const Operand &operand, const KXPredicateValue &value, KXPredicateOperator &comparisonOperator, bool &always) const
{
    using Value = KXPredicateValue;
    const bool isLess = comparisonOperator <= KXPredicateOperator::LessThanOrEqual;
    const bool isOrder = comparisonOperator <= KXPredicateOperator::GreaterThanOrEqual;
    if (operand.kind == Value::Other)
        KXPredicateSQLRefusal::refuse(u"a value of any kind is compared"_s);

    // A bound between two values that the column can hold: `below` tells whether the one bound here is the lower.
    const auto between = [&](const KXSQLValue &neighbour, bool below) -> std::optional<KXSQLValue> {
        if (!isOrder)
            return std::nullopt;
        if (isLess)
            comparisonOperator = below ? KXPredicateOperator::LessThanOrEqual : KXPredicateOperator::LessThan;
        else
            comparisonOperator = below ? KXPredicateOperator::GreaterThan : KXPredicateOperator::GreaterThanOrEqual;
        return neighbour;
    };
    if (value.isNumber() && operand.kind >= Value::Integer && operand.kind <= Value::Decimal) {
        const bool isReal = value.kind() == Value::Real;
        if (isReal && std::isnan(value.real()))
            return std::nullopt;
        if (isReal && std::isinf(value.real()) && operand.kind != Value::Real) {
            always = isOrder && isLess == (value.real() > 0);
            return std::nullopt;
        }
        const auto decimal = [&value, isReal] {
            return value.kind() == Value::Decimal ? value.decimal()
                : isReal                          ? KXDecimal::fromDouble(value.real())
                                                  : KXDecimal::fromInteger(value.integer());
        };
        if (operand.kind == Value::Decimal)
            return sqlText(decimal().canonical());
        if (operand.kind == Value::Integer) {
            if (value.kind() == Value::Integer)
                return sqlInteger(value.integer());
            if (isReal)
                return sqlReal(value.real());
            bool ok = false;
            const qint64 whole = value.decimal().toInt64(&ok);
            const KXDecimal wholeDecimal = KXDecimal::fromInteger(whole);
            if (ok && wholeDecimal == value.decimal())
                return sqlInteger(whole);
            if (ok)
                return between(sqlInteger(whole), wholeDecimal < value.decimal());
            always = isOrder && isLess != value.decimal().isNegative();
            return std::nullopt;
        }
        if (isReal)
            return sqlReal(value.real());
        if (value.kind() == Value::Integer)
            return sqlInteger(value.integer());
        const double nearest = value.decimal().toDouble();
        const Value nearestValue { QVariant(nearest) };
        const std::partial_ordering order = Value::compare(nearestValue, value);
        return std::is_eq(order) ? sqlReal(nearest) : between(sqlReal(nearest), std::is_lt(order));
    }
    if (value.kind() != operand.kind)
        return std::nullopt;
    switch (value.kind()) {
    case Value::Text:
        return sqlText(value.text().toUtf8());
    case Value::Date:
        return sqlInteger(value.integer());
    case Value::Binary:
        return KXSQLValue { .type = KXSQLValue::Blob, .bytes = value.bytes() };
    case Value::Object:
        if (!isOrder && value.objectKey().key && value.objectKey().store == m_store
            && value.objectKey().layout == operand.entity->layoutSerial())
            return sqlInteger(value.objectKey().key);
        break;
    default:
        break;
    }
    return std::nullopt;
}

void KXPredicateSQLCompiler::isOneOf(const Operand &operand, const Condition &condition, bool absentToo)
{
    std::vector<KXSQLValue> stored;
    for (const KXPredicateValue &value : condition.values) {
        KXPredicateOperator equal = KXPredicateOperator::Equal;
        bool always = false;
        if (value.isNull())
            continue;
        if (const auto form = storageForm(operand, value, equal, always))
            stored.push_back(*form);
    }
    if (absentToo)
        m_text += '(' + operand.text + " IS NULL OR ";
    // Long lists are one parameter, so that the statement's text says nothing of their length.
    constexpr size_t longList = 200;
    std::optional<QByteArray> json;
    if (stored.size() > longList)
        json = sqlJson(stored);
    if (stored.empty()) {
        m_text += '0';
    } else if (json) {
        add(operand, condition.options);
        m_text += " IN (SELECT value FROM json_each(";
        add(sqlText(*json));
        m_text += "))";
    } else {
        add(operand, condition.options);
        m_text += stored.size() == 1 ? "=" : " IN (";
        for (size_t i = 0; i < stored.size(); ++i) {
            if (i > 0)
                m_text += ',';
            add(stored[i]);
        }
        m_text += stored.size() == 1 ? "" : ")";
    }
    if (absentToo)
        m_text += ')';
}

/// Whether it may stand on that side of an operator on texts: words are those of numbers as well.
bool KXPredicateSQLCompiler::hasText(const Operand &operand, KXPredicateOperator comparisonOperator, bool isRight)
{
    return operand.kind == KXPredicateValue::Text
        || (comparisonOperator == KXPredicateOperator::BeginsWord && !isRight
            && (operand.kind == KXPredicateValue::Integer || operand.kind == KXPredicateValue::Real));
}

void KXPredicateSQLCompiler::textRelation(const Operand &operand, KXPredicateOperator comparisonOperator,
    const KXPredicateValue &value, const Condition &condition)
{
    if (operand.kind == KXPredicateValue::Other)
        KXPredicateSQLRefusal::refuse(u"a value of any kind is compared"_s);
    const auto kind = value.kind();
    // On the left of BEGINSWORD stand numbers as well, as they are written.
    const bool hasWords = condition.reversed && comparisonOperator == KXPredicateOperator::BeginsWord
        && (kind == KXPredicateValue::Integer || kind == KXPredicateValue::Real);
    if (!hasText(operand, comparisonOperator, condition.reversed) || (kind != KXPredicateValue::Text && !hasWords)) {
        m_text += '0';
        return;
    }
    QString text = kind == KXPredicateValue::Integer ? QString::number(value.integer())
        : kind == KXPredicateValue::Real             ? QString::fromUtf8(KXTextWords::textOfNumber(value.real()))
                                                     : value.text();
    if (comparisonOperator == KXPredicateOperator::Like && !condition.reversed) {
        // A pattern without wildcards, or with one at the end alone, is something simpler.
        QString literal;
        qsizetype at = 0;
        for (; at < text.size() && text[at] != u'*' && text[at] != u'?'; ++at) {
            if (text[at] == u'\\' && at + 1 < text.size())
                ++at;
            literal += text[at];
        }
        if (at == text.size())
            return relation(operand, KXPredicateOperator::Equal, KXPredicateValue(literal), condition);
        if (at == text.size() - 1 && text[at] == u'*') {
            comparisonOperator = KXPredicateOperator::BeginsWith;
            text = literal;
        }
    }
    const int folding = KXPredicateEvaluator::foldingOptions(comparisonOperator, condition.options);
    const QByteArray utf8 = text.toUtf8();
    if (comparisonOperator == KXPredicateOperator::BeginsWith && !condition.reversed && operand.isColumn && !folding) {
        if (utf8.isEmpty()) {
            m_text += operand.text + " IS NOT NULL";
            return;
        }
        // A range, which an index answers. No byte of UTF-8 is the last there is.
        QByteArray end = utf8;
        end.back() = char(end.back() + 1);
        m_text += '(' + operand.text + ">=";
        add(sqlText(utf8));
        m_text += " AND " + operand.text + '<';
        add(sqlText(end));
        m_text += ')';
        return;
    }
    m_text += "kx_text(";
    if (condition.reversed)
        add(sqlText(utf8));
    else
        add(operand, folding);
    m_text += ',' + QByteArray::number(int(comparisonOperator)) + ',';
    if (condition.reversed)
        add(operand, folding);
    else
        add(sqlText(utf8));
    m_text += ',' + QByteArray::number(condition.options) + ')';
}

/// Compares with another expression.
void KXPredicateSQLCompiler::applyOperand(const Operand &operand, const Condition &condition, const Operand &other)
{
    using Value = KXPredicateValue;
    const KXPredicateOperator comparisonOperator = condition.comparisonOperator;
    const bool isMember = comparisonOperator == KXPredicateOperator::In && condition.isList;
    if (operand.kind == Value::Other || other.kind == Value::Other)
        KXPredicateSQLRefusal::refuse(u"a value of any kind is compared"_s);

    if (!isMember && !isRelation(comparisonOperator)) {
        const bool isText = hasText(operand, comparisonOperator, condition.reversed)
            && hasText(other, comparisonOperator, !condition.reversed);
        if (!isText || comparisonOperator == KXPredicateOperator::Between) {
            m_text += '0';
            return;
        }
        const int folding = KXPredicateEvaluator::foldingOptions(comparisonOperator, condition.options);
        m_text += "kx_text(";
        add(condition.reversed ? other : operand, folding);
        m_text += ',' + QByteArray::number(int(comparisonOperator)) + ',';
        add(condition.reversed ? operand : other, folding);
        m_text += ',' + QByteArray::number(condition.options) + ')';
        return;
    }

    const auto isNumber
        = [](const Operand &side) { return side.kind >= Value::Integer && side.kind <= Value::Decimal; };
    const bool areNumbers = isNumber(operand) && isNumber(other);
    const bool isEquality
        = comparisonOperator == KXPredicateOperator::Equal || comparisonOperator == KXPredicateOperator::NotEqual;
    if ((operand.kind != other.kind && !areNumbers) || (operand.kind == Value::Object && !isEquality && !isMember)) {
        if (!isEquality)
            m_text += '0';
        else if (comparisonOperator == KXPredicateOperator::Equal) // absent is equal to absent
            m_text += '(' + operand.text + " IS NULL AND " + other.text + " IS NULL)";
        else
            m_text += '(' + operand.text + " IS NOT NULL OR " + other.text + " IS NOT NULL)";
        return;
    }
    static constexpr const char *signs[] = { "<", "<=", ">", ">=", " IS ", " IS NOT " };
    const auto addNumber = [this, &operand, &other](const Operand &side) {
        const bool asDecimal
            = side.kind != Value::Decimal && (operand.kind == Value::Decimal || other.kind == Value::Decimal);
        add(asDecimal ? Operand { "kx_decimal(" + side.text + ')', Value::Decimal } : side);
    };
    if (areNumbers)
        addNumber(operand);
    else
        add(operand, condition.options);
    m_text += isMember ? "=" : signs[int(comparisonOperator)];
    if (areNumbers)
        addNumber(other);
    else
        add(other, condition.options);
}

void KXPredicateSQLCompiler::add(const Operand &operand, int folding)
{
    if (operand.kind == KXPredicateValue::Text && folding)
        m_text += "kx_fold(" + operand.text + ',' + QByteArray::number(folding) + ')';
    else
        m_text += operand.text;
    if (operand.kind == KXPredicateValue::Decimal)
        m_text += " COLLATE KX_DECIMAL";
}

void KXPredicateSQLCompiler::add(const KXSQLValue &value)
{
    if (m_result.values.size() >= sqlMostParameters)
        KXPredicateSQLRefusal::refuse(u"it holds too many values"_s);
    m_result.values.push_back(value);
    m_text += '?';
}
