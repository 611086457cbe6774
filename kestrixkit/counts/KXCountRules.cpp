// How a predicate becomes slots and conditions of columns.

#include <kestrixkit/counts/KXCountTable_p.h>

#include <algorithm>

#include <kestrixkit/entity/KXModelPath.h>
#include <kestrixkit/foundation/KXLog.h>
#include <kestrixkit/foundation/KXStringWithFormat.h>
#include <kestrixkit/predicate/KXPredicateCheck_p.h>

using namespace Qt::StringLiterals;

/// One rule being compiled.
class KXCountTable::RuleCompiler
{
public:
    explicit RuleCompiler(KXCountTable &table)
        : m_table(table)
    {
    }

    /// A part of the rule: a set of conditions that must all hold, or parts joined.
    struct Part
    {
        KXCountNode::Kind kind = KXCountNode::Slot; ///< with Slot: the conditions
        std::map<int, KXCountCondition> conditions; ///< by column; none: always holds
        std::vector<Part> parts;
    };
    /// Throws the reason, a QString, for what columns cannot hold.
    Part compile(const KXPredicate &predicate);
    KXCountNode place(const Part &part, int rule, std::vector<int> &slots);

private:
    Part compare(const KXPredicate &predicate);
    static Part negate(Part part);
    static Part join(std::vector<Part> parts, bool isAnd);
    static KXCountCondition joined(KXCountCondition a, KXCountCondition b, KXCountCondition::Kind kind);

    KXCountTable &m_table;
};

KXCountCondition KXCountTable::RuleCompiler::joined(KXCountCondition a, KXCountCondition b, KXCountCondition::Kind kind)
{
    if (a.kind == kind) {
        a.parts.push_back(std::move(b));
        return a;
    }
    return { kind, 0, { std::move(a), std::move(b) } };
}

KXCountTable::RuleCompiler::Part KXCountTable::RuleCompiler::negate(Part part)
{
    if (part.kind == KXCountNode::Slot && part.conditions.empty())
        return { KXCountNode::False, {}, {} };
    if (part.kind == KXCountNode::False)
        return {};
    if (part.kind == KXCountNode::Slot && part.conditions.size() == 1) {
        KXCountCondition &condition = part.conditions.begin()->second;
        condition = { KXCountCondition::Not, 0, { std::move(condition) } };
        return part;
    }
    return { KXCountNode::Not, {}, { std::move(part) } };
}

KXCountTable::RuleCompiler::Part KXCountTable::RuleCompiler::join(std::vector<Part> parts, bool isAnd)
{
    // An AND of conditions is one set of conditions; so is an OR of single conditions of one column.
    Part together;
    std::vector<Part> others;
    for (Part &part : parts) {
        const bool isAlways = part.kind == KXCountNode::Slot && part.conditions.empty();
        const bool isNever = part.kind == KXCountNode::False;
        if (isAnd ? isNever : isAlways)
            return part;
        if (isAnd ? isAlways : isNever)
            continue;
        if (part.kind != KXCountNode::Slot || (!isAnd && part.conditions.size() != 1)) {
            others.push_back(std::move(part));
            continue;
        }
        for (auto &[column, condition] : part.conditions) {
            const auto kind = isAnd ? KXCountCondition::And : KXCountCondition::Or;
            if (const auto found = together.conditions.find(column); found != together.conditions.end())
                found->second = joined(std::move(found->second), std::move(condition), kind);
            else
                together.conditions.emplace(column, std::move(condition));
        }
    }
    if (isAnd) {
        if (!together.conditions.empty() || others.empty())
            others.insert(others.begin(), std::move(together));
    } else {
        for (auto &[column, condition] : together.conditions)
            others.push_back({ KXCountNode::Slot, { { column, std::move(condition) } }, {} });
        if (others.empty())
            return { KXCountNode::False, {}, {} };
    }
    if (others.size() == 1)
        return std::move(others.front());
    return { isAnd ? KXCountNode::And : KXCountNode::Or, {}, std::move(others) };
}

KXCountTable::RuleCompiler::Part KXCountTable::RuleCompiler::compare(const KXPredicate &predicate)
{
    const KXExpression &left = predicate.leftExpression();
    const KXExpression &right = predicate.rightExpression();
    if (left.isConstant() && right.isConstant())
        return predicate.evaluateWithObject(nullptr) ? Part() : Part { KXCountNode::False, {}, {} };
    const bool isLeft = left.type() == KXExpressionType::KeyPath;
    const KXExpression &path = isLeft ? left : right;
    if (path.type() != KXExpressionType::KeyPath || !(isLeft ? right : left).isConstant())
        throw KXStringWithFormat("\"%@\" compares more than one key path with a constant", predicate.predicateFormat());

    const KXCountTable::Place place = m_table.findPlace(path);
    if (place.isList && !isLeft)
        throw KXStringWithFormat("\"%@\" has many values on the right side of a comparison", path.keyPath());
    const KXExpression v = KXExpression::expressionForKeyPath(u"v"_s);
    const KXPredicate test = KXPredicate::comparison(isLeft ? v : left, predicate.comparisonOperator(),
        isLeft ? right : v, predicate.modifier(), predicate.options());
    const int column = m_table.columnFor(place.column->property());
    return { KXCountNode::Slot,
        { { column, { KXCountCondition::Comparison, place.column->comparison(test, place.path), {} } } }, {} };
}

