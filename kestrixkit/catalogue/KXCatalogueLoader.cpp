#include <kestrixkit/catalogue/KXCatalogueLoader.h>

#include <cmath>
#include <set>

#include <QDateTime>

#include <kestrixkit/catalogue/KXCatalogueQuery.h>
#include <kestrixkit/catalogue/KXPostgreSQLDialect.h>
#include <kestrixkit/catalogue/KXPostgreSQLLibrary_p.h>
#include <kestrixkit/catalogue/KXPostgreSQLTypes_p.h>
#include <kestrixkit/foundation/KXStringWithFormat.h>
#include <kestrixkit/predicate/KXPredicate.h>
#include <kestrixkit/predicate/KXPredicateValue_p.h>
#include <kestrixkit/predicate/KXTextWords_p.h>

using namespace Qt::StringLiterals;

namespace {

constexpr qsizetype loaderBuffer = 1 << 18; // bytes sent at a time

/// A row that cannot be kept.
struct LoaderProblem
{
    QString text;
};

void loaderEscape(QByteArray &line, const QByteArray &text)
{
    for (const char c : text) {
        switch (c) {
        case '\\':
            line += "\\\\";
            break;
        case '\n':
            line += "\\n";
            break;
        case '\r':
            line += "\\r";
            break;
        case '\t':
            line += "\\t";
            break;
        default:
            line += c;
        }
    }
}

QByteArray loaderWords(const QVariant &texts)
{
    std::set<QByteArray> words;
    KXTextWords::Splitter splitter;
    for (const QString &text : texts.toStringList()) {
        for (const QByteArrayView word : splitter.ofText(text))
            words.insert(word.toByteArray());
    }
    QByteArray vector;
    for (const QByteArray &word : words)
        vector += (vector.isEmpty() ? "'" : " '") + word + '\'';
    return vector;
}

/// A value as the engine reads it; none for an absent one.
std::optional<QByteArray> loaderText(const QVariant &value, KXCatalogueType type, int folding)
{
    const KXPredicateValue comparable(value, folding);
    if (comparable.isNull())
        return std::nullopt;
    const auto problem = [](const char *text) -> QByteArray { throw LoaderProblem { KXLocalizedString(text) }; };
    switch (type) {
    case KXCatalogueType::Boolean:
        if (comparable.kind() != KXPredicateValue::Integer || (comparable.integer() != 0 && comparable.integer() != 1))
            return problem(QT_TRANSLATE_NOOP("KestrixKit", "it is neither true nor false"));
        return comparable.integer() == 1 ? "t" : "f";
    case KXCatalogueType::Integer:
        return comparable.kind() == KXPredicateValue::Integer
            ? QByteArray::number(comparable.integer())
            : problem(QT_TRANSLATE_NOOP("KestrixKit", "it is no whole number"));
    case KXCatalogueType::Real:
        if (!comparable.isNumber() || std::isnan(value.toDouble()))
            return problem(QT_TRANSLATE_NOOP("KestrixKit", "it is no number"));
        return KXPostgreSQLTypes::realText(value.toDouble());
    case KXCatalogueType::Decimal:
        return comparable.kind() == KXPredicateValue::Decimal ? comparable.decimal().canonical()
            : comparable.kind() == KXPredicateValue::Integer
            ? QByteArray::number(comparable.integer())
            : problem(QT_TRANSLATE_NOOP("KestrixKit", "it is no decimal number"));
    case KXCatalogueType::Date: {
        const QByteArray text = comparable.kind() == KXPredicateValue::Date
            ? KXPostgreSQLTypes::dateText(comparable.integer())
            : QByteArray();
        return text.isEmpty() ? problem(QT_TRANSLATE_NOOP("KestrixKit", "it is no date of the years 1 to 9999")) : text;
    }
    case KXCatalogueType::Text:
        if (comparable.kind() != KXPredicateValue::Text)
            return problem(QT_TRANSLATE_NOOP("KestrixKit", "it is no text"));
        if (comparable.text().contains(QChar::Null) || !comparable.text().isValidUtf16())
            return problem(QT_TRANSLATE_NOOP("KestrixKit", "it holds what is no character"));
        return comparable.text().toUtf8();
    case KXCatalogueType::Words:
        break;
    }
    return problem(QT_TRANSLATE_NOOP("KestrixKit", "it is no value"));
}

/// Another element of an array's text.
void loaderAppend(QByteArray &array, const std::optional<QByteArray> &element)
{
    const QByteArray one = element ? KXPostgreSQLTypes::arrayText({ *element }) : QByteArray("{NULL}");
    array += (array.size() > 1 ? "," : "") + one.sliced(1, one.size() - 2);
}

std::optional<QByteArray> loaderValue(const QVariant &value, const KXCatalogueColumn &column, int folding)
{
    if (!column.isList)
        return loaderText(value, column.type, folding);
    QByteArray array = "{";
    for (const QVariant &element : value.toList())
        loaderAppend(array, loaderText(element, column.type, folding));
    return array + '}';
}

/// The words of a text, or of each text of a list.
std::optional<QByteArray> loaderWordsOf(const QVariant &value, const KXCatalogueColumn &column)
{
    const auto words
        = [](const QVariant &text) { return text.isValid() ? std::optional(loaderWords(text)) : std::nullopt; };
    if (!column.isList)
        return words(value);
    QByteArray array = "{";
    for (const QVariant &element : value.toList())
        loaderAppend(array, words(element));
    return array + '}';
}

}

