#include <kestrixkit/search/KXSearchReading_p.h>

#include <algorithm>

#include <QUrl>

#include <kestrixkit/context/KXManagedObject.h>
#include <kestrixkit/foundation/KXDecimal.h>
#include <kestrixkit/search/KXSearchRank_p.h>

namespace {

constexpr int readingRowsPerLook = 1024;

/// A column as a text to be searched; numbers as people write them.
QByteArrayView readingText(sqlite3_value *value, QByteArray &buffer)
{
    switch (sqlite3_value_type(value)) {
    case SQLITE_NULL:
        return {};
    case SQLITE_FLOAT:
        buffer = KXTextWords::textOfNumber(sqlite3_value_double(value));
        return buffer;
    default:
        const auto *utf8 = reinterpret_cast<const char *>(sqlite3_value_text(value));
        return { utf8, sqlite3_value_bytes(value) };
    }
}

QString readingText(const QVariant &value)
{
    switch (value.typeId()) {
    case QMetaType::UnknownType:
        return {};
    case QMetaType::QUrl:
        return QString::fromLatin1(value.toUrl().toEncoded());
    case QMetaType::Double:
        return QString::fromLatin1(KXTextWords::textOfNumber(value.toDouble()));
    default:
        return value.metaType() == QMetaType::fromType<KXDecimal>() ? value.value<KXDecimal>().toString()
                                                                    : value.toString();
    }
}

QByteArray readingFamily(const KXEntityDescription &entity)
{
    QByteArray numbers;
    for (const KXEntityDescription *member : entity.family())
        numbers += (numbers.isEmpty() ? "" : ",") + QByteArray::number(member->number());
    return "t0.kx_entity IN (" + numbers + ')';
}

/// Follows a key path, with a call for each value that it ends in.
template <typename Function>
void readingEachValue(KXManagedObject &object, const KXSearchPath &path, size_t step, Function &&function)
{
    if (step == path.steps.size()) {
        function(object.valueForKey(path.attribute->name()));
        return;
    }
    const KXPropertyDescription &next = *path.steps[step];
    if (next.isToOne()) {
        const auto other = object.valueForKey(next.name()).value<KXRef<KXManagedObject>>();
        if (other && !other->isDeleted() && !other->isMissing())
            readingEachValue(*other, path, step + 1, function);
        return;
    }
    for (const KXRef<KXManagedObject> &other : object.objectsForKey(next.name())) {
        if (other && !other->isDeleted() && !other->isMissing())
            readingEachValue(*other, path, step + 1, function);
    }
}

/// Words of one row between zeros, each once.
class ReadingWords
{
public:
    template <typename Text> void add(const Text &text)
    {
        for (const QByteArrayView word : m_splitter.ofText(text))
            m_words.push_back(word.toByteArray());
    }
    [[nodiscard]] QByteArray take()
    {
        std::sort(m_words.begin(), m_words.end());
        m_words.erase(std::unique(m_words.begin(), m_words.end()), m_words.end());
        QByteArray all(1, '\0');
        for (const QByteArray &word : m_words)
            all += word + '\0';
        m_words.clear();
        return all;
    }

private:
    KXTextWords::Splitter m_splitter;
    std::vector<QByteArray> m_words;
};

}

KXSearchRowText KXSearchReading::ofObject(KXManagedObject &object, const KXSearchPlan::Group &group)
{
    KXSearchRank rank;
    for (const KXSearchPlan::Rank &descriptor : group.ranks) {
        QVariant value;
        readingEachValue(object, descriptor.path, 0, [&value](const QVariant &found) { value = found; });
        rank.add(value, descriptor.ascending, descriptor.options);
    }
    ReadingWords words;
    for (const KXSearchPath &path : group.texts)
        readingEachValue(object, path, 0, [&words](const QVariant &value) { words.add(readingText(value)); });
    return { object.objectID().key(), rank.bytes(), words.take() };
}

/// Key, then the columns of the texts and of the ranks that the row itself holds; to-one columns that a text's path of
/// one step goes through.
QByteArray KXSearchReading::rowQuery() const
{
    QByteArray sql = "SELECT t0.kx_id";
    for (const KXSearchPath &path : m_group.texts) {
        if (path.isDirect())
            sql += ", t0." + path.attribute->column();
        else if (path.steps.size() == 1 && path.steps[0]->isToOne())
            sql += ", t0." + path.steps[0]->column();
    }
    for (const KXSearchPlan::Rank &rank : m_group.ranks) {
        if (rank.path.isDirect())
            sql += ", t0." + rank.path.attribute->column();
    }
    return sql + " FROM " + m_group.entity->table() + " t0";
}

