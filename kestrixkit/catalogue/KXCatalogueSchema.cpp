#include <kestrixkit/catalogue/KXCatalogueSchema.h>

#include <algorithm>

#include <kestrixkit/predicate/KXPredicate.h>

using namespace Qt::StringLiterals;

KXCatalogueSchema::KXCatalogueSchema(QByteArray schemaName, QByteArray tableName, QList<KXCatalogueColumn> columns)
    : m_schemaName(std::move(schemaName))
    , m_tableName(std::move(tableName))
    , m_columns(std::move(columns))
{
}

const KXCatalogueColumn *KXCatalogueSchema::columnForKeyPath(const QString &keyPath) const
{
    const auto found = std::find_if(
        m_columns.begin(), m_columns.end(), [&](const KXCatalogueColumn &column) { return column.keyPath == keyPath; });
    return found == m_columns.end() ? nullptr : &*found;
}

const KXCatalogueColumn *KXCatalogueSchema::identifier() const { return columnForKeyPath(identifierKeyPath); }

KXCatalogueSchema KXCatalogueSchema::standard()
{
    using Type = KXCatalogueType;
    static constexpr int both = KXCaseInsensitive | KXDiacriticInsensitive;
    // Of what is sorted or searched by letters; everything else is compared as it is written.
    const auto folded = [](QByteArray name) { return QMap<int, QByteArray> { { both, name + "_folded" } }; };
    return { "catalogue", "tracks",
        {
            { .keyPath = u"id"_s, .name = "id", .type = Type::Integer, .notNull = true },
            { .keyPath = u"released"_s, .name = "released", .type = Type::Date, .notNull = true },
            { .keyPath = u"title"_s, .name = "title", .notNull = true, .folded = folded("title") },
            { .keyPath = u"artistText"_s, .name = "artist_text", .notNull = true, .folded = folded("artist_text") },
            { .keyPath = u"artists.name"_s, .name = "artists", .isList = true },
            { .keyPath = u"album"_s, .name = "album" },
            { .keyPath = u"genre"_s, .name = "genre" },
            { .keyPath = u"label"_s, .name = "label" },
            { .keyPath = u"bpm"_s, .name = "bpm", .type = Type::Real },
            { .keyPath = u"keyOrder"_s, .name = "key_order", .type = Type::Integer },
            { .keyPath = u"year"_s, .name = "year", .type = Type::Integer },
            { .keyPath = u"rating"_s, .name = "rating", .type = Type::Integer },
            { .keyPath = u"duration"_s, .name = "duration", .type = Type::Real },
            { .keyPath = u"price"_s, .name = "price", .type = Type::Decimal },
            { .keyPath = u"exclusive"_s, .name = "exclusive", .type = Type::Boolean },
            { .keyPath = u"comment"_s, .name = "comment" },
            { .keyPath = u"file"_s, .name = "file" },
            { .keyPath = u"preview"_s, .name = "preview" },
            { .keyPath = u"search"_s, .name = "search", .type = Type::Words },
        } };
}

KXCatalogueSchema KXCatalogueSchema::previewHosts()
{
    return { "catalogue", "preview_hosts",
        {
            { .keyPath = u"id"_s, .name = "id", .type = KXCatalogueType::Integer, .notNull = true },
            { .keyPath = u"host"_s, .name = "host", .notNull = true },
        } };
}