KXCountTable::RuleCompiler::Part KXCountTable::RuleCompiler::compile(const KXPredicate &predicate)
{
    switch (predicate.type()) {
    case KXPredicateType::True:
        return {};
    case KXPredicateType::False:
        return { KXCountNode::False, {}, {} };
    case KXPredicateType::Not:
        return negate(compile(predicate.subpredicates().first()));
    case KXPredicateType::Comparison:
        return compare(predicate);
    default:
        break;
    }
    std::vector<Part> parts;
    for (const KXPredicate &part : predicate.subpredicates())
        parts.push_back(compile(part));
    return join(std::move(parts), predicate.type() == KXPredicateType::And);
}

KXCountNode KXCountTable::RuleCompiler::place(const Part &part, int rule, std::vector<int> &slots)
{
    if (part.kind != KXCountNode::Slot || part.conditions.empty()) {
        KXCountNode node { part.kind == KXCountNode::Slot ? KXCountNode::True : part.kind, 0, {} };
        for (const Part &each : part.parts)
            node.parts.push_back(place(each, rule, slots));
        return node;
    }
    const auto free = std::find(m_table.m_owners.begin(), m_table.m_owners.end(), -1);
    const auto slot = int(free - m_table.m_owners.begin());
    if (free == m_table.m_owners.end())
        m_table.m_owners.push_back(rule);
    else
        *free = rule;
    slots.push_back(slot);
    for (const auto &[column, condition] : part.conditions) {
        m_table.m_columns[size_t(column)]->setCondition(slot, condition);
        m_table.m_isDirty[size_t(column)] = true;
    }
    return { KXCountNode::Slot, slot, {} };
}

void KXCountTable::compile(Rule &rule, int number)
{
    m_isSettled = rule.isCounted = false;
    rule.revision = ++m_revision;
    rule.reason.clear();
    rule.allKeys.clear();
    rule.tree = {};
    rule.isRefused = false;
    try {
        if (const QString misfit = KXPredicateCheck::misfit(rule.predicate, m_entity); !misfit.isEmpty()) {
            rule.isRefused = true;
            if (std::exchange(rule.count, -1) != -1)
                noteChange(number);
            KXLogError(filters, "Cannot count \"%@\": %@", m_entity.name(), misfit);
            throw misfit;
        }
        RuleCompiler compiler(*this);
        rule.tree = compiler.place(compiler.compile(rule.predicate), number, rule.slots);
    } catch (const QString &reason) {
        rule.reason = reason;
        for (const QString &path : rule.predicate.keyPaths()) {
            for (const QString &key : path.split(u'.'))
                rule.allKeys.insert(key);
        }
    }
}

void KXCountTable::releaseSlots(Rule &rule)
{
    for (const int slot : rule.slots) {
        m_owners[size_t(slot)] = -1;
        for (size_t i = 0; i < m_columns.size(); ++i) {
            if (m_columns[i]->conditions().contains(slot)) {
                m_columns[i]->removeCondition(slot);
                m_isDirty[i] = true;
            }
        }
    }
    rule.slots.clear();
    m_isSettled = false;
}

KXCountTable::Place KXCountTable::findPlace(const KXExpression &path)
{
    const KXModelPath model(m_entity, path.keys());
    const bool canHold = std::all_of(model.steps().begin(), model.steps().end(),
        [](const KXModelPath::Step &step) { return !step.isAmbiguous && KXCountColumn::canHold(*step.property); });
    if (!model.isKnown() || !canHold)
        throw KXStringWithFormat(
            "\"%@\" of \"%@\" is nothing that is counted in memory", path.keyPath(), m_entity.name());
    const bool isList = model.isToMany();
    const KXPropertyDescription *const last = model.isCount() ? nullptr : model.steps().back().property;
    KXCountColumn &column = *m_columns[size_t(columnFor(*model.steps().front().property))];
    const int number = column.kind() == KXCountColumn::Kind::Relation ? column.path(path.keys().mid(1), isList) : 0;
    return { &column, number, isList, last };
}

std::optional<KXCountTable::Place> KXCountTable::place(const QString &keyPath, QString *reason)
{
    if (keyPath.isEmpty())
        return std::nullopt;
    try {
        return findPlace(KXExpression::expressionForKeyPath(keyPath));
    } catch (const QString &why) {
        if (reason)
            *reason = why;
        return std::nullopt;
    }
}

