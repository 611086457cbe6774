#include <kestrixkit/predicate/KXPredicateEvaluator_p.h>

#include <algorithm>

#include <QHash>

#include <kestrixkit/entity/KXStoreErrorCode.h>
#include <kestrixkit/foundation/KXAbstractOperation.h>
#include <kestrixkit/foundation/KXError.h>
#include <kestrixkit/foundation/KXException.h>
#include <kestrixkit/foundation/KXObservable.h>
#include <kestrixkit/foundation/KXStringWithFormat.h>
#include <kestrixkit/predicate/KXPredicate_p.h>
#include <kestrixkit/predicate/KXTextFolding_p.h>
#include <kestrixkit/predicate/KXTextWords_p.h>

using namespace Qt::StringLiterals;

namespace {

constexpr size_t longListSize = 16; // from here on a table beats comparing one by one

/// Follows keys from a value or an object, and shows a visitor each value at their end and whether it came from a list.
/// The visitor answers false to end the walk, which then answers false too.
template <typename Visitor, typename Step> class EvaluatorWalk
{
public:
    /// `step` is called for each object on the way. `eachOnce` visits an object that several others lead to only once:
    /// through to-many relationships that lead back and forth there are more ways than anybody could go.
    EvaluatorWalk(const QStringList &keys, Visitor &visitor, const Step &step, bool eachOnce)
        : m_keys(keys)
        , m_visitor(visitor)
        , m_step(step)
        , m_eachOnce(eachOnce)
    {
    }

    bool visitObject(const KXObservable *object, qsizetype at, bool fromList)
    {
        m_step();
        if (!object || m_keys[at].isEmpty() || m_keys[at].startsWith(u'@'))
            return m_visitor(QVariant(), fromList);
        return visitValue(object->valueForKey(m_keys[at]), at + 1, fromList);
    }

    /// Visits what the keys from `at` on reach from a value.
    bool visitValue(const QVariant &value, qsizetype at, bool fromList)
    {
        if (value.typeId() == QMetaType::QVariantList || value.typeId() == QMetaType::QStringList) {
            const QVariantList list = value.toList();
            if (at < m_keys.size() && m_keys[at] == "@count"_L1)
                return visitValue(qint64(list.size()), at + 1, fromList);
            return std::all_of(list.begin(), list.end(), [&](const QVariant &element) {
                return (m_eachOnce && fromList && wasVisited(element, at)) || visitValue(element, at, true);
            });
        }
        if (at == m_keys.size())
            return m_visitor(value, fromList);
        if (value.typeId() == QMetaType::QVariantMap) {
            // A key may hold dots of its own.
            const QVariantMap map = value.toMap();
            const auto whole = map.constFind(m_keys.mid(at).join(u'.'));
            return whole != map.constEnd() ? visitValue(*whole, m_keys.size(), fromList)
                                           : visitValue(map.value(m_keys[at]), at + 1, fromList);
        }
        return visitObject(KXObservableFromVariant(value), at, fromList);
    }

private:
    bool wasVisited(const QVariant &element, qsizetype at)
    {
        const KXObservable *object = KXObservableFromVariant(element);
        if (!object)
            return false;
        if (m_visited.size() <= size_t(at))
            m_visited.resize(size_t(at) + 1);
        auto &visited = m_visited[size_t(at)];
        const qsizetype before = visited.size();
        visited.insert(object, element); // kept alive: another object could come to lie where it was
        return visited.size() == before;
    }

    const QStringList &m_keys;
    Visitor &m_visitor;
    const Step &m_step;
    const bool m_eachOnce;
    std::vector<QHash<const KXObservable *, QVariant>> m_visited; // by place in the keys
};

}

KXPredicateEvaluator::KXPredicateEvaluator(const QVariantMap &variables)
    : m_variables(variables)
    , m_operation(KXAbstractOperation::current())
{
    if (m_operation && m_operation->isCancelled())
        m_operation = nullptr; // it may choose to go on to the end
}

