#include <kestrixkit/catalogue/KXPostgreSQLCatalogue.h>

#include <algorithm>
#include <cmath>
#include <map>

#include <QMap>

#include <kestrixkit/catalogue/KXPostgreSQLDialect.h>
#include <kestrixkit/catalogue/KXPostgreSQLLoop_p.h>
#include <kestrixkit/foundation/KXCheck.h>
#include <kestrixkit/foundation/KXDelayedCall.h>
#include <kestrixkit/foundation/KXMainQueue.h>
#include <kestrixkit/foundation/KXStringWithFormat.h>
#include <kestrixkit/predicate/KXPredicateValue_p.h>

using namespace Qt::StringLiterals;

namespace {

using CatalogueClock = std::chrono::steady_clock;

constexpr double catalogueLongestLimit = 60; // seconds; servers end statements after that by themselves
constexpr double catalogueGrace = 0.1; // seconds; for what the parts said to come to this thread

/// One key of a page's order, as rows of several parts are merged by it.
struct CatalogueSortKey
{
    KXCatalogueColumn column;
    bool ascending;
    bool nullsFirst;
};

QList<CatalogueSortKey> catalogueSortKeys(const KXCatalogueSchema &schema, const QList<KXSortDescriptor> &descriptors)
{
    QList<CatalogueSortKey> keys;
    for (const KXSortDescriptor &descriptor : descriptors) {
        const KXCatalogueColumn *column = schema.columnForKeyPath(descriptor.key);
        keys.append({ *column, descriptor.ascending, descriptor.ascending && !descriptor.absentLast });
        if (descriptor.key == KXCatalogueSchema::identifierKeyPath)
            return keys;
    }
    const bool ascending = keys.isEmpty() || keys.first().ascending;
    keys.append({ *schema.identifier(), ascending, ascending });
    return keys;
}

bool catalogueComesBefore(const QList<CatalogueSortKey> &keys, const QVariantList &a, const QVariantList &b)
{
    for (qsizetype i = 0; i < keys.size(); ++i) {
        const bool hasA = a[i].isValid();
        const bool hasB = b[i].isValid();
        if (hasA != hasB)
            return hasA != keys[i].nullsFirst;
        if (const int order = hasA ? KXCompareForSorting(a[i], b[i]) : 0)
            return keys[i].ascending ? order < 0 : order > 0;
    }
    return false;
}

}

class KXPostgreSQLCataloguePrivate : public std::enable_shared_from_this<KXPostgreSQLCataloguePrivate>
{
public:
    /// What several parts said, until all have, or the time is up.
    struct Request
    {
        std::shared_ptr<bool> isOver = std::make_shared<bool>(false);
        CatalogueClock::time_point began = CatalogueClock::now();
        std::vector<std::optional<KXPostgreSQLReply>> replies;
        QStringList names; // of the parts
        std::function<void(Request &)> finish; // once, out of the table of requests
        KXDelayedCall timer;

        [[nodiscard]] bool isComplete() const
        {
            return std::all_of(replies.begin(), replies.end(), [](const auto &each) { return each.has_value(); });
        }

        /// Fills what all answers have in common.
        void fill(KXCatalogueAnswer &answer) const
        {
            answer.seconds = std::chrono::duration<double>(CatalogueClock::now() - began).count();
            KXError first;
            bool hasAny = false;
            for (size_t part = 0; part < replies.size(); ++part) {
                const auto &reply = replies[part];
                if (reply && !reply->error) {
                    hasAny = true;
                    continue;
                }
                const KXError error = reply
                    ? reply->error
                    : KXError(KXKestrixKitErrorDomain, KXCatalogueError::TimeLimit,
                        KXStringWithFormat(KXLocalizedString("The shop at %@ did not answer in time. Narrow the "
                                                             "search, or try again."),
                            names[qsizetype(part)]));
                answer.missing.append(error.localizedDescription());
                if (!first)
                    first = error;
            }
            if (!hasAny) {
                answer.error = first;
                answer.missing.clear();
            }
        }
    };

    KXPostgreSQLCataloguePrivate(const KXCatalogueServers &servers, KXCatalogueSchema schema)
        : dialect(std::move(schema))
        , servers(servers)
    {
    }

