// What a value must fulfil: comparisons with constants and with other columns.

#include <kestrixkit/catalogue/KXPostgreSQLRule_p.h>

#include <kestrixkit/catalogue/KXPostgreSQLPattern_p.h>
#include <kestrixkit/catalogue/KXPostgreSQLTypes_p.h>
#include <kestrixkit/foundation/KXStringWithFormat.h>
#include <kestrixkit/predicate/KXTextWords_p.h>

using namespace Qt::StringLiterals;
using Value = KXPredicateValue;

namespace {

constexpr const char *comparisonSigns[] = { " < ", " <= ", " > ", " >= ", " = ", " IS DISTINCT FROM " };

bool comparisonIsRelation(KXPredicateOperator comparisonOperator)
{
    return comparisonOperator >= KXPredicateOperator::LessThan && comparisonOperator <= KXPredicateOperator::NotEqual;
}

QByteArray comparisonJoined(const QList<QByteArray> &parts, const char *with)
{
    if (parts.isEmpty())
        return "FALSE";
    return parts.size() == 1 ? parts.first() : '(' + parts.join(with) + ')';
}

}

QByteArray KXPostgreSQLRule::textOf(const Operand &operand, int folding)
{
    return operand.text.isEmpty() ? expression(*operand.column, folding) : operand.text;
}

QByteArray KXPostgreSQLRule::applyToValue(const Operand &operand, const Condition &condition)
{
    const KXPredicateOperator comparisonOperator = condition.comparisonOperator;
    if (operand.type == KXCatalogueType::Words && comparisonOperator != KXPredicateOperator::BeginsWord)
        refuse(KXStringWithFormat(KXLocalizedString("\"%@\" is only searched by words"), operand.column->keyPath));
    if (condition.other)
        return applyToOperand(operand, condition);
    const std::vector<Value> &values = condition.values;
    if (comparisonOperator == KXPredicateOperator::In && condition.isList)
        return isOneOf(operand, condition, false);
    if (comparisonOperator == KXPredicateOperator::Equal && values.size() > 1)
        return isOneOf(operand, condition,
            std::any_of(values.begin(), values.end(), [](const Value &value) { return value.isNull(); }));
    if (comparisonOperator == KXPredicateOperator::Between) {
        if (!condition.isList || values.size() != 2)
            return "FALSE";
        return '(' + relation(operand, KXPredicateOperator::GreaterThanOrEqual, values[0], condition) + " AND "
            + relation(operand, KXPredicateOperator::LessThanOrEqual, values[1], condition) + ')';
    }
    QList<QByteArray> parts;
    for (const Value &value : values) {
        Condition part = condition;
        if (comparisonOperator == KXPredicateOperator::In) { // a part of the value
            part.reversed = true;
            parts.append(textRelation(operand, KXPredicateOperator::Contains, value, part));
        } else if (comparisonIsRelation(comparisonOperator)) {
            parts.append(relation(operand, comparisonOperator, value, condition));
        } else {
            parts.append(textRelation(operand, comparisonOperator, value, condition));
        }
    }
    return comparisonJoined(parts, " OR ");
}

QByteArray KXPostgreSQLRule::relation(const Operand &operand, KXPredicateOperator comparisonOperator,
    const KXPredicateValue &value, const Condition &condition)
{
    const QByteArray plain = textOf(operand, 0);
    const bool equality = isEquality(comparisonOperator);
    if (value.isNull()) {
        if (!equality)
            return "FALSE";
        return plain + (comparisonOperator == KXPredicateOperator::Equal ? " IS NULL" : " IS NOT NULL");
    }
    if (operand.type == KXCatalogueType::Boolean) {
        // Two values: look which of them fit.
        const auto fits = [&](bool flag) {
            return KXPredicate::comparison(KXExpression::expressionForConstantValue(qint64(flag)), comparisonOperator,
                KXExpression::expressionForConstantValue(value.kind() == Value::Integer ? QVariant(value.integer())
                        : value.kind() == Value::Real                                   ? QVariant(value.real())
                        : value.kind() == Value::Decimal ? QVariant::fromValue(value.decimal())
                                                         : QVariant(u"no number"_s)))
                .evaluateWithObject(nullptr);
        };
        const bool whenFalse = fits(false);
        const bool whenTrue = fits(true);
        const bool whenNull = comparisonOperator == KXPredicateOperator::NotEqual;
        if (whenFalse && whenTrue)
            return whenNull ? "TRUE" : plain + " IS NOT NULL";
        if (whenFalse)
            return whenNull ? plain + " IS NOT TRUE" : "NOT " + plain;
        if (whenTrue)
            return whenNull ? plain + " IS NOT FALSE" : plain;
        return whenNull ? plain + " IS NULL" : "FALSE";
    }
    bool always = false;
    const std::optional<KXCatalogueParameter> stored
        = KXPostgreSQLRule::stored(operand.type, value, comparisonOperator, always);
    if (!stored) {
        if (equality)
            return comparisonOperator == KXPredicateOperator::Equal ? "FALSE" : "TRUE";
        return always ? plain + " IS NOT NULL" : "FALSE";
    }
    const int folding = value.kind() == Value::Text ? condition.folding : 0;
    return textOf(operand, folding) + comparisonSigns[int(comparisonOperator)] + place(*stored);
}

