#include <kestrixkit/store/KXPredicateSQLCompiler_p.h>

#include <algorithm>

#include <kestrixkit/predicate/KXPredicateEvaluator_p.h>
#include <kestrixkit/predicate/KXPredicateLists_p.h>

using namespace Qt::StringLiterals;

namespace {

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
    while ((inner->type() == KXPredicateType::And || inner->type() == KXPredicateType::Or)
        && inner->subpredicates().size() == 1)
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

}

KXPredicateSQLCompiler::Nesting::Nesting(KXPredicateSQLCompiler &compiler, int places)
    : m_compiler(compiler)
    , m_places(places)
{
    if ((m_compiler.m_nesting += m_places) > Limit)
        KXPredicateSQLRefusal::refuse(u"it is nested too deeply"_s);
}

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
        const Nesting nesting(*this, Nesting::OfParenthesis);
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
        flat = KXPredicateJoinEqualities(flat);
    join(0, flat.size(), isAnd, [this, &flat](qsizetype i) { compile(flat[i]); });
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
            KXPredicateSQLRefusal::refuse(u"a list holds key paths"_s);
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
    if (comparisonOperator == KXPredicateOperator::Contains && modifier == KXPredicateModifier::Direct
        && leftPath.isToMany()) {
        condition.comparisonOperator = KXPredicateOperator::In; // an equal member
        condition.isList = true;
    }
    apply(leftPath, modifier, std::move(condition));
}

void KXPredicateSQLCompiler::compareValuesWithPath(
    const Side &left, KXPredicateModifier modifier, const KXPredicateSQLPath &path, Condition condition)
{
    const KXPredicateOperator comparisonOperator = condition.comparisonOperator;
    condition.values = left.values.values;
    condition.isList = left.values.isList;
    if (condition.isList) {
        if (comparisonOperator != KXPredicateOperator::Contains || modifier != KXPredicateModifier::Direct)
            KXPredicateSQLRefusal::refuse(u"a list stands on the left side"_s);
        condition.comparisonOperator = KXPredicateOperator::In;
    } else if (comparisonOperator == KXPredicateOperator::In) {
        condition.isList = path.isToMany();
        condition.comparisonOperator = condition.isList ? KXPredicateOperator::In : KXPredicateOperator::Contains;
    } else if (comparisonOperator == KXPredicateOperator::Between && path.isToMany()) {
        KXPredicateSQLRefusal::refuse(u"BETWEEN the values of a to-many relationship"_s);
    } else {
        condition.comparisonOperator = sqlMirrored(comparisonOperator);
        condition.reversed = !isRelation(comparisonOperator);
    }
    apply(path, KXPredicateModifier::Any, std::move(condition));
}

void KXPredicateSQLCompiler::comparePaths(
    const KXPredicateSQLPath &left, KXPredicateModifier modifier, const KXPredicateSQLPath &right, Condition condition)
{
    const KXPredicateOperator comparisonOperator = condition.comparisonOperator;
    if (right.isToMany()) {
        if (left.isToMany() || comparisonOperator == KXPredicateOperator::Between)
            KXPredicateSQLRefusal::refuse(u"the right side reaches through a to-many relationship"_s);
        condition.path = &left;
        condition.isList = comparisonOperator == KXPredicateOperator::In;
        condition.reversed = !condition.isList && !isRelation(comparisonOperator);
        condition.comparisonOperator = sqlMirrored(comparisonOperator);
        return apply(right, KXPredicateModifier::Any, condition);
    }
    condition.path = &right;
    if (comparisonOperator == KXPredicateOperator::In) { // a part of the other text
        condition.comparisonOperator = KXPredicateOperator::Contains;
        condition.reversed = true;
    } else if (comparisonOperator == KXPredicateOperator::Contains && modifier == KXPredicateModifier::Direct
        && left.isToMany()) {
        condition.comparisonOperator = KXPredicateOperator::In;
        condition.isList = true;
    }
    apply(left, modifier, condition);
}

// Paths

void KXPredicateSQLCompiler::apply(const KXPredicateSQLPath &path, KXPredicateModifier modifier, Condition condition)
{
    // What is compared with a value of the row's own is looked for anew from each member, along all ways that lead to
    // it. In memory each object is gone to once.
    constexpr int mostMembers = 3;
    int members = 0;
    for (qsizetype step = path.toMany(0); step < path.size(); step = path.toMany(step + 1))
        ++members;
    if (condition.path && members > mostMembers)
        KXPredicateSQLRefusal::refuse(u"a value is looked for through too many to-many relationships"_s);
    if (modifier != KXPredicateModifier::All || !path.isToMany())
        return applyToSome(path, 0, m_row, condition);
    // All match when there is none that does not.
    const Nesting nesting(*this, Nesting::OfParenthesis);
    condition.inverted = true;
    m_text += '(';
    applyToSome(path, 0, m_row, condition);
    m_text += ") IS NOT TRUE";
}

bool KXPredicateSQLCompiler::fitsAbsent(const Condition &condition)
{
    bool fits = false;
    if (condition.comparisonOperator == KXPredicateOperator::Equal
        || condition.comparisonOperator == KXPredicateOperator::NotEqual) {
        fits = std::any_of(
            condition.values.begin(), condition.values.end(), [&condition](const KXPredicateValue &value) {
                return value.isNull() == (condition.comparisonOperator == KXPredicateOperator::Equal);
            });
    }
    return fits != condition.inverted;
}

