#pragma once

#include <kestrixkit/foundation/KXError.h>
#include <kestrixkit/search/KXSearchBuilder_p.h>
#include <kestrixkit/search/KXSearchPlan_p.h>
#include <kestrixkit/search/KXSearchRank_p.h>
#include <kestrixkit/store/KXSQLite_p.h>

class KXManagedObject;

/// What an index knows of one row: its rank, and its words, each between zeros.
struct KXSearchRowText
{
    qint64 key = 0;
    QByteArray rank;
    QByteArray words;
};

/// Reads what an index holds. Any thread; a connection by one at a time.
class KXSearchReading
{
public:
    KXSearchReading(KXSQLiteConnection &connection, const KXSearchPlan::Group &group)
        : m_connection(connection)
        , m_group(group)
    {
    }

    /// All rows of the group. Throws KXSearchStop::Stopped.
    [[nodiscard]] KXError readAll(KXSearchBuilder &builder, const KXSearchStop &stop);
    /// Those of the rows that there are, in the order of their keys.
    [[nodiscard]] KXError readRows(const std::vector<qint64> &keys, std::vector<KXSearchRowText> &rows);
    /// What an object says of itself.
    [[nodiscard]] static KXSearchRowText ofObject(KXManagedObject &object, const KXSearchPlan::Group &group);

private:
    [[nodiscard]] QByteArray rowQuery() const;
    [[nodiscard]] static QByteArray linkQuery(const KXSearchPath &path, bool withValue, bool ofKeys);
    [[nodiscard]] KXError readLinkedRanks(const QByteArray &keyList);
    void setRank(KXStatement &row, KXSearchRank &rank) const;
    [[nodiscard]] KXError readTargets(const KXSearchPath &path, KXSearchBuilder &builder,
        std::unordered_map<qint64, quint32> &texts, const KXSearchStop &stop);

    KXSQLiteConnection &m_connection;
    const KXSearchPlan::Group &m_group;
    // Of the descriptors through relationships: encoded values by row.
    std::vector<std::unordered_map<qint64, QByteArray>> m_linkedRanks;
};
