#pragma once

#include <kestrixkit/filters/KXFilterSet.h>

/// Why a filter set lets an object in or keeps it out: what each of its filters says of the object, by their local
/// predicates as they are at this moment. Belongs to the thread of the set's context.
class KX_CORE_EXPORT KXFilterSetExplanation
{
public:
    /// One of the conditions that a filter joins by AND: a bound, the included or the excluded values.
    struct Part
    {
        KXPredicate predicate;
        bool matches = false;
        /// Of a condition joined by OR, those of its comparisons that the object fits.
        QList<KXPredicate> matching;
    };
    /// What one filter says of the object.
    struct Verdict
    {
        KXRef<KXFilter> filter;
        /// A filter that is not enabled, or that has no condition, keeps nothing out; it is told all the same.
        bool takesPart = false;
        /// Whether its condition holds; true without one.
        bool matches = true;
        QList<Part> parts;
        /// What the object has at each key path that the condition looks at; invalid where it has nothing.
        QVariantMap values;
    };

    /// Of the set's filters by position. An absent object has no values. The prefix is handed to the filters.
    [[nodiscard]] static KXFilterSetExplanation explain(
        const KXFilterSet &set, const KXObservable *object, const std::optional<QString> &prefix = {});

    /// Whether the set lets the object in: whether all filters do that take part.
    [[nodiscard]] bool matches() const;
    [[nodiscard]] const QList<Verdict> &verdicts() const { return m_verdicts; }
    /// Filters that take part and whose condition holds, or does not.
    [[nodiscard]] QList<KXRef<KXFilter>> lettingIn() const { return filters(true); }
    [[nodiscard]] QList<KXRef<KXFilter>> keepingOut() const { return filters(false); }

    /// The conditions that a predicate joins by AND, at whatever depth; itself where it joins none.
    [[nodiscard]] static QList<KXPredicate> partsOfPredicate(const KXPredicate &predicate);

private:
    [[nodiscard]] QList<KXRef<KXFilter>> filters(bool matching) const;

    QList<Verdict> m_verdicts;
};