void KXPredicateEvaluator::take(qint64 steps) const
{
    constexpr qint64 stepsBetweenLooks = 1000;
    const qint64 looks = m_steps / stepsBetweenLooks;
    m_steps += steps;
    if (m_steps > KXPredicate::MaximumSteps)
        throw GivenUp { false };
    if (m_operation && m_steps / stepsBetweenLooks != looks && m_operation->isCancelled())
        throw GivenUp { true };
}

KXError KXPredicateEvaluator::GivenUp::error() const
{
    if (isCancelled)
        return KXError(
            KXKestrixKitErrorDomain, KXStoreErrorCode::Interrupted, KXLocalizedString("The operation was cancelled"));
    return KXError(KXKestrixKitErrorDomain, KXPredicate::StepsError,
        KXStringWithFormat(
            KXLocalizedString("A condition takes more than %lld steps for one object"), KXPredicate::MaximumSteps));
}

/// Visits the values that an expression stands for; one for most, any number for lists and to-many paths.
template <typename Visitor>
bool KXPredicateEvaluator::visit(
    const KXExpression &expression, const KXObservable *object, Visitor &&visitor, bool eachOnce, bool fromList) const
{
    const auto step = [this] { take(1); };
    const auto walk = [&](const QStringList &keys) { return EvaluatorWalk(keys, visitor, step, eachOnce); };
    static const QStringList none;
    switch (expression.type()) {
    case KXExpressionType::Constant:
        return walk(none).visitValue(expression.constantValue(), 0, fromList);
    case KXExpressionType::EvaluatedObject:
        return visitor(object ? QVariant::fromValue(const_cast<KXObservable *>(object)) : QVariant(), fromList);
    case KXExpressionType::Variable:
        return walk(none).visitValue(variable(expression.variable(), m_variables), 0, fromList);
    case KXExpressionType::KeyPath:
        return walk(expression.keys()).visitObject(object, 0, fromList);
    case KXExpressionType::Function: {
        const KXExpression &operand = expression.operand();
        if (operand.type() == KXExpressionType::Variable) // not visited: the list itself may be counted
            return walk(expression.keys()).visitValue(variable(operand.variable(), m_variables), 0, fromList);
        return walk(expression.keys()).visitValue(value(operand, object), 0, fromList);
    }
    case KXExpressionType::Aggregate:
        return std::all_of(expression.arguments().begin(), expression.arguments().end(),
            [&](const KXExpression &element) { return visit(element, object, visitor, eachOnce, true); });
    }
    return true;
}

QVariant KXPredicateEvaluator::value(const KXExpression &expression, const KXObservable *object) const
{
    QVariantList values;
    bool isList = expression.type() == KXExpressionType::Aggregate;
    visit(
        expression, object,
        [&](const QVariant &value, bool fromList) {
            values.append(value);
            isList = isList || fromList;
            return true;
        },
        false);
    return isList || values.size() != 1 ? QVariant(values) : values.first();
}

QVariant KXPredicateEvaluator::variable(const QString &name, const QVariantMap &variables)
{
    const auto found = variables.constFind(name);
    if (found == variables.constEnd())
        throw KXException(QString(KXInvalidArgumentException),
            KXStringWithFormat("No value for the variable $%@ of a predicate", name));
    return *found;
}

bool KXPredicateEvaluator::evaluate(const KXPredicate &predicate, const KXObservable *object) const
{
    const QList<KXPredicate> &parts = predicate.subpredicates();
    const auto isTruePart = [this, object](const KXPredicate &part) { return evaluate(part, object); };
    switch (predicate.type()) {
    case KXPredicateType::True:
        return true;
    case KXPredicateType::False:
        return false;
    case KXPredicateType::And:
        return std::all_of(parts.begin(), parts.end(), isTruePart);
    case KXPredicateType::Or:
        return std::any_of(parts.begin(), parts.end(), isTruePart);
    case KXPredicateType::Not:
        return !evaluate(parts.first(), object);
    case KXPredicateType::Comparison:
        return compare(predicate, object);
    }
    return false;
}