/// Whether some of the values that the path reaches from the row, from its step `from` on, meets the condition.
void KXPredicateSQLCompiler::applyToSome(
    const KXPredicateSQLPath &path, qsizetype from, const KXPredicateSQLRow &row, const Condition &condition)
{
    using Step = KXPredicateSQLStep;
    const qsizetype toMany = path.toMany(from);
    if (toMany < path.size())
        return applyToMembers(path, from, toMany, row, condition);

    const Step::Kind kind = from < path.size() ? path[from].kind : Step::Absent;
    const bool goesOn = kind == Step::ToOne && from + 1 < path.size() && path[from + 1].kind != Step::Count;
    if (!condition.path && kind != Step::Absent && kind != Step::Count && row.alias.isEmpty()) {
        const Nesting nesting(*this, Nesting::OfQuery);
        const QByteArray alias = newAlias();
        const QByteArray key = alias + ".kx_id";
        m_text += row.key + " IN (SELECT " + key + " FROM " + row.entity->table() + ' ' + alias + " WHERE ";
        applyToSome(path, from, { key, alias, row.entity }, condition);
        m_text += ')';
    } else if (!condition.path && goesOn) {
        const KXPredicateSQLRow next { row.alias + '.' + path[from].property->column(), {},
            path[from].property->destinationEntity() };
        if (!fitsAbsent(condition))
            return applyToSome(path, from + 1, next, condition);
        // A missing object must be let through as well: leave out those that are there and do not fit.
        const Nesting nesting(*this, Nesting::OfParenthesis);
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

void KXPredicateSQLCompiler::applyToMembers(const KXPredicateSQLPath &path, qsizetype from, qsizetype toMany,
    const KXPredicateSQLRow &row, const Condition &condition)
{
    const Nesting nesting(*this, Nesting::OfQuery + Nesting::OfJunction);
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
    const KXPredicateSQLRow member { alias + '.' + (joined ? relationship.joinTarget() : QByteArray("kx_id")),
        joined ? QByteArray() : alias, destination };
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

KXPredicateSQLCompiler::Operand KXPredicateSQLCompiler::operandOf(
    const KXPredicateSQLPath &path, const QByteArray &text, bool isColumn) const
{
    return { text, path.kind(), path.kind() == KXPredicateValue::Object ? path.destination() : nullptr, isColumn };
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

namespace {

/// The lowest of the values that members have which lead to one object. It is found by way of the row, whose members
/// are few, and not by way of that object, which may have many: the plus keeps the latter's index out of it.
QByteArray sqlValueOfMember(
    const KXSortDescriptor &descriptor, const KXPredicateSQLPath &path, const KXPredicateSQLRow &row, int &aliases)
{
    using Step = KXPredicateSQLStep;
    const KXPropertyDescription *const members = path.size() == 2 ? path[0].property : nullptr;
    const KXPropertyDescription *const to = members && path[0].kind == Step::ToMany
        ? members->destinationEntity()->property(descriptor.memberKey)
        : nullptr;
    if (!to || !to->isToOne() || !members->joinTable().isEmpty() || path[1].kind != Step::Attribute)
        KXPredicateSQLRefusal::refuse(u"sorting by a member needs an attribute of it, and where it leads"_s);
    const QByteArray alias = 't' + QByteArray::number(++aliases);
    return "(SELECT min(" + alias + '.' + path[1].property->column() + ") FROM " + members->destinationEntity()->table()
        + ' ' + alias + " WHERE " + alias + '.' + members->inverse()->column() + '=' + row.key + " AND +" + alias + '.'
        + to->column() + "=?)";
}

}

KXPredicateSQL KXPredicateSQL::compileOrder(
    const QList<KXSortDescriptor> &descriptors, const KXEntityDescription &entity)
{
    KXPredicateSQL result;
    const KXPredicateSQLRow row { "t0.kx_id", "t0", &entity };
    int aliases = 0;
    try {
        for (const KXSortDescriptor &descriptor : descriptors) {
            const KXPredicateSQLPath path(descriptor.key.split(u'.'), entity);
            const bool isOfMember = !descriptor.memberKey.isEmpty();
            if (path.isToMany() != isOfMember || path.kind() == KXPredicateValue::Other)
                KXPredicateSQLRefusal::refuse(u"sorting needs one value of a known kind"_s);
            path.collectEntities(result.entities);
            const QByteArray value = isOfMember ? sqlValueOfMember(descriptor, path, row, aliases)
                                                : path.scalar(row, 0, path.size(), aliases);
            if (isOfMember)
                result.values.push_back({ .type = KXSQLValue::Integer, .integer = descriptor.member.key() });
            const bool folds = descriptor.options != 0 && path.kind() == KXPredicateValue::Text;
            result.text += folds ? "kx_fold(" + value + ", " + QByteArray::number(descriptor.options) + ')' : value;
            if (path.kind() == KXPredicateValue::Decimal)
                result.text += " COLLATE KX_DECIMAL";
            // Absent values are the lowest: falling orders have them last by themselves.
            result.text += !descriptor.ascending ? " DESC, " : descriptor.absentLast ? " NULLS LAST, " : ", ";
        }
        result.text += row.key;
    } catch (const KXPredicateSQLRefusal &refusal) {
        result.status = refusal.status;
        result.reason = refusal.reason;
    }
    return result;
}
