#include <kestrixkit/search/KXSearchReading_p.h>

#include <algorithm>

#include <QUrl>

#include <kestrixkit/context/KXManagedObject.h>
#include <kestrixkit/foundation/KXDecimal.h>
#include <kestrixkit/search/KXSearchRank_p.h>

namespace {

constexpr int readingRowsPerLook = 1024;

/// A column as a text to be searched; numbers as people write them.
QByteArrayView readingText(KXColumnValue value, QByteArray &buffer)
{
    if (value.isNull())
        return {};
    if (!value.isReal())
        return value.utf8();
    buffer = KXTextWords::textOfNumber(value.real());
    return buffer;
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

QByteArray readingRank(KXManagedObject &object, const KXSearchPlan::Group &group)
{
    KXSearchRank rank;
    for (const KXSearchPlan::Rank &descriptor : group.ranks) {
        QVariant value;
        readingEachValue(object, descriptor.path, 0, [&value](const QVariant &found) { value = found; });
        rank.add(value, descriptor.ascending, descriptor.options);
    }
    return rank.bytes();
}

/// Words of one row between zeros, each once.
class ReadingWords
{
public:
    /// Of what take() has answered.
    [[nodiscard]] bool areAllAmong(const QByteArray &taken, const QString &text)
    {
        const auto &words = m_splitter.ofText(text);
        return std::all_of(words.begin(), words.end(),
            [&taken](QByteArrayView word) { return taken.contains(QByteArray(1, '\0') + word.toByteArray() + '\0'); });
    }
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
    ReadingWords words;
    for (const KXSearchPath &path : group.texts)
        readingEachValue(object, path, 0, [&words](const QVariant &value) { words.add(readingText(value)); });
    return { object.objectID().key(), readingRank(object, group), words.take() };
}

std::optional<KXSearchRowText> KXSearchReading::additionsTo(
    KXManagedObject &object, const KXSearchPlan::Group &group, quint64 texts)
{
    ReadingWords words;
    for (size_t i = 0; texts >> i; ++i) {
        if (texts >> i & 1)
            words.add(readingText(object.valueForKey(group.texts[i].attribute->name())));
    }
    const QByteArray now = words.take();
    for (size_t i = 0; texts >> i; ++i) {
        if (texts >> i & 1
            && !words.areAllAmong(now, readingText(object.committedValueForKey(group.texts[i].attribute->name()))))
            return std::nullopt;
    }
    return KXSearchRowText { object.objectID().key(), readingRank(object, group), now };
}

/// Of the texts and of the ranks that the row itself holds; to-one columns that a text's path of one step goes through.
std::vector<const KXPropertyDescription *> KXSearchReading::rowColumns() const
{
    std::vector<const KXPropertyDescription *> columns;
    for (const KXSearchPath &path : m_group.texts) {
        if (path.isDirect())
            columns.push_back(path.attribute);
        else if (isOwnLink(path))
            columns.push_back(path.steps[0]);
    }
    for (const KXSearchPlan::Rank &rank : m_group.ranks) {
        if (rank.path.isDirect())
            columns.push_back(rank.path.attribute);
    }
    return columns;
}

KXError KXSearchReading::readLinkedRanks(const std::vector<qint64> *keys)
{
    m_linkedRanks.clear();
    for (const KXSearchPlan::Rank &descriptor : m_group.ranks) {
        auto &found = m_linkedRanks.emplace_back();
        const KXSearchPath &path = descriptor.path;
        if (path.isDirect())
            continue;
        const auto take = [&](qint64 row, KXColumnValue value) {
            KXSearchRank rank;
            rank.add(*path.attribute, value, descriptor.ascending, descriptor.options);
            found[row] = rank.bytes();
        };
        if (KXError error = m_reader.linkedValues(*path.start, path.steps, *path.attribute, keys, take))
            return error;
    }
    return {};
}

/// Of a row with the values of rowColumns().
template <typename Values> void KXSearchReading::setRank(qint64 key, const Values &values, KXSearchRank &rank) const
{
    size_t column = 0;
    for (const KXSearchPath &path : m_group.texts)
        column += path.isDirect() || isOwnLink(path) ? 1 : 0;
    rank.clear();
    for (size_t i = 0; i < m_group.ranks.size(); ++i) {
        const KXSearchPlan::Rank &descriptor = m_group.ranks[i];
        if (descriptor.path.isDirect()) {
            rank.add(*descriptor.path.attribute, values(column++), descriptor.ascending, descriptor.options);
            continue;
        }
        const auto linked = m_linkedRanks[i].find(key);
        if (linked != m_linkedRanks[i].end())
            rank.addBytes(linked->second);
        else
            rank.add(QVariant(), descriptor.ascending, descriptor.options);
    }
}

KXError KXSearchReading::readAll(KXSearchBuilder &builder, const KXSearchStop &stop)
{
    if (KXError error = readLinkedRanks(nullptr))
        return error;
    struct ToOne
    {
        quint32 row;
        qint64 target;
    };
    std::vector<std::vector<ToOne>> toOne(m_group.texts.size());
    KXSearchRank rank;
    QByteArray buffer;
    const auto takeRow = [&](qint64 key, const auto &values) {
        const quint32 row = builder.rowCount();
        if (row % readingRowsPerLook == 0)
            stop.look();
        setRank(key, values, rank);
        builder.addRow(key, rank.bytes());
        size_t column = 0;
        for (size_t i = 0; i < m_group.texts.size(); ++i) {
            const KXSearchPath &path = m_group.texts[i];
            if (path.isDirect()) {
                builder.link(row, builder.addText(readingText(values(column++), buffer)));
            } else if (isOwnLink(path)) {
                if (const qint64 target = values(column++).integer())
                    toOne[i].push_back({ row, target });
            }
        }
    };
    if (KXError error = m_reader.rows(*m_group.entity, rowColumns(), nullptr, takeRow))
        return error;
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
        if (isOwnLink(path)) {
            for (const auto &[row, target] : toOne[i])
                link(row, target);
            continue;
        }
        int count = 0;
        const auto takeLink = [&](qint64 source, qint64 target) {
            if (count++ % readingRowsPerLook == 0)
                stop.look();
            if (const std::optional<quint32> row = builder.rowOf(source))
                link(*row, target);
        };
        if (KXError error = m_reader.links(*path.start, path.steps, nullptr, takeLink))
            return error;
    }
    return {};
}

/// The texts at the end of a path, each taken apart once.
KXError KXSearchReading::readTargets(const KXSearchPath &path, KXSearchBuilder &builder,
    std::unordered_map<qint64, quint32> &texts, const KXSearchStop &stop)
{
    QByteArray buffer;
    const auto take = [&](qint64 key, const auto &values) {
        if (texts.size() % readingRowsPerLook == 0)
            stop.look();
        texts[key] = builder.addText(readingText(values(0), buffer));
    };
    return m_reader.rows(*path.target()->root(), { path.attribute }, nullptr, take);
}

KXError KXSearchReading::readRows(const std::vector<qint64> &keys, std::vector<KXSearchRowText> &found)
{
    if (KXError error = readLinkedRanks(&keys))
        return error;
    // Values at the ends of paths by row.
    std::vector<std::unordered_map<qint64, std::vector<QByteArray>>> linked(m_group.texts.size());
    QByteArray buffer;
    for (size_t i = 0; i < m_group.texts.size(); ++i) {
        const KXSearchPath &path = m_group.texts[i];
        if (path.isDirect())
            continue;
        const auto take = [&](qint64 row, KXColumnValue value) {
            linked[i][row].push_back(readingText(value, buffer).toByteArray());
        };
        if (KXError error = m_reader.linkedValues(*path.start, path.steps, *path.attribute, &keys, take))
            return error;
    }
    KXSearchRank rank;
    ReadingWords words;
    const auto take = [&](qint64 key, const auto &values) {
        setRank(key, values, rank);
        size_t column = 0;
        for (size_t i = 0; i < m_group.texts.size(); ++i) {
            const KXSearchPath &path = m_group.texts[i];
            if (path.isDirect()) {
                words.add(readingText(values(column++), buffer));
                continue;
            }
            column += isOwnLink(path) ? 1 : 0;
            for (const QByteArray &text : linked[i][key])
                words.add(QByteArrayView(text));
        }
        found.push_back({ key, rank.bytes(), words.take() });
    };
    return m_reader.rows(*m_group.entity, rowColumns(), &keys, take);
}