int KXPredicateEvaluator::foldingOptions(KXPredicateOperator comparisonOperator, int options)
{
    if (comparisonOperator == KXPredicateOperator::BeginsWord)
        return 0; // words are without both
    return comparisonOperator == KXPredicateOperator::Matches ? options & KXDiacriticInsensitive : options;
}

QRegularExpression KXPredicateEvaluator::regularExpression(const QString &pattern, int options)
{
    const QRegularExpression expression(QRegularExpression::anchoredPattern(pattern),
        QRegularExpression::UseUnicodePropertiesOption
            | (options & KXCaseInsensitive ? QRegularExpression::CaseInsensitiveOption
                                           : QRegularExpression::NoPatternOption));
    return expression.isValid() ? expression : QRegularExpression(u"(?!)"_s);
}

bool KXPreparedSide::contains(const KXPredicateValue &value) const
{
    if (value.isNull())
        return false;
    if (table.empty())
        return std::any_of(values.begin(), values.end(),
            [&](const auto &element) { return KXPredicateValue::isEqual(value, element); });
    const auto [from, to] = std::equal_range(table.begin(), table.end(), std::pair(value.hash(), qsizetype(0)),
        [](const auto &a, const auto &b) { return a.first < b.first; });
    return std::any_of(
        from, to, [&](const auto &entry) { return KXPredicateValue::isEqual(value, values[size_t(entry.second)]); });
}

KXPreparedSide KXPredicateEvaluator::side(
    const KXExpression &expression, const KXObservable *object, int folding, bool eachOnce) const
{
    KXPreparedSide side;
    side.isList = expression.type() == KXExpressionType::Aggregate
        || expression.constantValue().typeId() == QMetaType::QVariantList; // perhaps an empty one
    visit(
        expression, object,
        [&side, folding](const QVariant &value, bool fromList) {
            side.values.emplace_back(value, folding);
            side.isList = side.isList || fromList;
            return true;
        },
        eachOnce);
    return side;
}

KXPreparedSide KXPredicateEvaluator::prepareRight(const KXPredicate &predicate, const KXObservable *object) const
{
    const KXPredicateOperator comparisonOperator = predicate.comparisonOperator();
    KXPreparedSide side
        = this->side(predicate.rightExpression(), object, foldingOptions(comparisonOperator, predicate.options()),
            comparisonOperator != KXPredicateOperator::Between); // which counts them
    if (comparisonOperator == KXPredicateOperator::In && side.values.size() >= longListSize) {
        for (size_t i = 0; i < side.values.size(); ++i)
            side.table.emplace_back(side.values[i].hash(), qsizetype(i));
        std::sort(side.table.begin(), side.table.end());
    }
    if (comparisonOperator == KXPredicateOperator::Matches) {
        for (const KXPredicateValue &value : side.values)
            side.expressions.push_back(regularExpression(value.text(), predicate.options()));
    }
    if (comparisonOperator == KXPredicateOperator::BeginsWord) {
        for (const KXPredicateValue &value : side.values) {
            if (value.kind() == KXPredicateValue::Text)
                side.words.push_back(KXTextWords::ofTerm(value.text()));
        }
    }
    return side;
}

/// What has words: texts, and numbers as they are written.
static std::optional<QByteArray> wordsText(const KXPredicateValue &value)
{
    switch (value.kind()) {
    case KXPredicateValue::Text:
        return value.text().toUtf8();
    case KXPredicateValue::Integer:
        return QByteArray::number(value.integer());
    case KXPredicateValue::Real:
        return KXTextWords::textOfNumber(value.real());
    default:
        return std::nullopt;
    }
}

