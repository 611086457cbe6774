// Rules and their comparisons: which side is a column, and which of a list's elements must match.

#include <kestrixkit/catalogue/KXPostgreSQLRule_p.h>

#include <algorithm>

#include <kestrixkit/catalogue/KXPostgreSQLDialect.h>
#include <kestrixkit/catalogue/KXPostgreSQLTypes_p.h>
#include <kestrixkit/foundation/KXStringWithFormat.h>
#include <kestrixkit/predicate/KXPredicateLists_p.h>

using namespace Qt::StringLiterals;

namespace {

constexpr qsizetype ruleMostParameters = 60'000; // the protocol counts them in 16 bits

bool ruleIsRelation(KXPredicateOperator comparisonOperator)
{
    return comparisonOperator >= KXPredicateOperator::LessThan && comparisonOperator <= KXPredicateOperator::NotEqual;
}

/// The operator with its sides exchanged.
KXPredicateOperator ruleMirrored(KXPredicateOperator comparisonOperator)
{
    switch (comparisonOperator) {
    case KXPredicateOperator::LessThan:
        return KXPredicateOperator::GreaterThan;
    case KXPredicateOperator::LessThanOrEqual:
        return KXPredicateOperator::GreaterThanOrEqual;
    case KXPredicateOperator::GreaterThan:
        return KXPredicateOperator::LessThan;
    case KXPredicateOperator::GreaterThanOrEqual:
        return KXPredicateOperator::LessThanOrEqual;
    default:
        return comparisonOperator;
    }
}

/// Which options fold the texts that the operator looks at: words are folded anyway, and regular expressions mind case
/// by themselves.
int ruleFolding(KXPredicateOperator comparisonOperator, int options)
{
    if (comparisonOperator == KXPredicateOperator::BeginsWord)
        return 0;
    const int known = options & (KXCaseInsensitive | KXDiacriticInsensitive);
    return comparisonOperator == KXPredicateOperator::Matches ? known & KXDiacriticInsensitive : known;
}

void ruleCollect(const QVariant &value, int folding, std::vector<KXPredicateValue> &values)
{
    if (value.typeId() == QMetaType::QVariantList || value.typeId() == QMetaType::QStringList) {
        for (const QVariant &element : value.toList())
            ruleCollect(element, folding, values);
    } else {
        values.emplace_back(value, folding);
    }
}

}

bool KXPostgreSQLRule::Condition::hasTexts() const
{
    return other || std::any_of(values.begin(), values.end(), [](const KXPredicateValue &value) {
        return value.kind() == KXPredicateValue::Text;
    });
}

const KXCatalogueColumn &KXPostgreSQLRule::column(const QString &keyPath) const
{
    const KXCatalogueColumn *found = m_schema.columnForKeyPath(keyPath);
    if (!found)
        refuse(KXStringWithFormat(KXLocalizedString("the catalogue has no \"%@\""), keyPath));
    return *found;
}

QByteArray KXPostgreSQLRule::place(KXCatalogueParameter parameter)
{
    QList<KXCatalogueParameter> &all = m_statement.parameters;
    qsizetype at = all.indexOf(parameter);
    if (at < 0) {
        if (all.size() >= ruleMostParameters)
            refuse(KXLocalizedString("it holds too many values"));
        at = all.size();
        all.append(std::move(parameter));
    }
    return '$' + QByteArray::number(at + 1);
}

QByteArray KXPostgreSQLRule::expression(const KXCatalogueColumn &column, int folding)
{
    QByteArray name = column.name;
    if (folding && column.type == KXCatalogueType::Text) {
        name = column.folded.value(folding);
        if (name.isEmpty())
            refuse(KXStringWithFormat(
                KXLocalizedString("the catalogue has no copy of \"%@\" without case or diacritics"), column.keyPath));
    }
    name = "t." + KXPostgreSQLDialect::quoted(name);
    return column.type == KXCatalogueType::Text && !column.isList ? name + " COLLATE \"C\"" : name;
}

// Rules

QByteArray KXPostgreSQLRule::condition(const KXPredicate &rule)
{
    switch (rule.type()) {
    case KXPredicateType::True:
        return "TRUE";
    case KXPredicateType::False:
        return "FALSE";
    case KXPredicateType::And:
    case KXPredicateType::Or:
        return junction(rule.subpredicates(), rule.type() == KXPredicateType::And);
    case KXPredicateType::Not:
        return '(' + condition(rule.subpredicates().first()) + ") IS NOT TRUE";
    case KXPredicateType::Comparison:
        return comparison(rule);
    }
    return "FALSE";
}

