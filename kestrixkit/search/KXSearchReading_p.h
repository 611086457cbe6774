#pragma once

#include <kestrixkit/foundation/KXError.h>
#include <kestrixkit/search/KXSearchBuilder_p.h>
#include <kestrixkit/search/KXSearchPlan_p.h>
#include <kestrixkit/search/KXSearchRank_p.h>
#include <kestrixkit/store/KXRowReader_p.h>

class KXManagedObject;

/// What an index knows of one row: its rank, and its words, each between zeros.
struct KXSearchRowText
{
    qint64 key = 0;
    QByteArray rank;
    QByteArray words;
};

/// Reads what an index holds of one group. Of the reader's thread.
class KXSearchReading
{
public:
    KXSearchReading(KXRowReader &reader, const KXSearchPlan::Group &group)
        : m_reader(reader)
        , m_group(group)
    {
    }

    /// All rows of the group. Throws KXSearchStop::Stopped.
    [[nodiscard]] KXError readAll(KXSearchBuilder &builder, const KXSearchStop &stop);
    /// Those of the rows that there are, in the order of their keys.
    [[nodiscard]] KXError readRows(const std::vector<qint64> &keys, std::vector<KXSearchRowText> &rows);
    /// What an object says of itself.
    [[nodiscard]] static KXSearchRowText ofObject(KXManagedObject &object, const KXSearchPlan::Group &group);
    /// Its rank, and the words of those of its direct texts that are set in the bits; nullopt where a word that was
    /// among them when it was last saved is no more.
    [[nodiscard]] static std::optional<KXSearchRowText> additionsTo(
        KXManagedObject &object, const KXSearchPlan::Group &group, quint64 texts);

private:
    /// A path of one step whose column the row itself holds.
    [[nodiscard]] static bool isOwnLink(const KXSearchPath &path)
    {
        return path.steps.size() == 1 && path.steps[0]->isToOne();
    }
    [[nodiscard]] std::vector<const KXPropertyDescription *> rowColumns() const;
    [[nodiscard]] KXError readLinkedRanks(const std::vector<qint64> *keys);
    template <typename Values> void setRank(qint64 key, const Values &values, KXSearchRank &rank) const;
    [[nodiscard]] KXError readTargets(const KXSearchPath &path, KXSearchBuilder &builder,
        std::unordered_map<qint64, quint32> &texts, const KXSearchStop &stop);

    KXRowReader &m_reader;
    const KXSearchPlan::Group &m_group;
    // Of the descriptors through relationships: encoded values by row.
    std::vector<std::unordered_map<qint64, QByteArray>> m_linkedRanks;
};