QByteArray KXPostgreSQLRule::isOneOf(const Operand &operand, const Condition &condition, bool absentToo)
{
    QList<QByteArray> texts;
    QList<QByteArray> parts;
    bool areTexts = false;
    for (const Value &value : condition.values) {
        KXPredicateOperator equal = KXPredicateOperator::Equal;
        bool always = false;
        if (value.isNull())
            continue;
        if (operand.type == KXCatalogueType::Boolean) {
            parts.append(relation(operand, equal, value, condition));
        } else if (const auto form = stored(operand.type, value, equal, always)) {
            texts.append(form->text);
            areTexts = areTexts || value.kind() == Value::Text;
        }
    }
    if (!texts.isEmpty()) {
        // One value or many are one parameter each, so that the statement says nothing of their number.
        const QByteArray place
            = this->place({ KXPostgreSQLTypes::arrayTypeOf(operand.type), KXPostgreSQLTypes::arrayText(texts) });
        parts.append(textOf(operand, areTexts ? condition.folding : 0) + " = ANY(" + place + ')');
    }
    if (absentToo)
        parts.append(textOf(operand, 0) + " IS NULL");
    return comparisonJoined(parts, " OR ");
}

QByteArray KXPostgreSQLRule::beginsWord(const Operand &operand, const KXPredicateValue &value)
{
    if (value.kind() != Value::Text)
        return "FALSE";
    const bool isWords = operand.type == KXCatalogueType::Words;
    if (operand.type == KXCatalogueType::Integer || operand.type == KXCatalogueType::Boolean) {
        // The digits are its only word.
        const QByteArray plain = textOf(operand, 0);
        const QByteArray number = operand.type == KXCatalogueType::Boolean ? '(' + plain + ")::int" : plain;
        QList<QByteArray> parts { plain + " IS NOT NULL" };
        for (const QByteArray &word : KXTextWords::ofTerm(value.text()))
            parts.append("starts_with(ltrim((" + number + ")::text, '-'), "
                + place({ KXPostgreSQLTypes::typeOf(KXCatalogueType::Text), word }) + ')');
        return comparisonJoined(parts, " AND ");
    }
    if (operand.type == KXCatalogueType::Real)
        refuse(KXLocalizedString("words are looked for in a real number"));
    if (!isWords && operand.type != KXCatalogueType::Text)
        return "FALSE";
    QByteArray column = operand.text;
    if (!isWords || column.isEmpty()) {
        const QByteArray name = isWords ? operand.column->name : operand.column->words;
        if (name.isEmpty() || !column.isEmpty())
            refuse(KXStringWithFormat(
                KXLocalizedString("the catalogue does not keep the words of \"%@\""), operand.column->keyPath));
        column = expression({ .name = name, .type = KXCatalogueType::Words });
    }
    QByteArray query;
    for (const QByteArray &word : KXTextWords::ofTerm(value.text()))
        query += (query.isEmpty() ? "'" : " & '") + word + "':*";
    return query.isEmpty() ? column + " IS NOT NULL" : column + " @@ " + place({ KXPostgreSQLTypes::Words, query });
}

QByteArray KXPostgreSQLRule::textRelation(const Operand &operand, KXPredicateOperator comparisonOperator,
    const KXPredicateValue &value, const Condition &condition)
{
    if (comparisonOperator == KXPredicateOperator::BeginsWord) {
        if (condition.reversed)
            refuse(KXLocalizedString("the words to look for come from a column"));
        return beginsWord(operand, value);
    }
    if (operand.type != KXCatalogueType::Text || value.kind() != Value::Text)
        return "FALSE";
    refuseHalves(value.text());
    const QByteArray text = textOf(operand, condition.folding);
    const bool hasNul = value.text().contains(QChar::Null);
    const auto constant = [&] {
        return place({ KXPostgreSQLTypes::typeOf(KXCatalogueType::Text), value.text().toUtf8() });
    };
    switch (comparisonOperator) {
    case KXPredicateOperator::BeginsWith:
    case KXPredicateOperator::EndsWith:
    case KXPredicateOperator::Contains: {
        if (hasNul) { // no column holds it, but it may hold what a column does
            if (condition.reversed)
                refuse(KXLocalizedString("a text holds the character 0"));
            return "FALSE";
        }
        const QByteArray whole = condition.reversed ? constant() : text;
        const QByteArray part = condition.reversed ? text : constant();
        if (comparisonOperator == KXPredicateOperator::BeginsWith)
            return "starts_with(" + whole + ", " + part + ')';
        if (comparisonOperator == KXPredicateOperator::EndsWith)
            return "right(" + whole + ", length(" + part + ")) = " + part;
        return "strpos(" + whole + ", " + part + ") > 0";
    }
    case KXPredicateOperator::Like:
    case KXPredicateOperator::Matches: {
        if (condition.reversed)
            refuse(KXLocalizedString("a pattern comes from a column"));
        const bool isLike = comparisonOperator == KXPredicateOperator::Like;
        const std::optional<QString> pattern = isLike
            ? KXPostgreSQLPattern::ofLike(value.text())
            : KXPostgreSQLPattern::ofRegularExpression(value.text(), condition.options & KXCaseInsensitive);
        if (!pattern || pattern->contains(QChar::Null))
            return "FALSE";
        return text + (isLike ? " LIKE " : " ~ ")
            + place({ KXPostgreSQLTypes::typeOf(KXCatalogueType::Text), pattern->toUtf8() });
    }
    default:
        return "FALSE";
    }
}