/// Pairs of a row and the row that the path ends at, with the attribute there where it is wanted.
QByteArray KXSearchReading::linkQuery(const KXSearchPath &path, bool withValue, bool ofKeys)
{
    QByteArray from;
    QByteArray source;
    QByteArray current;
    const KXEntityDescription *entity = path.start;
    for (size_t i = 0; i < path.steps.size(); ++i) {
        const KXPropertyDescription *step = path.steps[i];
        const QByteArray alias = 't' + QByteArray::number(i);
        QByteArray table, entry, exit;
        if (step->isToOne()) { // the row that holds the column
            table = entity->table();
            entry = alias + ".kx_id";
            exit = alias + '.' + step->column();
        } else if (!step->joinTable().isEmpty()) {
            table = step->joinTable();
            entry = alias + '.' + step->joinSource();
            exit = alias + '.' + step->joinTarget();
        } else {
            table = step->destinationEntity()->table();
            entry = alias + '.' + step->inverse()->column();
            exit = alias + ".kx_id";
        }
        from += i == 0 ? table + ' ' + alias : " JOIN " + table + ' ' + alias + " ON " + entry + " = " + current;
        source = i == 0 ? entry : source;
        current = exit;
        entity = step->destinationEntity();
    }
    QByteArray sql = "SELECT " + source + ", " + current;
    if (withValue) {
        sql += ", tv." + path.attribute->column();
        from += " JOIN " + path.target()->table() + " tv ON tv.kx_id = " + current;
    }
    sql += " FROM " + from + " WHERE " + source;
    sql += ofKeys ? " IN (SELECT value FROM json_each(?))" : " IS NOT NULL";
    return sql;
}

KXError KXSearchReading::readLinkedRanks(const QByteArray &keyList)
{
    m_linkedRanks.clear();
    for (const KXSearchPlan::Rank &descriptor : m_group.ranks) {
        auto &values = m_linkedRanks.emplace_back();
        if (descriptor.path.isDirect())
            continue;
        KXStatement rows = m_connection.prepare(linkQuery(descriptor.path, true, !keyList.isNull()));
        if (!rows)
            return m_connection.lastError();
        if (!keyList.isNull())
            rows.bindText(1, std::string_view(keyList.constData(), size_t(keyList.size())));
        int code;
        while ((code = rows.step()) == SQLITE_ROW) {
            KXSearchRank rank;
            rank.add(*descriptor.path.attribute, sqlite3_column_value(rows.get(), 2), descriptor.ascending,
                descriptor.options);
            values[rows.integer(0)] = rank.bytes();
        }
        if (code != SQLITE_DONE)
            return m_connection.lastError();
    }
    return {};
}

/// Of the row that the statement of rowQuery() stands on.
void KXSearchReading::setRank(KXStatement &row, KXSearchRank &rank) const
{
    int column = 1;
    for (const KXSearchPath &path : m_group.texts)
        column += path.isDirect() || (path.steps.size() == 1 && path.steps[0]->isToOne()) ? 1 : 0;
    rank.clear();
    for (size_t i = 0; i < m_group.ranks.size(); ++i) {
        const KXSearchPlan::Rank &descriptor = m_group.ranks[i];
        if (descriptor.path.isDirect()) {
            rank.add(*descriptor.path.attribute, sqlite3_column_value(row.get(), column++), descriptor.ascending,
                descriptor.options);
            continue;
        }
        const auto linked = m_linkedRanks[i].find(row.integer(0));
        if (linked != m_linkedRanks[i].end())
            rank.addBytes(linked->second);
        else
            rank.add(QVariant(), descriptor.ascending, descriptor.options);
    }
}