QByteArray KXPostgreSQLRule::junction(const QList<KXPredicate> &parts, bool isAnd)
{
    const QList<KXPredicate> joined = isAnd ? parts : KXPredicateJoinEqualities(parts);
    if (joined.isEmpty())
        return isAnd ? "TRUE" : "FALSE";
    if (joined.size() == 1)
        return condition(joined.first());
    QByteArray text = "(";
    for (const KXPredicate &part : joined)
        text += (text.size() == 1 ? "" : isAnd ? " AND " : " OR ") + condition(part);
    return text + ')';
}

KXPostgreSQLRule::Side KXPostgreSQLRule::side(const KXExpression &expression, int folding) const
{
    Side side;
    switch (expression.type()) {
    case KXExpressionType::KeyPath: {
        const QString keyPath = expression.keyPath();
        const QString counted = keyPath.chopped(keyPath.endsWith(".@count"_L1) ? 7 : 0);
        if (counted.size() == keyPath.size()) {
            side.column = &column(keyPath);
            return side;
        }
        // A list is counted by its own key path or by that of the relationship: "artists" of "artists.name".
        const auto found
            = std::find_if(m_schema.columns().begin(), m_schema.columns().end(), [&](const KXCatalogueColumn &each) {
                  return each.isList && (each.keyPath == counted || each.keyPath.startsWith(counted + u'.'));
              });
        if (found == m_schema.columns().end())
            refuse(KXStringWithFormat(KXLocalizedString("the catalogue has no \"%@\""), keyPath));
        side.column = &*found;
        side.isCount = true;
        return side;
    }
    case KXExpressionType::Constant:
        side.isList = expression.constantValue().typeId() == QMetaType::QVariantList
            || expression.constantValue().typeId() == QMetaType::QStringList;
        ruleCollect(expression.constantValue(), folding, side.values);
        return side;
    case KXExpressionType::Variable:
        refuse(KXLocalizedString("a variable has no value yet"));
    case KXExpressionType::EvaluatedObject:
        refuse(KXLocalizedString("the track itself is compared"));
    case KXExpressionType::Function:
    case KXExpressionType::Aggregate:
        break;
    }
    refuse(KXLocalizedString("a side is made of several key paths"));
}

QByteArray KXPostgreSQLRule::comparison(const KXPredicate &rule)
{
    const int folding = ruleFolding(rule.comparisonOperator(), rule.options());
    const Side left = side(rule.leftExpression(), folding);
    const Side right = side(rule.rightExpression(), folding);
    Condition condition {
        .comparisonOperator = rule.comparisonOperator(), .options = rule.options(), .folding = folding
    };
    if (!left.column && !right.column)
        return rule.evaluateWithObject(nullptr) ? "TRUE" : "FALSE";
    if (!left.column)
        return compareValuesWithColumn(left, rule.modifier(), right, condition);
    if (right.column)
        return compareColumns(left, rule.modifier(), right, condition);
    condition.values = right.values;
    condition.isList = right.isList;
    if (condition.comparisonOperator == KXPredicateOperator::Contains && left.column->isList && !left.isCount
        && rule.modifier() == KXPredicateModifier::Direct) {
        condition.comparisonOperator = KXPredicateOperator::In; // an equal element
        condition.isList = true;
    }
    return apply(left, rule.modifier(), condition);
}

QByteArray KXPostgreSQLRule::compareValuesWithColumn(
    const Side &left, KXPredicateModifier modifier, const Side &right, Condition condition)
{
    const KXPredicateOperator comparisonOperator = condition.comparisonOperator;
    const bool isListColumn = right.column->isList && !right.isCount;
    if (left.isList && comparisonOperator == KXPredicateOperator::Contains && modifier == KXPredicateModifier::Direct) {
        condition.comparisonOperator = KXPredicateOperator::In;
        condition.values = left.values;
        condition.isList = true;
        return apply(right, KXPredicateModifier::Any, condition);
    }
    if (left.isList) { // some of its values, or all
        const bool isAll = modifier == KXPredicateModifier::All;
        QByteArray text;
        for (const KXPredicateValue &value : left.values) {
            text += text.isEmpty() ? "(" : isAll ? " AND " : " OR ";
            text += compareValuesWithColumn({ .values = { value } }, KXPredicateModifier::Any, right, condition);
        }
        return text.isEmpty() ? QByteArray(isAll ? "TRUE" : "FALSE") : text + ')';
    }
    condition.values = left.values;
    if (comparisonOperator == KXPredicateOperator::In) {
        condition.isList = isListColumn;
        condition.comparisonOperator = isListColumn ? KXPredicateOperator::In : KXPredicateOperator::Contains;
    } else if (comparisonOperator == KXPredicateOperator::Between) {
        if (isListColumn)
            refuse(KXLocalizedString("a list of the catalogue's stands on the right side"));
        return "FALSE"; // one value is no range
    } else {
        condition.comparisonOperator = ruleMirrored(comparisonOperator);
        condition.reversed = !ruleIsRelation(comparisonOperator);
    }
    return apply(right, KXPredicateModifier::Any, condition);
}

