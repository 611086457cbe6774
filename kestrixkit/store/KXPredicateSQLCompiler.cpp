#include <kestrixkit/store/KXPredicateSQLCompiler_p.h>

#include <algorithm>
#include <cmath>

#include <QHash>

#include <kestrixkit/store/KXPredicateEvaluator_p.h>

using namespace Qt::StringLiterals;

namespace {

// SQLite's parser keeps 100 open places; a piece of text with parentheses takes some of them.
constexpr int sqlNestingLimit = 85;
constexpr int sqlNestingOfJunction = 3;
constexpr int sqlNestingOfQuery = 12;

constexpr qsizetype sqlFlatJunction = 200; // longer ones are cut, because SQLite limits the depth of trees to 1000
constexpr size_t sqlMostParameters = 32'000; // SQLite's limit is 32766, and the caller has some of its own

[[noreturn]] void sqlRefuse(const QString &reason) { throw KXPredicateSQLRefusal { KXPredicateSQL::NotInSQL, reason }; }

bool sqlIsRelation(KXPredicateOperator comparisonOperator)
{
    return comparisonOperator >= KXPredicateOperator::LessThan && comparisonOperator <= KXPredicateOperator::NotEqual;
}

/// The operator with its sides exchanged.
KXPredicateOperator sqlMirrored(KXPredicateOperator comparisonOperator)
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

/// Compounds of one part are that part.
const KXPredicate &sqlUnwrapped(const KXPredicate &predicate)
{
    const KXPredicate *inner = &predicate;
    while ((inner->type() == KXPredicateType::And || inner->type() == KXPredicateType::Or) && inner->subpredicates().size() == 1)
        inner = &inner->subpredicates().first();
    return *inner;
}

void sqlFlatten(const QList<KXPredicate> &parts, KXPredicateType type, QList<KXPredicate> &flat)
{
    for (const KXPredicate &part : parts) {
        const KXPredicate &inner = sqlUnwrapped(part);
        if (inner.type() == type)
            sqlFlatten(inner.subpredicates(), type, flat);
        else
            flat.append(inner);
    }
}

/// Turns "a == 1 OR a == 2" into "a == {1, 2}", which SQLite answers from one table.
QList<KXPredicate> sqlWithLists(const QList<KXPredicate> &parts)
{
    QHash<std::pair<QString, int>, qsizetype> places;
    QHash<qsizetype, QVariantList> lists;
    QList<KXPredicate> result;
    for (const KXPredicate &part : parts) {
        if (part.type() == KXPredicateType::Comparison && part.comparisonOperator() == KXPredicateOperator::Equal
            && part.modifier() != KXPredicateModifier::All && part.leftExpression().type() == KXExpressionType::KeyPath
            && part.rightExpression().isConstant() && part.rightExpression().constantValue().typeId() != QMetaType::QVariantList) {
            const std::pair key(part.leftExpression().keyPath(), part.options());
            const auto place = places.constFind(key);
            if (place != places.constEnd()) {
                lists[*place].append(part.rightExpression().constantValue());
                continue;
            }
            places.insert(key, result.size());
        }
        result.append(part);
    }
    for (auto it = lists.begin(); it != lists.end(); ++it) {
        const KXPredicate first = result[it.key()];
        it->prepend(first.rightExpression().constantValue());
        result[it.key()] = KXPredicate::comparison(first.leftExpression(), KXPredicateOperator::Equal,
            KXExpression::expressionForConstantValue(*it), first.modifier(), first.options());
    }
    return result;
}

bool sqlHasPath(const KXExpression &expression)
{
    switch (expression.type()) {
    case KXExpressionType::KeyPath:
    case KXExpressionType::EvaluatedObject:
        return true;
    case KXExpressionType::Function:
        return sqlHasPath(expression.operand());
    default:
        return std::any_of(expression.arguments().begin(), expression.arguments().end(), sqlHasPath);
    }
}

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

/// Keeps count of open parentheses.
class KXPredicateSQLCompiler::Nesting
{
public:
    Nesting(KXPredicateSQLCompiler &compiler, int places) : m_compiler(compiler), m_places(places)
    {
        if ((m_compiler.m_nesting += m_places) > sqlNestingLimit)
            sqlRefuse(u"it is nested too deeply"_s);
    }
    ~Nesting() { m_compiler.m_nesting -= m_places; }

private:
    KXPredicateSQLCompiler &m_compiler;
    const int m_places;
};

/// One side of a comparison: a path of t0's, or values.
struct KXPredicateSQLCompiler::Side
{
    bool isPath = false;
    QStringList keys;
    KXPreparedSide values;
};

KXPredicateSQLCompiler::KXPredicateSQLCompiler(const KXEntityDescription &entity, quint64 store)
    : m_row { "t0.kx_id", "t0", &entity }
    , m_store(store)
    , m_text(m_result.text)
{
    m_text.reserve(512);
}

// Predicates

void KXPredicateSQLCompiler::compile(const KXPredicate &predicate)
{
    const KXPredicate &inner = sqlUnwrapped(predicate);
    switch (inner.type()) {
    case KXPredicateType::True:
        m_text += '1';
        return;
    case KXPredicateType::False:
        m_text += '0';
        return;
    case KXPredicateType::And:
    case KXPredicateType::Or:
        compileParts(inner.subpredicates(), inner.type() == KXPredicateType::And);
        return;
    case KXPredicateType::Not: {
        const KXPredicate &part = sqlUnwrapped(inner.subpredicates().first());
        if (part.type() == KXPredicateType::Not)
            return compile(part.subpredicates().first());
        const Nesting nesting(*this, sqlNestingOfJunction);
        m_text += '(';
        compile(part);
        m_text += ") IS NOT TRUE";
        return;
    }
    case KXPredicateType::Comparison:
        compileComparison(inner);
        return;
    }
}

void KXPredicateSQLCompiler::compileParts(const QList<KXPredicate> &parts, bool isAnd)
{
    QList<KXPredicate> flat;
    sqlFlatten(parts, isAnd ? KXPredicateType::And : KXPredicateType::Or, flat);
    if (!isAnd)
        flat = sqlWithLists(flat);
    join(flat.constData(), flat.size(), isAnd);
}

void KXPredicateSQLCompiler::join(const KXPredicate *parts, qsizetype count, bool isAnd)
{
    if (count == 0) {
        m_text += isAnd ? '1' : '0';
        return;
    }
    if (count == 1)
        return compile(*parts);
    const qsizetype step = count > sqlFlatJunction ? qsizetype(std::ceil(std::sqrt(double(count)))) : 1;
    const Nesting nesting(*this, sqlNestingOfJunction);
    m_text += '(';
    for (qsizetype i = 0; i < count; i += step) {
        if (i > 0)
            m_text += isAnd ? " AND " : " OR ";
        join(parts + i, std::min(step, count - i), isAnd);
    }
    m_text += ')';
}

KXPredicateSQLCompiler::Side KXPredicateSQLCompiler::side(const KXExpression &expression, int folding) const
{
    switch (expression.type()) {
    case KXExpressionType::KeyPath:
        return { true, expression.keys(), {} };
    case KXExpressionType::EvaluatedObject:
        return { true, {}, {} };
    case KXExpressionType::Function:
        if (Side operand = side(expression.operand(), folding); operand.isPath) {
            operand.keys += expression.keys();
            return operand;
        }
        break;
    default:
        if (sqlHasPath(expression))
            sqlRefuse(u"a list holds key paths"_s);
    }
    return { false, {}, KXPredicateEvaluator({}).side(expression, nullptr, folding) };
}

KXPredicateSQLPath KXPredicateSQLCompiler::path(const QStringList &keys)
{
    KXPredicateSQLPath path(keys, *m_row.entity);
    path.collectEntities(m_result.entities);
    return path;
}

void KXPredicateSQLCompiler::compileComparison(const KXPredicate &predicate)
{
    const KXPredicateOperator comparisonOperator = predicate.comparisonOperator();
    const int folding = KXPredicateEvaluator::foldingOptions(comparisonOperator, predicate.options());
    const KXPredicateModifier modifier = predicate.modifier();
    const Side left = side(predicate.leftExpression(), folding);
    Side right = side(predicate.rightExpression(), folding);
    Condition condition { .comparisonOperator = comparisonOperator, .options = predicate.options() };

    if (left.isPath && right.isPath)
        return comparePaths(path(left.keys), modifier, path(right.keys), condition);
    if (right.isPath)
        return compareValuesWithPath(left, modifier, path(right.keys), condition);
    if (!left.isPath) {
        m_text += predicate.evaluateWithObject(nullptr) ? '1' : '0';
        return;
    }
    const KXPredicateSQLPath leftPath = path(left.keys);
    condition.values = std::move(right.values.values);
    condition.isList = right.values.isList;
    if (comparisonOperator == KXPredicateOperator::Contains && modifier == KXPredicateModifier::Direct && leftPath.isToMany()) {
        condition.comparisonOperator = KXPredicateOperator::In; // an equal member
        condition.isList = true;
    }
    apply(leftPath, modifier, std::move(condition));
}

void KXPredicateSQLCompiler::compareValuesWithPath(const Side &left, KXPredicateModifier modifier, const KXPredicateSQLPath &path, Condition condition)
{
    const KXPredicateOperator comparisonOperator = condition.comparisonOperator;
    condition.values = left.values.values;
    condition.isList = left.values.isList;
    if (condition.isList) {
        if (comparisonOperator != KXPredicateOperator::Contains || modifier != KXPredicateModifier::Direct)
            sqlRefuse(u"a list stands on the left side"_s);
        condition.comparisonOperator = KXPredicateOperator::In;
    } else if (comparisonOperator == KXPredicateOperator::In) {
        condition.isList = path.isToMany();
        condition.comparisonOperator = condition.isList ? KXPredicateOperator::In : KXPredicateOperator::Contains;
    } else if (comparisonOperator == KXPredicateOperator::Between && path.isToMany()) {
        sqlRefuse(u"BETWEEN the values of a to-many relationship"_s);
    } else {
        condition.comparisonOperator = sqlMirrored(comparisonOperator);
        condition.reversed = !sqlIsRelation(comparisonOperator);
    }
    apply(path, KXPredicateModifier::Any, std::move(condition));
}

void KXPredicateSQLCompiler::comparePaths(const KXPredicateSQLPath &left, KXPredicateModifier modifier, const KXPredicateSQLPath &right, Condition condition)
{
    const KXPredicateOperator comparisonOperator = condition.comparisonOperator;
    if (right.isToMany()) {
        if (left.isToMany() || comparisonOperator == KXPredicateOperator::Between)
            sqlRefuse(u"the right side reaches through a to-many relationship"_s);
        condition.path = &left;
        condition.isList = comparisonOperator == KXPredicateOperator::In;
        condition.reversed = !condition.isList && !sqlIsRelation(comparisonOperator);
        condition.comparisonOperator = sqlMirrored(comparisonOperator);
        return apply(right, KXPredicateModifier::Any, condition);
    }
    condition.path = &right;
    if (comparisonOperator == KXPredicateOperator::In) { // a part of the other text
        condition.comparisonOperator = KXPredicateOperator::Contains;
        condition.reversed = true;
    } else if (comparisonOperator == KXPredicateOperator::Contains && modifier == KXPredicateModifier::Direct && left.isToMany()) {
        condition.comparisonOperator = KXPredicateOperator::In;
        condition.isList = true;
    }
    apply(left, modifier, condition);
}

// Paths

void KXPredicateSQLCompiler::apply(const KXPredicateSQLPath &path, KXPredicateModifier modifier, Condition condition)
{
    if (modifier != KXPredicateModifier::All || !path.isToMany())
        return applyToSome(path, 0, m_row, condition);
    // All match when there is none that does not.
    const Nesting nesting(*this, sqlNestingOfJunction);
    condition.inverted = true;
    m_text += '(';
    applyToSome(path, 0, m_row, condition);
    m_text += ") IS NOT TRUE";
}

bool KXPredicateSQLCompiler::fitsAbsent(const Condition &condition)
{
    bool fits = false;
    if (condition.comparisonOperator == KXPredicateOperator::Equal || condition.comparisonOperator == KXPredicateOperator::NotEqual) {
        fits = std::any_of(condition.values.begin(), condition.values.end(), [&condition](const KXPredicateValue &value) {
            return value.isNull() == (condition.comparisonOperator == KXPredicateOperator::Equal);
        });
    }
    return fits != condition.inverted;
}

/// Whether some of the values that the path reaches from the row, from its step `from` on, meets the condition.
void KXPredicateSQLCompiler::applyToSome(const KXPredicateSQLPath &path, qsizetype from, const KXPredicateSQLRow &row, const Condition &condition)
{
    using Step = KXPredicateSQLStep;
    const qsizetype toMany = path.toMany(from);
    if (toMany < path.size())
        return applyToMembers(path, from, toMany, row, condition);

    const Step::Kind kind = from < path.size() ? path[from].kind : Step::Absent;
    const bool goesOn = kind == Step::ToOne && from + 1 < path.size() && path[from + 1].kind != Step::Count;
    if (!condition.path && kind != Step::Absent && kind != Step::Count && row.alias.isEmpty()) {
        const Nesting nesting(*this, sqlNestingOfQuery);
        const QByteArray alias = newAlias();
        const QByteArray key = alias + ".kx_id";
        m_text += row.key + " IN (SELECT " + key + " FROM " + row.entity->table() + ' ' + alias + " WHERE ";
        applyToSome(path, from, { key, alias, row.entity }, condition);
        m_text += ')';
    } else if (!condition.path && goesOn) {
        const KXPredicateSQLRow next { row.alias + '.' + path[from].property->column(), {}, path[from].property->destinationEntity() };
        if (!fitsAbsent(condition))
            return applyToSome(path, from + 1, next, condition);
        // A missing object must be let through as well: leave out those that are there and do not fit.
        const Nesting nesting(*this, sqlNestingOfJunction);
        Condition opposite = condition;
        opposite.inverted = !condition.inverted;
        m_text += '(';
        applyToSome(path, from + 1, next, opposite);
        m_text += ") IS NOT TRUE";
    } else {
        const bool isColumn = !row.alias.isEmpty() && kind == Step::Attribute;
        applyToValue(operandOf(path, path.scalar(row, from, path.size(), m_aliases), isColumn), condition);
    }
}

void KXPredicateSQLCompiler::applyToMembers(const KXPredicateSQLPath &path, qsizetype from, qsizetype toMany, const KXPredicateSQLRow &row, const Condition &condition)
{
    const Nesting nesting(*this, sqlNestingOfQuery);
    const KXPropertyDescription &relationship = *path[toMany].property;
    const bool joined = !relationship.joinTable().isEmpty();
    const KXEntityDescription *destination = relationship.destinationEntity();

    const QByteArray key = path.scalar(row, from, toMany, m_aliases);
    // A missing object before the relationship is one absent value.
    const bool absentCounts = from < toMany && (condition.path || fitsAbsent(condition));
    if (absentCounts) {
        m_text += '(' + key + " IS NULL";
        if (condition.path) {
            m_text += " AND ";
            applyToValue({ "NULL", path.kind(), path.destination() }, condition);
        }
        m_text += " OR ";
    }

    const QByteArray alias = newAlias();
    const QByteArray source = alias + '.' + (joined ? relationship.joinSource() : relationship.inverse()->column());
    const KXPredicateSQLRow member { alias + '.' + (joined ? relationship.joinTarget() : QByteArray("kx_id")), joined ? QByteArray() : alias, destination };
    const QByteArray table = (joined ? relationship.joinTable() : destination->table()) + ' ' + alias;
    if (condition.path)
        m_text += "EXISTS (SELECT 1 FROM " + table + " WHERE " + source + '=' + key + " AND ";
    else
        m_text += key + " IN (SELECT " + source + " FROM " + table + " WHERE ";
    applyToSome(path, toMany + 1, member, condition);
    m_text += ')';
    if (absentCounts)
        m_text += ')';
}

KXPredicateSQLCompiler::Operand KXPredicateSQLCompiler::operandOf(const KXPredicateSQLPath &path, const QByteArray &text, bool isColumn) const
{
    return { text, path.kind(), path.kind() == KXPredicateValue::Object ? path.destination() : nullptr, isColumn };
}

// Values

void KXPredicateSQLCompiler::applyToValue(const Operand &operand, const Condition &condition)
{
    if (condition.inverted) {
        Condition straight = condition;
        straight.inverted = false;
        m_text += '(';
        applyToValue(operand, straight);
        m_text += ") IS NOT TRUE";
    } else if (condition.path) {
        applyOperand(operand, condition, operandOf(*condition.path, condition.path->scalar(m_row, 0, condition.path->size(), m_aliases), false));
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
        return isOneOf(operand, condition, std::any_of(values.begin(), values.end(), [](const auto &value) { return value.isNull(); }));
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
    m_text += values.size() == 1 ? "" : "(0";
    for (const KXPredicateValue &value : values) {
        if (values.size() != 1)
            m_text += " OR ";
        if (condition.comparisonOperator == KXPredicateOperator::In) {
            Condition part = condition;
            part.reversed = true;
            textRelation(operand, KXPredicateOperator::Contains, value, part);
        } else if (sqlIsRelation(condition.comparisonOperator)) {
            relation(operand, condition.comparisonOperator, value, condition);
        } else {
            textRelation(operand, condition.comparisonOperator, value, condition);
        }
    }
    m_text += values.size() == 1 ? "" : ")";
}

void KXPredicateSQLCompiler::relation(const Operand &operand, KXPredicateOperator comparisonOperator, const KXPredicateValue &value, const Condition &condition)
{
    const bool isEquality = comparisonOperator == KXPredicateOperator::Equal || comparisonOperator == KXPredicateOperator::NotEqual;
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

std::optional<KXSQLValue> KXPredicateSQLCompiler::storageForm(const Operand &operand, const KXPredicateValue &value,
    KXPredicateOperator &comparisonOperator, bool &always) const
{
    using Value = KXPredicateValue;
    const bool isLess = comparisonOperator <= KXPredicateOperator::LessThanOrEqual;
    const bool isOrder = comparisonOperator <= KXPredicateOperator::GreaterThanOrEqual;
    if (operand.kind == Value::Other)
        sqlRefuse(u"a value of any kind is compared"_s);

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
            return value.kind() == Value::Decimal ? value.decimal() : isReal ? KXDecimal::fromDouble(value.real()) : KXDecimal::fromInteger(value.integer());
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
        // Integers that no double is may not be turned into one, as an index would.
        if (value.kind() == Value::Integer && std::abs(double(value.integer())) < 0x1p53)
            return sqlInteger(value.integer());
        const double nearest = decimal().toDouble();
        const Value nearestValue { QVariant(nearest) };
        const std::partial_ordering order = Value::compare(nearestValue, value);
        return order == 0 ? sqlReal(nearest) : between(sqlReal(nearest), order < 0);
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
        if (!isOrder && value.objectKey().key && value.objectKey().store == m_store && value.objectKey().layout == operand.entity->layoutSerial())
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

void KXPredicateSQLCompiler::textRelation(const Operand &operand, KXPredicateOperator comparisonOperator, const KXPredicateValue &value, const Condition &condition)
{
    if (operand.kind == KXPredicateValue::Other)
        sqlRefuse(u"a value of any kind is compared"_s);
    if (operand.kind != KXPredicateValue::Text || value.kind() != KXPredicateValue::Text) {
        m_text += '0';
        return;
    }
    QString text = value.text();
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
        sqlRefuse(u"a value of any kind is compared"_s);

    if (!isMember && !sqlIsRelation(comparisonOperator)) {
        const bool isText = operand.kind == Value::Text && other.kind == Value::Text;
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

    const auto isNumber = [](const Operand &side) { return side.kind >= Value::Integer && side.kind <= Value::Decimal; };
    const bool areNumbers = isNumber(operand) && isNumber(other);
    const bool isEquality = comparisonOperator == KXPredicateOperator::Equal || comparisonOperator == KXPredicateOperator::NotEqual;
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
        const bool asDecimal = side.kind != Value::Decimal && (operand.kind == Value::Decimal || other.kind == Value::Decimal);
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
        sqlRefuse(u"it holds too many values"_s);
    m_result.values.push_back(value);
    m_text += '?';
}

KXPredicateSQL KXPredicateSQL::compile(const KXPredicate &predicate, const KXEntityDescription &entity, quint64 store)
{
    try {
        KXPredicateSQLCompiler compiler(entity, store);
        compiler.compile(predicate);
        return compiler.take();
    } catch (const KXPredicateSQLRefusal &refusal) {
        KXPredicateSQL result;
        result.status = refusal.status;
        result.reason = refusal.reason;
        return result;
    }
}

KXPredicateSQL KXPredicateSQL::compileOrder(const QList<KXSortDescriptor> &descriptors, const KXEntityDescription &entity)
{
    KXPredicateSQL result;
    const KXPredicateSQLRow row { "t0.kx_id", "t0", &entity };
    int aliases = 0;
    try {
        for (const KXSortDescriptor &descriptor : descriptors) {
            const KXPredicateSQLPath path(descriptor.key.split(u'.'), entity);
            if (path.isToMany() || path.kind() == KXPredicateValue::Other)
                sqlRefuse(u"sorting needs one value of a known kind"_s);
            path.collectEntities(result.entities);
            result.text += path.scalar(row, 0, path.size(), aliases);
            if (path.kind() == KXPredicateValue::Decimal)
                result.text += " COLLATE KX_DECIMAL";
            result.text += descriptor.ascending ? ", " : " DESC, ";
        }
        result.text += row.key;
    } catch (const KXPredicateSQLRefusal &refusal) {
        result.status = refusal.status;
        result.reason = refusal.reason;
    }
    return result;
}
