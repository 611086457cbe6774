#pragma once

#include <kestrixkit/catalogue/KXCatalogueDialect.h>
#include <kestrixkit/catalogue/KXCatalogueSchema.h>

/// Says rules as PostgreSQL understands them, from version 14 on; the database's encoding is UTF8.
///
/// Texts are compared by code points (COLLATE "C"), whatever the collation of the column. The rows are expected to keep
/// what KXCatalogueType says of its types. Refused are: key paths without a column, regular expressions beyond
/// literals,
/// "." classes, groups, alternatives and "* + ?", patterns and words that come from a column, comparisons of a list
/// with a list, words of real numbers, folding and words where the catalogue keeps no copy, halves of characters, and
/// dates outside the years 1 to 9999.
class KX_CATALOGUE_EXPORT KXPostgreSQLDialect : public KXCatalogueDialect
{
public:
    explicit KXPostgreSQLDialect(KXCatalogueSchema schema);

    [[nodiscard]] std::optional<KXCatalogueStatement> countStatement(
        const KXCatalogueCountRequest &request, KXError *error) const override;
    [[nodiscard]] std::optional<KXCatalogueStatement> sampleStatement(
        const KXCatalogueCountRequest &request, double share, KXError *error) const override;
    [[nodiscard]] std::optional<KXCatalogueStatement> valuesStatement(
        const KXCatalogueValuesRequest &request, KXError *error) const override;
    [[nodiscard]] std::optional<KXCatalogueStatement> pageStatement(
        const KXCataloguePageRequest &request, KXError *error) const override;

    /// In which field of a page's row the value of each key of its order stands. The first fields are the key paths;
    /// what is among them is not sent twice.
    [[nodiscard]] QList<qsizetype> keyFields(const KXCataloguePageRequest &request) const;
    /// A value of a page's row from the text that the engine sends; invalid for an absent one.
    [[nodiscard]] static QVariant valueFromText(std::optional<QByteArrayView> text, const KXCatalogueColumn &column);
    /// A name of the schema as SQL has it.
    [[nodiscard]] static QByteArray quoted(const QByteArray &name);

    [[nodiscard]] const KXCatalogueSchema &schema() const { return m_schema; }

private:
    [[nodiscard]] KXCatalogueStatement counted(const KXCatalogueCountRequest &request, const QByteArray &source) const;
    [[nodiscard]] QByteArray table() const;

    const KXCatalogueSchema m_schema;
};
