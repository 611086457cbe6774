#pragma once

#include <functional>

#include <kestrixkit/migration/KXMappingModel.h>
#include <kestrixkit/store/KXSQLite_p.h>

/// What a migration says to SQLite: statements that copy a store's rows into the tables of another model, and counts of
/// what each change concerns. Whole tables at a time; keys and row versions stay.
class KXMigrationSQL
{
public:
    struct Statement
    {
        QByteArray sql;
        QVariantList parameters; ///< in their storage forms
    };

    /// Connections that run the statements have the function of KXMigrationValues. `source` and `destination` name the
    /// databases of one connection; the second only matters for copies().
    explicit KXMigrationSQL(const KXMappingModel &mapping, QByteArray source = "main", QByteArray destination = "fresh")
        : m_mapping(mapping)
        , m_from(source + '.')
        , m_to(destination + '.')
    {
    }

    /// From the source's rows and links into the destination's empty tables.
    [[nodiscard]] QList<Statement> copies() const;

    // Counts, each a single number.

    [[nodiscard]] Statement rows(const KXEntityDescription *source) const;
    /// Rows that have a value, or links.
    [[nodiscard]] Statement values(const KXEntityDescription *source, const KXPropertyDescription &property) const;
    /// Values that have no form in the new type.
    [[nodiscard]] Statement failures(const KXEntityDescription *source, const KXPropertyMapping &property) const;
    /// Rows that come out without a value.
    [[nodiscard]] Statement missing(const KXEntityDescription *source, const KXPropertyMapping &property) const;
    /// Links to rows that do not come along, or not as what the relationship leads to.
    [[nodiscard]] Statement lostLinks(const KXEntityDescription *source, const KXPropertyMapping &property) const;

    /// Links of a relationship that is given up, less those that are carried over from its other end.
    [[nodiscard]] Statement linksLeft(
        const KXEntityDescription *source, const KXPropertyDescription &relationship) const;

    /// Whether there is an other end from which links of the source's rows are carried over.
    [[nodiscard]] bool inverseCarries(
        const KXEntityDescription *source, const KXPropertyDescription &relationship) const;

private:
    using Chooses = std::function<bool(const KXEntityDescription *)>;
    [[nodiscard]] QByteArray table(const KXEntityDescription *entity) const { return m_from + entity->table(); }
    [[nodiscard]] static QByteArray rowsOf(
        const KXEntityDescription *root, const Chooses &chooses, const QByteArray &alias);
    [[nodiscard]] QByteArray isRowOf(
        const QByteArray &key, const KXEntityDescription *family, const Chooses &chooses) const;
    [[nodiscard]] QByteArray links(const KXEntityDescription *source, const KXPropertyDescription &relationship) const;
    [[nodiscard]] const KXPropertyMapping *inverseMapping(const KXEntityDescription *source,
        const KXPropertyDescription &relationship, const KXEntityDescription *other) const;
    [[nodiscard]] QByteArray isCarried(const QByteArray &key, const KXPropertyMapping &relationship) const;
    [[nodiscard]] QByteArray expression(const KXPropertyMapping &property, QVariantList &parameters) const;
    [[nodiscard]] Statement count(
        const KXEntityDescription *source, const QByteArray &condition, const QVariantList &parameters = {}) const;
    void copyRows(const KXEntityDescription *root, QList<Statement> &statements) const;
    void copyLinks(
        const KXEntityMapping &mapping, const KXPropertyMapping &property, QList<Statement> &statements) const;

    const KXMappingModel &m_mapping;
    const QByteArray m_from;
    const QByteArray m_to;
};