int KXCountTable::columnFor(const KXPropertyDescription &property)
{
    if (const auto known = m_columnsByName.find(property.name()); known != m_columnsByName.end())
        return int(known->second);
    auto column = std::make_unique<KXCountColumn>(property);
    column->resize(m_room);
    column->setResolver([this, &property](const std::vector<qint64> &keys) { return objects(property, keys); });
    m_columnsByName.emplace(property.name(), m_columns.size());
    m_columns.push_back(std::move(column));
    m_isRead.push_back(false);
    m_isSettled = false;
    m_isDirty.push_back(true);
    return int(m_columns.size()) - 1;
}

int KXCountTable::addRule(const KXPredicate &predicate) { return addRule(predicate, false); }
int KXCountTable::addCondition(const KXPredicate &predicate) { return addRule(predicate, true); }

int KXCountTable::addRule(const KXPredicate &predicate, bool isCondition)
{
    const auto free = std::find_if(m_rules.begin(), m_rules.end(), [](const Rule &rule) { return !rule.isUsed; });
    const auto number = int(free - m_rules.begin());
    if (free == m_rules.end())
        m_rules.emplace_back();
    Rule &rule = m_rules[size_t(number)];
    rule = {};
    rule.isUsed = true;
    rule.isCondition = isCondition;
    rule.predicate = predicate;
    compile(rule, number);
    return number;
}

void KXCountTable::removeRule(int number)
{
    Rule &rule = m_rules[size_t(number)];
    releaseSlots(rule);
    rule.isUsed = false;
}

void KXCountTable::replaceRule(int number, const KXPredicate &predicate)
{
    Rule &rule = m_rules[size_t(number)];
    if (rule.predicate == predicate || moveBounds(number, predicate))
        return;
    releaseSlots(rule);
    rule.predicate = predicate;
    compile(rule, number);
}

/// A rule that differs from what it was only in bounds of numbers: the rows between the old and the new bounds are
/// counted anew, no others. False where that is not so.
bool KXCountTable::moveBounds(int number, const KXPredicate &predicate)
{
    Rule &rule = m_rules[size_t(number)];
    const bool isSettled = std::none_of(m_isDirty.begin(), m_isDirty.end(), [](bool dirty) { return dirty; });
    if (!isSettled || !rule.isCounted || !rule.reason.isEmpty() || rule.tree.kind != KXCountNode::Slot)
        return false;
    const int slot = rule.tree.slot;
    RuleCompiler::Part part;
    if (!KXPredicateCheck::misfit(predicate, m_entity).isEmpty())
        return false;
    try {
        part = RuleCompiler(*this).compile(predicate);
    } catch (const QString &) {
        return false;
    }
    if (part.kind != KXCountNode::Slot || part.conditions.empty())
        return false;
    std::vector<size_t> moved;
    for (size_t i = 0; i < m_columns.size(); ++i) {
        const auto before = m_columns[i]->conditions().find(slot);
        const auto after = part.conditions.find(int(i));
        const bool had = before != m_columns[i]->conditions().end(), has = after != part.conditions.end();
        if (had != has || !m_isRead[i])
            return false;
        if (!had || before->second == after->second)
            continue;
        if (m_columns[i]->kind() != KXCountColumn::Kind::Number)
            return false;
        moved.push_back(i);
    }
    std::vector<quint32> rows;
    for (const size_t i : moved) {
        const KXCountColumn &column = *m_columns[i];
        const KXCountCondition &before = column.conditions().at(slot), &after = part.conditions.at(int(i));
        if (column.holdsForNumber(before, KXCountColumn::absent) != column.holdsForNumber(after, KXCountColumn::absent))
            return false;
        std::vector<qint64> cuts = column.cutsOf(before);
        for (const qint64 cut : column.cutsOf(after))
            cuts.push_back(cut);
        cuts.push_back(KXCountColumn::absent + 1);
        cuts.push_back(std::numeric_limits<qint64>::max());
        std::sort(cuts.begin(), cuts.end());
        for (size_t cut = 0; cut + 1 < cuts.size(); ++cut) {
            if (column.holdsForNumber(before, cuts[cut]) == column.holdsForNumber(after, cuts[cut]))
                continue;
            const std::vector<quint32> between = rowsBetween(i, cuts[cut], cuts[cut + 1]);
            rows.insert(rows.end(), between.begin(), between.end());
            if (rows.size() > m_keys.size() / 4)
                return false; // counting all is no more work
        }
    }
    std::sort(rows.begin(), rows.end());
    rows.erase(std::unique(rows.begin(), rows.end()), rows.end());

    const auto fitting = [&] {
        qint64 count = 0;
        for (const quint32 row : rows) {
            const auto fits = [&](const auto &column) { return column->bitsAt(row)[slot >> 6] >> (slot & 63) & 1; };
            count += std::all_of(m_columns.begin(), m_columns.end(), fits);
        }
        return count;
    };
    const qint64 before = fitting();
    for (const size_t i : moved) {
        m_columns[i]->setCondition(slot, part.conditions.at(int(i)));
        m_columns[i]->rebuild(m_words);
    }
    m_evaluations += rows.size();
    rule.predicate = predicate;
    if (const qint64 difference = fitting() - before; difference != 0) {
        rule.count += difference;
        noteChange(number);
    }
    return true;
}