bool KXPredicateEvaluator::isTrue(
    const KXPredicateValue &left, KXPredicateOperator comparisonOperator, const KXPredicateValue &right)
{
    switch (comparisonOperator) {
    case KXPredicateOperator::Equal:
        return KXPredicateValue::isEqual(left, right);
    case KXPredicateOperator::NotEqual:
        return !KXPredicateValue::isEqual(left, right);
    default:
        break;
    }
    if (comparisonOperator <= KXPredicateOperator::GreaterThanOrEqual) {
        if (left.kind() == KXPredicateValue::Object)
            return false;
        const std::partial_ordering order = KXPredicateValue::compare(left, right);
        switch (comparisonOperator) {
        case KXPredicateOperator::LessThan:
            return order < 0;
        case KXPredicateOperator::LessThanOrEqual:
            return order <= 0;
        case KXPredicateOperator::GreaterThan:
            return order > 0;
        case KXPredicateOperator::GreaterThanOrEqual:
            return order >= 0;
        default:
            return false; // a negative code
        }
    }
    if (left.kind() != KXPredicateValue::Text || right.kind() != KXPredicateValue::Text)
        return false;
    switch (comparisonOperator) {
    case KXPredicateOperator::Like:
        return KXTextFolding::isLike(left.text(), right.text());
    case KXPredicateOperator::BeginsWith:
        return left.text().startsWith(right.text());
    case KXPredicateOperator::EndsWith:
        return left.text().endsWith(right.text());
    case KXPredicateOperator::Contains:
        return left.text().contains(right.text());
    default:
        return false;
    }
}

bool KXPredicateEvaluator::compare(const KXPredicate &predicate, const KXObservable *object) const
{
    const KXPredicateOperator comparisonOperator = predicate.comparisonOperator();
    const KXPredicateModifier modifier = predicate.modifier();
    const int folding = foldingOptions(comparisonOperator, predicate.options());

    KXPreparedSide ownSide;
    const KXPreparedSide *right = &ownSide;
    if (predicate.rightExpression().isConstant()) {
        std::call_once(predicate.d->preparedOnce, [&] {
            predicate.d->preparedRight = std::make_unique<const KXPreparedSide>(prepareRight(predicate, nullptr));
        });
        right = predicate.d->preparedRight.get();
    } else {
        ownSide = prepareRight(predicate, object);
    }

    const auto matches = [&](const QVariant &variant, bool fromList) {
        take(qint64(right->table.empty() ? right->values.size() : 1));
        const KXPredicateValue left(variant, folding);
        const auto anyRight
            = [&](auto &&test) { return std::any_of(right->values.begin(), right->values.end(), test); };
        switch (comparisonOperator) {
        case KXPredicateOperator::In:
            if (right->isList)
                return right->contains(left);
            return anyRight(
                [&](const KXPredicateValue &value) { return isTrue(value, KXPredicateOperator::Contains, left); });
        case KXPredicateOperator::Contains:
            if (fromList && modifier == KXPredicateModifier::Direct)
                return anyRight([&](const KXPredicateValue &value) {
                    return !value.isNull() && KXPredicateValue::isEqual(left, value);
                });
            break;
        case KXPredicateOperator::Between:
            return right->isList && right->values.size() == 2
                && isTrue(left, KXPredicateOperator::GreaterThanOrEqual, right->values[0])
                && isTrue(left, KXPredicateOperator::LessThanOrEqual, right->values[1]);
        case KXPredicateOperator::Matches:
            for (size_t i = 0; i < right->values.size(); ++i) {
                if (left.kind() == KXPredicateValue::Text && right->values[i].kind() == KXPredicateValue::Text
                    && right->expressions[i].match(left.text()).hasMatch())
                    return true;
            }
            return false;
        case KXPredicateOperator::BeginsWord: {
            const std::optional<QByteArray> text = wordsText(left);
            return text && std::any_of(right->words.begin(), right->words.end(), [&text](const auto &words) {
                return KXTextWords::begin(words, *text);
            });
        }
        default:
            break;
        }
        return anyRight([&](const KXPredicateValue &value) { return isTrue(left, comparisonOperator, value); });
    };
    const KXExpression &left = predicate.leftExpression();
    if (modifier == KXPredicateModifier::All)
        return visit(left, object, matches, true);
    const auto isMiss = [&matches](const QVariant &value, bool fromList) { return !matches(value, fromList); };
    return !visit(left, object, isMiss, true);
}