KXError KXSearchReading::readAll(KXSearchBuilder &builder, const KXSearchStop &stop)
{
    if (KXError error = readLinkedRanks({}))
        return error;
    const bool isFamily = m_group.entity->hasDiscriminator();
    KXStatement rows = m_connection.prepare(
        rowQuery() + (isFamily ? " WHERE " + readingFamily(*m_group.entity) : QByteArray()) + " ORDER BY t0.kx_id");
    if (!rows)
        return m_connection.lastError();
    KXSearchRank rank;
    QByteArray buffer;
    struct ToOne
    {
        quint32 row;
        qint64 target;
    };
    std::vector<std::vector<ToOne>> toOne(m_group.texts.size());
    int code;
    while ((code = rows.step()) == SQLITE_ROW) {
        if (builder.rowCount() % readingRowsPerLook == 0)
            stop.look();
        const quint32 row = builder.rowCount();
        setRank(rows, rank);
        builder.addRow(rows.integer(0), rank.bytes());
        int column = 1;
        for (size_t i = 0; i < m_group.texts.size(); ++i) {
            const KXSearchPath &path = m_group.texts[i];
            if (path.isDirect()) {
                builder.link(row, builder.addText(readingText(sqlite3_column_value(rows.get(), column++), buffer)));
            } else if (path.steps.size() == 1 && path.steps[0]->isToOne()) {
                if (const qint64 target = rows.integer(column++))
                    toOne[i].push_back({ row, target });
            }
        }
    }
    if (code != SQLITE_DONE)
        return m_connection.lastError();
    rows = {};
    for (size_t i = 0; i < m_group.texts.size(); ++i) {
        const KXSearchPath &path = m_group.texts[i];
        if (path.isDirect())
            continue;
        std::unordered_map<qint64, quint32> texts;
        if (KXError error = readTargets(path, builder, texts, stop))
            return error;
        const auto link = [&](quint32 row, qint64 target) {
            if (const auto text = texts.find(target); text != texts.end())
                builder.link(row, text->second);
        };
        if (path.steps.size() == 1 && path.steps[0]->isToOne()) {
            for (const auto &[row, target] : toOne[i])
                link(row, target);
            continue;
        }
        KXStatement links = m_connection.prepare(linkQuery(path, false, false));
        if (!links)
            return m_connection.lastError();
        for (int count = 0; (code = links.step()) == SQLITE_ROW; ++count) {
            if (count % readingRowsPerLook == 0)
                stop.look();
            if (const std::optional<quint32> row = builder.rowOf(links.integer(0)))
                link(*row, links.integer(1));
        }
        if (code != SQLITE_DONE)
            return m_connection.lastError();
    }
    return {};
}

/// The texts at the end of a path, each taken apart once.
KXError KXSearchReading::readTargets(const KXSearchPath &path, KXSearchBuilder &builder,
    std::unordered_map<qint64, quint32> &texts, const KXSearchStop &stop)
{
    KXStatement rows
        = m_connection.prepare("SELECT kx_id, " + path.attribute->column() + " FROM " + path.target()->table());
    if (!rows)
        return m_connection.lastError();
    QByteArray buffer;
    int code;
    while ((code = rows.step()) == SQLITE_ROW) {
        if (texts.size() % readingRowsPerLook == 0)
            stop.look();
        texts[rows.integer(0)] = builder.addText(readingText(sqlite3_column_value(rows.get(), 1), buffer));
    }
    return code == SQLITE_DONE ? KXError() : m_connection.lastError();
}

KXError KXSearchReading::readRows(const std::vector<qint64> &keys, std::vector<KXSearchRowText> &found)
{
    QByteArray list = "[";
    for (const qint64 key : keys)
        list += QByteArray::number(key) + ',';
    if (list.size() > 1)
        list.chop(1);
    list += ']';
    const auto bind = [&list](KXStatement &statement) {
        statement.bindText(1, std::string_view(list.constData(), size_t(list.size())));
    };
    if (KXError error = readLinkedRanks(list))
        return error;
    // Values at the ends of paths by row.
    std::vector<std::unordered_map<qint64, std::vector<QByteArray>>> linked(m_group.texts.size());
    QByteArray buffer;
    int code;
    for (size_t i = 0; i < m_group.texts.size(); ++i) {
        if (m_group.texts[i].isDirect())
            continue;
        KXStatement links = m_connection.prepare(linkQuery(m_group.texts[i], true, true));
        if (!links)
            return m_connection.lastError();
        bind(links);
        while ((code = links.step()) == SQLITE_ROW) {
            linked[i][links.integer(0)].push_back(
                readingText(sqlite3_column_value(links.get(), 2), buffer).toByteArray());
        }
        if (code != SQLITE_DONE)
            return m_connection.lastError();
    }
    const bool isFamily = m_group.entity->hasDiscriminator();
    KXStatement rows = m_connection.prepare(rowQuery() + " WHERE t0.kx_id IN (SELECT value FROM json_each(?))"
        + (isFamily ? " AND " + readingFamily(*m_group.entity) : QByteArray()) + " ORDER BY t0.kx_id");
    if (!rows)
        return m_connection.lastError();
    bind(rows);
    KXSearchRank rank;
    ReadingWords words;
    while ((code = rows.step()) == SQLITE_ROW) {
        setRank(rows, rank);
        int column = 1;
        for (size_t i = 0; i < m_group.texts.size(); ++i) {
            const KXSearchPath &path = m_group.texts[i];
            if (path.isDirect()) {
                words.add(readingText(sqlite3_column_value(rows.get(), column++), buffer));
                continue;
            }
            column += path.steps.size() == 1 && path.steps[0]->isToOne() ? 1 : 0;
            for (const QByteArray &text : linked[i][rows.integer(0)])
                words.add(QByteArrayView(text));
        }
        found.push_back({ rows.integer(0), rank.bytes(), words.take() });
    }
    return code == SQLITE_DONE ? KXError() : m_connection.lastError();
}