    /// Asks all parts; `finish` is called with what they said, unless the ticket is let go before.
    template <typename Asked>
    KXCatalogueTicket ask(const Asked &request, const std::optional<KXCatalogueStatement> &statement,
        const KXError &refusal, std::function<void(Request &)> finish)
    {
        const quint64 number = ++lastNumber;
        const auto asked = std::make_shared<Request>();
        const double limit = std::clamp(request.timeLimit, 0.0, catalogueLongestLimit);
        asked->finish = std::move(finish);
        asked->replies.resize(statement ? size_t(servers.parts().size()) : 1);
        requests.emplace(number, asked);
        const std::weak_ptr self = weak_from_this();
        if (statement) {
            asked->timer.start(limit + catalogueGrace, [self, number] {
                if (const auto alive = self.lock())
                    alive->finish(number);
            });
            if (!loop)
                loop = std::make_unique<KXPostgreSQLLoop>(servers);
        } else {
            KXMainQueue::async([self, number, refusal] {
                if (const auto alive = self.lock())
                    alive->take(number, 0, { .error = refusal });
            });
        }
        const auto deadline = CatalogueClock::now()
            + std::chrono::duration_cast<CatalogueClock::duration>(std::chrono::duration<double>(limit));
        for (qsizetype part = 0; statement && part < servers.parts().size(); ++part) {
            asked->names.append(servers.parts()[part].first().name);
            loop->ask(number, part, *statement, deadline, [self, number, part](const KXPostgreSQLReply &reply) {
                KXMainQueue::async([self, number, part, reply] {
                    if (const auto alive = self.lock())
                        alive->take(number, part, reply);
                });
            });
        }
        return { asked->isOver, [self, number] {
                    if (const auto alive = self.lock())
                        alive->abandon(number);
                } };
    }

    void take(quint64 number, qsizetype part, KXPostgreSQLReply reply)
    {
        const auto found = requests.find(number);
        if (found == requests.end())
            return;
        found->second->replies[size_t(part)] = std::move(reply);
        if (found->second->isComplete())
            finish(number);
    }

    void finish(quint64 number)
    {
        const auto found = requests.find(number);
        if (found == requests.end())
            return;
        const auto asked = found->second;
        if (asked->isComplete())
            requests.erase(found);
        else
            abandon(number);
        *asked->isOver = true;
        asked->finish(*asked);
    }

    void abandon(quint64 number)
    {
        requests.erase(number);
        if (loop)
            loop->abandon(number);
    }

    KXPostgreSQLDialect dialect;
    const KXCatalogueServers servers;
    double sampleShare = 1.0 / 64;

private:
    quint64 lastNumber = 0;
    std::map<quint64, std::shared_ptr<Request>> requests;
    std::unique_ptr<KXPostgreSQLLoop> loop;
};

KXPostgreSQLCatalogue::KXPostgreSQLCatalogue(const KXCatalogueServers &servers, KXCatalogueSchema schema)
    : d(std::make_shared<KXPostgreSQLCataloguePrivate>(servers, std::move(schema)))
{
}

KXPostgreSQLCatalogue::~KXPostgreSQLCatalogue() = default;

const KXCatalogueSchema &KXPostgreSQLCatalogue::schema() const { return d->dialect.schema(); }

const KXCatalogueDialect &KXPostgreSQLCatalogue::dialect() const { return d->dialect; }

void KXPostgreSQLCatalogue::setSampleShare(double share) { d->sampleShare = std::clamp(share, 1e-6, 1.0); }