KXCatalogueLayout KXCatalogueLayout::standard()
{
    const QStringList facets { u"bpm"_s, u"keyOrder"_s, u"year"_s, u"rating"_s, u"duration"_s, u"price"_s,
        u"exclusive"_s };
    return { .partitionKeyPath = u"released"_s,
        .indexes = {
            { u"facets"_s, { u"genre"_s, u"released"_s }, facets },
            { u"by_release"_s, { u"released desc"_s, u"id desc"_s } },
            { u"by_title"_s, { u"title[cd]"_s, u"id"_s } },
            { u"by_artist"_s, { u"artistText[cd]"_s, u"id"_s } },
            { u"by_words"_s, { u"search"_s }, {}, true },
            { u"by_artists"_s, { u"artists.name"_s }, {}, true },
            { u"by_label"_s, { u"label"_s, u"released"_s } },
        } };
}

class KXCatalogueLoaderPrivate
{
public:
    KXCatalogueLoaderPrivate(KXCatalogueServers::Server server, KXCatalogueSchema schema, KXCatalogueLayout layout)
        : server(std::move(server))
        , schema(std::move(schema))
        , layout(std::move(layout))
    {
    }

    [[nodiscard]] bool fail(KXError *error)
    {
        hasFailed = true;
        const QString said
            = connection ? QString::fromUtf8(KXLibpq().errorMessage(connection.get())).simplified() : QString();
        return KXSetError(error,
            KXError(KXKestrixKitErrorDomain, KXCatalogueError::Failed,
                KXStringWithFormat(KXLocalizedString("The catalogue at %@ cannot be changed: %@"), server.name, said)));
    }
    [[nodiscard]] bool connect(KXError *error)
    {
        if (connection && KXLibpq().status(connection.get()) == CONNECTION_OK)
            return true;
        const char *const keywords[] = { "dbname", "client_encoding", "fallback_application_name", nullptr };
        const char *const values[] = { server.address.constData(), "UTF8", "KestrixKit loader", nullptr };
        const KXPostgreSQLLibrary *const libpq = KXPostgreSQLLibrary::shared();
        if (!libpq)
            return fail(error);
        connection = { libpq->connectdbParams(keywords, values, 1), libpq->finish };
        if (!connection || KXLibpq().status(connection.get()) != CONNECTION_OK)
            return fail(error);
        KXLibpq().setNoticeProcessor(
            connection.get(), [](void *, const char *) {}, nullptr);
        return run("SET TimeZone = 'UTC'; SET DateStyle = 'ISO'", error);
    }
    [[nodiscard]] bool run(const QByteArray &text, KXError *error, ExecStatusType wanted = PGRES_COMMAND_OK)
    {
        const std::unique_ptr<PGresult, decltype(&PQclear)> result(
            KXLibpq().exec(connection.get(), text.constData()), KXLibpq().clear);
        return KXLibpq().resultStatus(result.get()) == wanted || fail(error);
    }
    [[nodiscard]] bool send(KXError *error)
    {
        const bool done = KXLibpq().putCopyData(connection.get(), lines.constData(), int(lines.size())) == 1;
        lines.clear();
        return done || fail(error);
    }