QByteArray KXPostgreSQLRule::applyToOperand(const Operand &operand, const Condition &condition)
{
    const Operand &other = *condition.other;
    const KXPredicateOperator comparisonOperator = condition.comparisonOperator;
    if (operand.type == KXCatalogueType::Words || other.type == KXCatalogueType::Words)
        refuse(KXLocalizedString("the words to look for come from a column"));
    const bool isMember = comparisonOperator == KXPredicateOperator::In && condition.isList;
    const bool areTexts = operand.type == KXCatalogueType::Text && other.type == KXCatalogueType::Text;
    const QByteArray own = textOf(operand, areTexts ? condition.folding : 0);
    const QByteArray others = textOf(other, areTexts ? condition.folding : 0);
    if (!isMember && !comparisonIsRelation(comparisonOperator)) {
        if (comparisonOperator == KXPredicateOperator::BeginsWord)
            refuse(KXLocalizedString("the words to look for come from a column"));
        if (!areTexts)
            return "FALSE";
        const QByteArray whole = condition.reversed ? others : own;
        const QByteArray part = condition.reversed ? own : others;
        switch (comparisonOperator) {
        case KXPredicateOperator::BeginsWith:
            return "starts_with(" + whole + ", " + part + ')';
        case KXPredicateOperator::EndsWith:
            return "right(" + whole + ", length(" + part + ")) = " + part;
        case KXPredicateOperator::Contains:
            return "strpos(" + whole + ", " + part + ") > 0";
        case KXPredicateOperator::Like:
        case KXPredicateOperator::Matches:
            refuse(KXLocalizedString("a pattern comes from a column"));
        default:
            return "FALSE";
        }
    }
    const QByteArray sign = isMember                       ? " = "
        : comparisonOperator == KXPredicateOperator::Equal ? " IS NOT DISTINCT FROM "
                                                           : comparisonSigns[int(comparisonOperator)];
    if (operand.isNumber() && other.isNumber())
        return numbersCompared(operand, sign, other);
    if (operand.type != other.type) {
        if (comparisonOperator == KXPredicateOperator::Equal) // absent is equal to absent
            return '(' + own + " IS NULL AND " + others + " IS NULL)";
        if (comparisonOperator == KXPredicateOperator::NotEqual)
            return '(' + own + " IS NOT NULL OR " + others + " IS NOT NULL)";
        return "FALSE";
    }
    return own + sign + others;
}

/// Whole and real numbers are compared by value, real and decimal ones by the shortest decimal that reads as the real.
QByteArray KXPostgreSQLRule::numbersCompared(const Operand &operand, const QByteArray &sign, const Operand &other)
{
    const auto number = [](const Operand &side) {
        const QByteArray text = textOf(side, 0);
        return side.type == KXCatalogueType::Boolean ? '(' + text + ")::int::bigint" : text;
    };
    const QByteArray own = number(operand);
    const QByteArray others = number(other);
    const bool isReal = operand.type == KXCatalogueType::Real;
    if (isReal == (other.type == KXCatalogueType::Real))
        return own + sign + others;
    const QByteArray &real = isReal ? own : others;
    const auto written = [&](const QByteArray &ofReal, const QByteArray &ofOther) {
        return isReal ? ofReal + sign + ofOther : ofOther + sign + ofReal;
    };
    if ((isReal ? other : operand).type == KXCatalogueType::Decimal)
        return written('(' + real + ")::text::numeric", isReal ? others : own);
    // As doubles up to 2^53, where these are exact; beyond, doubles are whole; beyond 64 bits their sign decides.
    const QByteArray whole = isReal ? others : own;
    return "CASE WHEN abs(" + real + ") < 9007199254740992 THEN " + written(real, '(' + whole + ")::float8") + " WHEN "
        + real + " >= 9223372036854775808 OR " + real + " < -9223372036854775808 THEN "
        + written(real, "CASE WHEN " + whole + " IS NOT NULL THEN 0::float8 END") + " ELSE "
        + written('(' + real + ")::bigint", whole) + " END";
}