namespace {

using CatalogueRequest = KXPostgreSQLCataloguePrivate::Request;

qint64 catalogueNumber(std::optional<QByteArrayView> text) { return text ? text->toLongLong() : 0; }

KXCatalogueCounts catalogueCounts(const CatalogueRequest &request, qsizetype facets, double share)
{
    KXCatalogueCounts counts;
    request.fill(counts);
    counts.facets.resize(facets);
    for (const auto &reply : request.replies) {
        if (!reply || reply->error)
            continue;
        const auto number = [&reply](qsizetype at) { return catalogueNumber(reply->text(0, int(at))); };
        counts.count += number(0);
        for (qsizetype i = 0; i < facets; ++i)
            counts.facets[i] += number(i + 1);
    }
    if (share < 1) {
        counts.isEstimate = true;
        // Blocks of rows resemble each other, so twice what single rows would vary by.
        counts.margin = 4 * std::sqrt(double(counts.count) + 1) / share;
        counts.count = qint64(double(counts.count) / share);
        for (qint64 &facet : counts.facets)
            facet = qint64(double(facet) / share);
    }
    return counts;
}

/// Parts are added value by value.
KXCatalogueValues catalogueValues(const CatalogueRequest &request, const KXCatalogueColumn &column)
{
    KXCatalogueValues values;
    request.fill(values);
    QMap<std::optional<QByteArray>, qint64> counts;
    for (const auto &reply : request.replies) {
        if (!reply || reply->error)
            continue;
        if (reply->rowCount() > KXCatalogueValuesRequest::MostValues)
            values.error = KXError(KXKestrixKitErrorDomain, KXCatalogueError::Refused,
                KXStringWithFormat(
                    KXLocalizedString("\"%@\" has too many values to be listed. Narrow the search."), column.keyPath));
        for (int row = 0; row < reply->rowCount(); ++row) {
            const auto value = reply->text(row, 0);
            counts[value ? std::optional(value->toByteArray()) : std::nullopt] += catalogueNumber(reply->text(row, 1));
        }
    }
    for (auto entry = counts.cbegin(); entry != counts.cend(); ++entry)
        values.values.append({ KXPostgreSQLDialect::valueFromText(entry.key(), column), entry.value() });
    std::sort(values.values.begin(), values.values.end(), [](const auto &a, const auto &b) {
        return a.count != b.count ? a.count > b.count : KXCompareForSorting(a.value, b.value) < 0;
    });
    return values;
}

QVariant catalogueKeyValue(std::optional<QByteArrayView> text, const KXCatalogueColumn &column)
{
    // To the microsecond, which dates here do not have: rows would be left out or come again.
    if (text && column.type == KXCatalogueType::Date)
        return text->toLongLong();
    return KXPostgreSQLDialect::valueFromText(text, column);
}

KXCataloguePage cataloguePage(
    const CatalogueRequest &request, const KXCataloguePageRequest &asked, const KXPostgreSQLDialect &dialect)
{
    KXCataloguePage page;
    request.fill(page);
    if (page.error)
        return page;
    const KXCatalogueSchema &schema = dialect.schema();
    const QList<CatalogueSortKey> keys = catalogueSortKeys(schema, asked.sortDescriptors);
    const QList<qsizetype> fields = dialect.keyFields(asked);
    QList<const KXCatalogueColumn *> shown;
    for (const QString &keyPath : asked.keyPaths)
        shown.append(schema.columnForKeyPath(keyPath));
    for (const auto &reply : request.replies) {
        if (!reply || reply->error)
            continue;
        const qsizetype before = page.rows.size();
        page.rows.reserve(before + reply->rowCount());
        for (int at = 0; at < reply->rowCount(); ++at) {
            KXCatalogueRow row;
            row.values.reserve(shown.size());
            row.key.reserve(keys.size());
            int field = 0;
            for (const KXCatalogueColumn *column : shown)
                row.values.append(KXPostgreSQLDialect::valueFromText(reply->text(at, field++), *column));
            for (qsizetype i = 0; i < keys.size(); ++i)
                row.key.append(catalogueKeyValue(reply->text(at, int(fields[i])), keys[i].column));
            page.rows.append(std::move(row));
        }
        std::inplace_merge(page.rows.begin(), page.rows.begin() + before, page.rows.end(),
            [&keys](
                const KXCatalogueRow &a, const KXCatalogueRow &b) { return catalogueComesBefore(keys, a.key, b.key); });
    }
    const qsizetype limit = std::clamp(asked.limit, 1, 10'000);
    page.isLast = page.rows.size() <= limit; // one more than asked for tells of the next page
    page.rows.resize(std::min(page.rows.size(), limit));
    return page;
}

}

KXCatalogueTicket KXPostgreSQLCatalogue::count(const KXCatalogueCountRequest &request, CountsAnswer answer)
{
    KXError refusal;
    const auto statement = d->dialect.countStatement(request, &refusal);
    return d->ask(request, statement, refusal,
        [answer = std::move(answer), facets = request.facets.size()](
            CatalogueRequest &asked) { answer(catalogueCounts(asked, facets, 1)); });
}

KXCatalogueTicket KXPostgreSQLCatalogue::estimate(const KXCatalogueCountRequest &request, CountsAnswer answer)
{
    KXError refusal;
    const double share = d->sampleShare;
    const auto statement = d->dialect.sampleStatement(request, share, &refusal);
    return d->ask(request, statement, refusal,
        [answer = std::move(answer), facets = request.facets.size(), share](
            CatalogueRequest &asked) { answer(catalogueCounts(asked, facets, share)); });
}

KXCatalogueTicket KXPostgreSQLCatalogue::values(const KXCatalogueValuesRequest &request, ValuesAnswer answer)
{
    KXError refusal;
    const auto statement = d->dialect.valuesStatement(request, &refusal);
    const KXCatalogueColumn *const column = schema().columnForKeyPath(request.keyPath);
    return d->ask(request, statement, refusal,
        [answer = std::move(answer), column = column ? *column : KXCatalogueColumn()](
            CatalogueRequest &asked) { answer(catalogueValues(asked, column)); });
}

KXCatalogueTicket KXPostgreSQLCatalogue::page(const KXCataloguePageRequest &request, PageAnswer answer)
{
    KXError refusal;
    const auto statement = d->dialect.pageStatement(request, &refusal);
    return d->ask(request, statement, refusal,
        [answer = std::move(answer), request, dialect = d->dialect](
            CatalogueRequest &asked) { answer(cataloguePage(asked, request, dialect)); });
}
