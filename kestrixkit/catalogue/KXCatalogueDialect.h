#pragma once

#include <optional>

#include <kestrixkit/catalogue/KXCatalogueGlobal.h>
#include <kestrixkit/catalogue/KXCatalogueQuery.h>

/// A value that goes to the engine beside the statement's text.
struct KXCatalogueParameter
{
    quint32 type = 0; ///< the engine's number of the type
    QByteArray text = {};

    friend bool operator==(const KXCatalogueParameter &, const KXCatalogueParameter &) = default;
};

/// What an engine is asked: text that holds nothing but names of the schema, and the values for its places.
struct KXCatalogueStatement
{
    QByteArray text = {};
    QList<KXCatalogueParameter> parameters = {};
};

/// Says rules in the language of one engine.
///
/// A statement answers exactly what the rule means in memory (KXPredicate). What cannot be said so is refused: absent,
/// and an error with the code KXCatalogueError::Refused that names the reason. Implementations do not change; any
/// thread.
class KX_CATALOGUE_EXPORT KXCatalogueDialect
{
public:
    virtual ~KXCatalogueDialect();

    /// One row: how many rows fit the rule, and how many of them each of the facets.
    [[nodiscard]] virtual std::optional<KXCatalogueStatement> countStatement(
        const KXCatalogueCountRequest &request, KXError *error) const = 0;
    /// The same over about that share (0 to 1) of the rows.
    [[nodiscard]] virtual std::optional<KXCatalogueStatement> sampleStatement(
        const KXCatalogueCountRequest &request, double share, KXError *error) const = 0;
    /// A row for each value: the value and how many rows have it; one row more than MostValues where there are more.
    [[nodiscard]] virtual std::optional<KXCatalogueStatement> valuesStatement(
        const KXCatalogueValuesRequest &request, KXError *error) const = 0;
    /// The page's rows in its order: the values of the key paths asked for, then those of the sort keys, then the
    /// identifier. The texts of values are those that valueFromText reads.
    [[nodiscard]] virtual std::optional<KXCatalogueStatement> pageStatement(
        const KXCataloguePageRequest &request, KXError *error) const = 0;
    /// Whether the rule can be said.
    [[nodiscard]] bool canAnswer(const KXPredicate &rule, KXError *error = nullptr) const
    {
        return countStatement({ .rule = rule }, error).has_value();
    }
};

inline constexpr int KXCatalogueMostFacets = 1500; ///< in one request