    [[nodiscard]] static QByteArray quoted(const QByteArray &name) { return KXPostgreSQLDialect::quoted(name); }
    [[nodiscard]] QByteArray table(const QByteArray &suffix = {}) const
    {
        return quoted(schema.schemaName()) + '.' + quoted(schema.tableName() + suffix);
    }
    [[nodiscard]] static QByteArray hostsTable()
    {
        const KXCatalogueSchema hosts = KXCatalogueSchema::previewHosts();
        return quoted(hosts.schemaName()) + '.' + quoted(hosts.tableName());
    }
    /// A text in a statement that takes no parameters.
    [[nodiscard]] QByteArray literal(const QByteArray &text) const
    {
        const std::unique_ptr<char, decltype(&PQfreemem)> escaped(
            KXLibpq().escapeLiteral(connection.get(), text.constData(), size_t(text.size())), KXLibpq().freemem);
        return escaped ? QByteArray(escaped.get()) : QByteArray("''");
    }
    /// The columns with their types, or their names alone.
    [[nodiscard]] QByteArray columns(bool withTypes) const
    {
        QList<QByteArray> list;
        const auto add = [&](const QByteArray &name, const QByteArray &type) {
            list.append(withTypes ? quoted(name) + ' ' + type : quoted(name));
        };
        for (const KXCatalogueColumn &column : schema.columns()) {
            // "text COLLATE" takes its brackets in the middle.
            QByteArray type = KXPostgreSQLTypes::nameOf(column.type);
            if (column.isList)
                type = type.startsWith("text") ? QByteArray("text[] COLLATE \"C\"") : type + "[]";
            const QByteArray null = column.notNull ? " NOT NULL" : "";
            QByteArray check;
            if (column.type == KXCatalogueType::Real && !column.isList)
                check = " CHECK (" + quoted(column.name) + " <> 'NaN')";
            add(column.name, type + null + check);
            for (const QByteArray &folded : column.folded)
                add(folded, type + null);
            if (!column.words.isEmpty())
                add(column.words, KXPostgreSQLTypes::nameOf(KXCatalogueType::Words) + (column.isList ? "[]" : ""));
        }
        return list.join(", ");
    }
    /// "title[cd] desc" as an index has it.
    [[nodiscard]] QByteArray indexed(const QString &text, bool isIncluded) const
    {
        QString keyPath = text;
        const bool descending = keyPath.endsWith(" desc"_L1);
        keyPath.chop(descending ? 5 : 0);
        const bool isFolded = keyPath.endsWith("[cd]"_L1);
        keyPath.chop(isFolded ? 4 : 0);
        const KXCatalogueColumn *column = schema.columnForKeyPath(keyPath);
        if (!column)
            return "?"; // which the server names
        const QByteArray name
            = quoted(isFolded ? column->folded.value(KXCaseInsensitive | KXDiacriticInsensitive) : column->name);
        return isIncluded ? name : name + (descending ? " DESC" : "");
    }

    const KXCatalogueServers::Server server;
    const KXCatalogueSchema schema;
    const KXCatalogueLayout layout;
    std::unique_ptr<PGconn, decltype(&PQfinish)> connection { nullptr, nullptr };
    QByteArray lines;
    bool hasFailed = false;
};

KXCatalogueLoader::KXCatalogueLoader(
    KXCatalogueServers::Server server, KXCatalogueSchema schema, KXCatalogueLayout layout)
    : d(std::make_unique<KXCatalogueLoaderPrivate>(std::move(server), std::move(schema), std::move(layout)))
{
}

KXCatalogueLoader::~KXCatalogueLoader() = default;

bool KXCatalogueLoader::hasFailed() const { return d->hasFailed; }

bool KXCatalogueLoader::create(KXError *error)
{
    const auto quoted = [](const QByteArray &name) { return KXPostgreSQLDialect::quoted(name); };
    if (!d->connect(error)) // which escapes texts, too
        return false;
    QByteArray text = "BEGIN; CREATE SCHEMA IF NOT EXISTS " + quoted(d->schema.schemaName()) + "; CREATE TABLE "
        + d->table() + " (" + d->columns(true);
    const KXCatalogueColumn *partition = d->schema.columnForKeyPath(d->layout.partitionKeyPath);
    const KXCatalogueColumn *identifier = d->schema.identifier();
    if (identifier)
        text += ", PRIMARY KEY (" + quoted(identifier->name) + (partition ? ", " + quoted(partition->name) : "") + ')';
    text += partition ? ") PARTITION BY RANGE (" + quoted(partition->name) + ");" : QByteArray(");");
    for (int year = d->layout.firstYear; partition && year <= d->layout.lastYear; ++year) {
        const auto start = [](int of) { return '\'' + QByteArray::number(of) + "-01-01 00:00+00'"; };
        text += "CREATE TABLE " + d->table('_' + QByteArray::number(year)) + " PARTITION OF " + d->table()
            + " FOR VALUES FROM (" + start(year) + ") TO (" + start(year + 1) + ");";
    }
    if (partition)
        text += "CREATE TABLE " + d->table("_other") + " PARTITION OF " + d->table() + " DEFAULT;";
    if (!d->layout.previewHosts.isEmpty()) {
        text += "CREATE TABLE " + d->hostsTable() + " (id bigint PRIMARY KEY, host text COLLATE \"C\" NOT NULL);";
        for (qsizetype i = 0; i < d->layout.previewHosts.size(); ++i)
            text += "INSERT INTO " + d->hostsTable() + " VALUES (" + QByteArray::number(i) + ", "
                + d->literal(d->layout.previewHosts[i].toUtf8()) + ");";
    }
    if (!d->layout.readerRole.isEmpty())
        text += "GRANT USAGE ON SCHEMA " + quoted(d->schema.schemaName()) + " TO " + quoted(d->layout.readerRole)
            + "; GRANT SELECT ON " + d->table() + (d->layout.previewHosts.isEmpty() ? "" : ", " + d->hostsTable())
            + " TO " + quoted(d->layout.readerRole) + ';';
    const bool done = d->run(text + "COMMIT", error);
    return done || (static_cast<void>(d->run("ROLLBACK", nullptr)), false);
}

