#pragma once

#include <kestrixkit/catalogue/KXCatalogueLoader.h>
#include <kestrixkit/foundation/KXObservable.h>
#include <kestrixkit/predicate/KXPredicate.h>

#include "support/KXTestRandom.h"

/// A track as memory has it: values by key.
class RemoteRow : public KXObservable
{
public:
    [[nodiscard]] QVariant valueForKey(const QString &key) const override { return values.value(key); }
    QVariantMap values;
};

/// A small catalogue with a column of every type, and random rules over it in which comparisons hit and miss about
/// equally: constants come from the same small pools as the rows' values, and some do not fit at all.
class RemoteRules
{
public:
    explicit RemoteRules(KXTestRandom &random)
        : m_random(random)
    {
    }

    [[nodiscard]] static KXCatalogueSchema schema();
    /// For the loader, in the order of the schema's columns.
    [[nodiscard]] static QVariantList loaded(const RemoteRow &row);

    [[nodiscard]] std::vector<std::unique_ptr<RemoteRow>> rows(int count);
    [[nodiscard]] KXPredicate rule(int depth);

private:
    enum Kind { Text, Number, Date, Flag, Kinds };
    [[nodiscard]] QVariant value(Kind kind, bool forRow);
    [[nodiscard]] QVariant maybe(Kind kind) { return m_random.chance(0.15) ? QVariant() : value(kind, true); }
    [[nodiscard]] QString keyPath(Kind kind);
    [[nodiscard]] KXExpression constant(Kind kind);
    [[nodiscard]] KXPredicate comparison();

    KXTestRandom &m_random;
};
