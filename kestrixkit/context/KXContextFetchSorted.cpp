// Orders that are made here, because SQLite would take several times as long.

#include <algorithm>
#include <array>
#include <cstring>
#include <string_view>
#include <variant>

#include <QtEndian>

#include <kestrixkit/context/KXContextFetch_p.h>
#include <kestrixkit/predicate/KXTextFolding_p.h>

namespace {

/// Beyond so many SQLite sorts, with a file for what does not fit into its memory.
constexpr size_t sortedTextsAtMost = 8'000'000;

struct FoldedRow
{
    qint64 key;
    size_t at; ///< where the text begins among all
    size_t size; ///< bytes
    quint64 word = 0; ///< eight bytes of the text, the first on top
    quint32 left = 0; ///< bytes of it from there on, at most nine
};

/// Texts in the order of their bytes, which is that of code points; equal ones by their keys. Word by word: rows that
/// agree in one are put in order by the next, so that texts are read one after the other.
class FoldedOrder
{
public:
    FoldedOrder(const char *texts, bool ascending)
        : m_texts(texts)
        , m_ascending(ascending)
    {
    }

    void sort(std::span<FoldedRow> rows, size_t from = 0) const
    {
        for (FoldedRow &row : rows)
            look(row, from);
        std::sort(rows.begin(), rows.end(), [this](const FoldedRow &a, const FoldedRow &b) {
            if (a.word != b.word)
                return (a.word < b.word) == m_ascending;
            return a.left != b.left ? (a.left < b.left) == m_ascending : a.key < b.key;
        });
        for (size_t i = 0, end = 0; i < rows.size(); i = end) {
            for (end = i + 1; end < rows.size() && rows[end].word == rows[i].word && rows[end].left == rows[i].left;)
                ++end;
            if (rows[i].left <= sizeof(quint64) || end - i == 1)
                continue;
            const std::span<FoldedRow> alike = rows.subspan(i, end - i);
            if (from + sizeof(quint64) < wordwise)
                sort(alike, from + sizeof(quint64));
            else
                sortWhole(alike);
        }
    }

private:
    static constexpr size_t wordwise = 128; // bytes

    void sortWhole(std::span<FoldedRow> rows) const
    {
        std::sort(rows.begin(), rows.end(), [this](const FoldedRow &a, const FoldedRow &b) {
            const std::string_view ofA(m_texts + a.at, a.size), ofB(m_texts + b.at, b.size);
            return ofA != ofB ? (ofA < ofB) == m_ascending : a.key < b.key;
        });
    }
    void look(FoldedRow &row, size_t from) const
    {
        row.left = quint32(std::min(row.size - from, sizeof row.word + 1));
        row.word = 0;
        std::memcpy(&row.word, m_texts + row.at + from, std::min<size_t>(row.left, sizeof row.word));
        row.word = qFromBigEndian(row.word);
    }

    const char *const m_texts;
    const bool m_ascending;
};

}

/// The attribute by which all rows are sorted, where that is better done here; nullptr for other requests.
const KXPropertyDescription *KXContextFetcher::sortedHere() const
{
    const QList<KXSortDescriptor> &order = m_request.sortDescriptors();
    if (order.size() != 1 || m_request.fetchLimit() > 0 || m_request.fetchOffset() > 0 || !order[0].memberKey.isEmpty())
        return nullptr;
    const KXPropertyDescription *property = m_entity.property(order[0].key);
    if (!property || property->isRelationship())
        return nullptr;
    constexpr std::array types { KXAttributeType::Integer16, KXAttributeType::Integer32, KXAttributeType::Integer64,
        KXAttributeType::Double, KXAttributeType::Date, KXAttributeType::String };
    const bool isFalling = property->isIndexedForSorting(order[0].options) && !order[0].ascending
        && std::find(types.begin(), types.end(), property->type()) != types.end();
    const bool isFolded = property->type() == KXAttributeType::String && order[0].options != 0
        && !property->isIndexedForSorting(order[0].options);
    return isFalling || isFolded ? property : nullptr;
}

bool KXContextFetcher::querySorted(const KXPropertyDescription &attribute, std::vector<qint64> &keys)
{
    const KXSortDescriptor &order = m_request.sortDescriptors()[0];
    const bool isText = attribute.type() == KXAttributeType::String;
    const bool isFalling = attribute.isIndexedForSorting(order.options);
    QByteArray value = "t0." + attribute.column();
    if (isFalling && isText && order.options != 0)
        value = "kx_fold(" + value + ", " + QByteArray::number(order.options) + ')';
    int code = SQLITE_ERROR;
    {
        const KXStoreConnections::Reader reader = m_store->connections.reader(&m_error);
        if (!reader)
            return false;
        KXStatement statement = reader->prepare("SELECT t0.kx_id, " + value + " FROM " + m_entity.table() + " t0"
            + where(true) + (isFalling ? " ORDER BY " + value + " DESC, t0.kx_id DESC" : QByteArray()));
        if (statement) {
            m_predicate.bind(statement.get(), 1);
            code = isFalling ? readFalling(statement, attribute, keys) : readFolded(statement, keys);
        }
        if (code != SQLITE_DONE && code != SQLITE_ROW)
            m_error = reader->lastError();
    }
    return code == SQLITE_ROW ? query(select(), { &m_predicate, &m_order }, keys) : code == SQLITE_DONE;
}

/// Read backwards an index has equal values' keys backwards, too.
int KXContextFetcher::readFalling(
    KXStatement &statement, const KXPropertyDescription &attribute, std::vector<qint64> &keys) const
{
    using Value = std::variant<std::monostate, qint64, double, QByteArray>; // absent, or as it is stored
    Value last;
    size_t first = 0; // of equal values
    int code = SQLITE_ROW;
    while ((code = statement.step()) == SQLITE_ROW) {
        Value next;
        if (!statement.isNull(1)) {
            if (attribute.type() == KXAttributeType::String)
                next = statement.bytes(1);
            else if (attribute.type() == KXAttributeType::Double)
                next = statement.real(1);
            else
                next = statement.integer(1);
        }
        if (next != last) {
            std::reverse(keys.begin() + ptrdiff_t(first), keys.end());
            first = keys.size();
            last = std::move(next);
        }
        keys.push_back(statement.integer(0));
    }
    std::reverse(keys.begin() + ptrdiff_t(first), keys.end());
    return code;
}

/// SQLITE_ROW where there are more than are sorted here.
int KXContextFetcher::readFolded(KXStatement &statement, std::vector<qint64> &keys) const
{
    const KXSortDescriptor &order = m_request.sortDescriptors()[0];
    std::vector<FoldedRow> rows;
    std::vector<qint64> absent;
    QByteArray texts;
    int code = SQLITE_ROW;
    while ((code = statement.step()) == SQLITE_ROW) {
        if (rows.size() == sortedTextsAtMost)
            return code;
        if (statement.isNull(1)) {
            absent.push_back(statement.integer(0));
            continue;
        }
        const auto at = size_t(texts.size());
        KXTextFolding::appendFolded(statement.utf8(1), order.options, texts);
        rows.push_back({ statement.integer(0), at, size_t(texts.size()) - at });
    }
    FoldedOrder(texts.constData(), order.ascending).sort(rows);
    std::sort(absent.begin(), absent.end());
    keys.reserve(rows.size() + absent.size());
    const bool isAbsentFirst = order.ascending && !order.absentLast;
    if (isAbsentFirst)
        keys = absent;
    for (const FoldedRow &row : rows)
        keys.push_back(row.key);
    if (!isAbsentFirst)
        keys.insert(keys.end(), absent.begin(), absent.end());
    return code;
}
