#pragma once

#include <kestrixkit/catalogue/KXCatalogueLoader.h>
#include <kestrixkit/foundation/KXObservable.h>

#include "support/RandomRules.h"

/// A track as memory has it: values by key.
class RemoteRow : public KXObservable
{
public:
    [[nodiscard]] QVariant valueForKey(const QString &key) const override { return values.value(key); }
    QVariantMap values;
};

/// A small catalogue with a column of every type, and random rules over it, whose constants come from the same small
/// pools as the rows' values.
class RemoteRules : public RandomRules
{
public:
    using RandomRules::RandomRules;

    [[nodiscard]] static KXCatalogueSchema schema();
    /// For the loader, in the order of the schema's columns.
    [[nodiscard]] static QVariantList loaded(const RemoteRow &row);

    [[nodiscard]] std::vector<std::unique_ptr<RemoteRow>> rows(int count);

protected:
    [[nodiscard]] int kinds() const override { return Kinds; }
    [[nodiscard]] QVariant constantOf(int kind) override { return value(Kind(kind), false); }
    [[nodiscard]] QString pathOf(int kind) override;
    /// A pattern is hardly ever a column.
    [[nodiscard]] Odds odds() const override { return { 0.4, 0.6, 0.05, 0.05, 0.01 }; }
    [[nodiscard]] QStringList ownPatterns() const override;

private:
    enum Kind { Text, Number, Date, Flag, Kinds };
    [[nodiscard]] QVariant value(Kind kind, bool forRow);
    [[nodiscard]] QVariant maybe(Kind kind) { return m_random.chance(0.15) ? QVariant() : value(kind, true); }
};
