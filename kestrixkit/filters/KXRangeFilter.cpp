#include <kestrixkit/filters/KXRangeFilter.h>

using namespace Qt::StringLiterals;

namespace {

const QStringList &rangeFilterKeys()
{
    static const QStringList keys { u"startValue"_s, u"endValue"_s, u"startValueOperatorType"_s,
        u"endValueOperatorType"_s };
    return keys;
}

QString rangeBoundText(KXPredicateOperator comparisonOperator, const KXDecimal &bound)
{
    return KXStringWithFormat("%@ %@", KXPredicate::stringForOperatorType(int(comparisonOperator)), bound);
}

}

KXRef<KXRangeFilter> KXRangeFilter::createWithKeyPath(const QString &keyPath, const std::optional<KXDecimal> &from,
    const std::optional<KXDecimal> &to, KXManagedObjectContext &inContext, KXError *error)
{
    KXRef<KXRangeFilter> filter = createInContext(inContext, error);
    if (!filter)
        return filter;
    filter->setName(keyPath);
    filter->setEnabled(true);
    filter->setLocalValuePredicateKeyPath(keyPath);
    filter->setRemoteValuePredicateKeyPath(keyPath);
    filter->setStartValue(from);
    filter->setStartValueOperatorType(KXPredicateOperator::GreaterThanOrEqual);
    filter->setEndValue(to);
    filter->setEndValueOperatorType(KXPredicateOperator::LessThanOrEqual);
    return filter;
}

QString KXRangeFilter::defaultLabel() const
{
    const auto start = startValue();
    if (!start)
        return name().value_or(QString());
    QString label = rangeBoundText(startValueOperatorType(), *start);
    if (const auto end = endValue())
        label += KXStringWithFormat(" %@ ", KXLocalizedString("AND")) + rangeBoundText(endValueOperatorType(), *end);
    return label;
}

QString KXRangeFilter::detailsAsHTMLString() const
{
    return startValue() ? KXStringWithFormat("%@</br>", defaultLabel()) : KXStringWithFormat("<i>%@</i></br>", name());
}

KXPredicate KXRangeFilter::representedPredicateWithKeyPath(const QString &keyPath, KXPredicateModifier modifier) const
{
    QList<KXPredicate> bounds;
    if (const auto start = startValue())
        bounds.append(
            KXPredicate::comparison(keyPath, startValueOperatorType(), QVariant::fromValue(*start), modifier));
    if (const auto end = endValue())
        bounds.append(KXPredicate::comparison(keyPath, endValueOperatorType(), QVariant::fromValue(*end), modifier));
    return KXPredicate::andPredicate(bounds);
}

void KXRangeFilter::copyTo(KXFilter &copy) const
{
    KXFilter::copyTo(copy);
    copyAttributes(rangeFilterKeys(), copy);
}

QStringList KXRangeFilter::keysAffectingLabel() const { return rangeFilterKeys(); }