bool KXCatalogueLoader::begin(KXError *error)
{
    d->hasFailed = false;
    d->lines.clear();
    return d->connect(error)
        && d->run("COPY " + d->table() + " (" + d->columns(false) + ") FROM STDIN", error, PGRES_COPY_IN);
}

bool KXCatalogueLoader::add(const QVariantList &values, KXError *error)
{
    QByteArray line; // each value behind a tab
    const auto append = [&line](const std::optional<QByteArray> &text) {
        line += '\t';
        if (text)
            loaderEscape(line, *text);
        else
            line += "\\N";
    };
    for (qsizetype i = 0; i < d->schema.columns().size(); ++i) {
        const KXCatalogueColumn &column = d->schema.columns()[i];
        const QVariant value = values.value(i);
        try {
            if (column.type == KXCatalogueType::Words) {
                append(loaderWords(value));
                continue;
            }
            const std::optional<QByteArray> text = loaderValue(value, column, 0);
            if (column.notNull && !text)
                throw LoaderProblem { KXLocalizedString("there has to be one") };
            append(text);
            for (auto copy = column.folded.cbegin(); copy != column.folded.cend(); ++copy)
                append(loaderValue(value, column, copy.key()));
            if (!column.words.isEmpty())
                append(loaderWordsOf(value, column));
        } catch (const LoaderProblem &problem) {
            return KXSetError(error,
                KXError(KXKestrixKitErrorDomain, KXCatalogueError::Failed,
                    KXStringWithFormat(
                        KXLocalizedString("A track is left out for its \"%@\": %@"), column.keyPath, problem.text)));
        }
    }
    d->lines += QByteArrayView(line).sliced(1);
    d->lines += '\n';
    return d->lines.size() < loaderBuffer || d->send(error);
}

bool KXCatalogueLoader::finish(KXError *error)
{
    if (d->hasFailed || !d->send(error) || KXLibpq().putCopyEnd(d->connection.get(), nullptr) != 1)
        return d->fail(error);
    bool done = true;
    while (PGresult *result = KXLibpq().getResult(d->connection.get())) {
        if (KXLibpq().resultStatus(result) != PGRES_COMMAND_OK && done)
            done = d->fail(error);
        KXLibpq().clear(result);
    }
    return done;
}

bool KXCatalogueLoader::index(KXError *error)
{
    if (!d->connect(error))
        return false;
    for (const KXCatalogueLayout::Index &index : d->layout.indexes) {
        QList<QByteArray> keys;
        QList<QByteArray> included;
        for (const QString &keyPath : index.keyPaths)
            keys.append(d->indexed(keyPath, index.isInverted));
        for (const QString &keyPath : index.included)
            included.append(d->indexed(keyPath, true));
        QByteArray text = "CREATE INDEX IF NOT EXISTS "
            + KXPostgreSQLDialect::quoted(d->schema.tableName() + '_' + index.name.toUtf8()) + " ON " + d->table()
            + (index.isInverted ? " USING gin (" : " (") + keys.join(", ") + ')';
        if (!included.isEmpty())
            text += " INCLUDE (" + included.join(", ") + ')';
        if (!d->run(text, error))
            return false;
    }
    // Counts from an index alone need the map of what everybody sees.
    return d->run("VACUUM (ANALYZE) " + d->table(), error);
}