QByteArray KXPostgreSQLRule::compareColumns(
    const Side &left, KXPredicateModifier modifier, const Side &right, Condition condition)
{
    const KXPredicateOperator comparisonOperator = condition.comparisonOperator;
    const bool isListOnLeft = left.column->isList && !left.isCount;
    if (right.column->isList && !right.isCount) {
        if (isListOnLeft || comparisonOperator == KXPredicateOperator::Between)
            refuse(KXLocalizedString("a list of the catalogue's stands on the right side"));
        condition.other = operandOf(left);
        condition.isList = comparisonOperator == KXPredicateOperator::In;
        condition.reversed = !condition.isList && !ruleIsRelation(comparisonOperator);
        condition.comparisonOperator = ruleMirrored(comparisonOperator);
        return apply(right, KXPredicateModifier::Any, condition);
    }
    condition.other = operandOf(right);
    if (comparisonOperator == KXPredicateOperator::Between) // one value is no range
        return isListOnLeft && modifier == KXPredicateModifier::All
            ? QByteArray("coalesce(cardinality(" + expression(*left.column) + "), 0) = 0")
            : QByteArray("FALSE");
    if (comparisonOperator == KXPredicateOperator::In) { // a part of the other text
        condition.comparisonOperator = KXPredicateOperator::Contains;
        condition.reversed = true;
    } else if (comparisonOperator == KXPredicateOperator::Contains && modifier == KXPredicateModifier::Direct
        && isListOnLeft) {
        condition.comparisonOperator = KXPredicateOperator::In;
        condition.isList = true;
    }
    return apply(left, modifier, condition);
}

KXPostgreSQLRule::Operand KXPostgreSQLRule::operandOf(const Side &side)
{
    if (side.isCount)
        return { .column = side.column,
            .type = KXCatalogueType::Integer,
            .text = "coalesce(cardinality(" + expression(*side.column) + "), 0)::bigint" };
    return { .column = side.column, .type = side.column->type };
}

// Lists

QByteArray KXPostgreSQLRule::apply(const Side &side, KXPredicateModifier modifier, const Condition &condition)
{
    if (side.column->isList && !side.isCount)
        return applyToList(*side.column, modifier, condition);
    return applyToValue(operandOf(side), condition);
}

/// Some element fits, or all do, where there may be none. NULL counts as a list without elements.
QByteArray KXPostgreSQLRule::applyToList(
    const KXCatalogueColumn &column, KXPredicateModifier modifier, const Condition &condition)
{
    const bool isAll = modifier == KXPredicateModifier::All;
    const bool folds = column.type == KXCatalogueType::Text && condition.hasTexts();
    const QByteArray list = expression(column, folds ? condition.folding : 0);

    // What an index over the elements answers: some element is one of the texts, or none is the text.
    const bool isMember = !isAll
        && (condition.comparisonOperator == KXPredicateOperator::Equal
            || (condition.comparisonOperator == KXPredicateOperator::In && condition.isList));
    const bool isWithout
        = isAll && condition.comparisonOperator == KXPredicateOperator::NotEqual && condition.values.size() == 1;
    const bool areTexts = !condition.other && !condition.values.empty()
        && std::all_of(condition.values.begin(), condition.values.end(), [](const KXPredicateValue &value) {
               return value.kind() == KXPredicateValue::Text && value.text().isValidUtf16()
                   && !value.text().contains(QChar::Null);
           });
    if (column.type == KXCatalogueType::Text && areTexts && (isMember || isWithout)) {
        QList<QByteArray> texts;
        for (const KXPredicateValue &value : condition.values)
            texts.append(value.text().toUtf8());
        const QByteArray overlap = list + " && "
            + place({ KXPostgreSQLTypes::arrayTypeOf(KXCatalogueType::Text), KXPostgreSQLTypes::arrayText(texts) });
        return isWithout ? '(' + overlap + ") IS NOT TRUE" : overlap;
    }
    Operand element { .column = &column, .type = column.type, .text = "e.v" };
    QByteArray elements = list;
    if (condition.comparisonOperator == KXPredicateOperator::BeginsWord && !column.words.isEmpty()) {
        element.type = KXCatalogueType::Words;
        elements = "t." + KXPostgreSQLDialect::quoted(column.words);
    } else if (column.type == KXCatalogueType::Text) {
        element.text += " COLLATE \"C\"";
    }
    const QByteArray inner = applyToValue(element, condition);
    elements = "EXISTS (SELECT FROM unnest(" + elements + ") AS e(v) WHERE ";
    return isAll ? "NOT " + elements + '(' + inner + ") IS NOT TRUE)" : elements + inner + ')';
}
