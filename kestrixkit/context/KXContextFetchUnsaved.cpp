// Which rows of a fetch SQL may be wrong about, because of what is unsaved in the context and its parents.

#include <kestrixkit/context/KXContextFetch_p.h>

#include <algorithm>

#include <kestrixkit/entity/KXModelPath.h>

using Access = KXObjectAccess;

/// Objects of the entity's family with unsaved changes that can be seen through the key.
void KXContextFetcher::addDirty(const KXEntityDescription *from, const QString &key, QSet<qint64> &dirty) const
{
    for (const KXChangeLedger *ledger : m_lineage) {
        for (const auto &[object, change] : ledger->changes()) {
            if (object->entity()->root() != from->root() || !object->isUpdated())
                continue;
            const KXPropertyDescription *property = object->entity()->property(key);
            if (property && change.changed.test(size_t(property->index())))
                dirty.insert(Access::key(object));
        }
    }
}

/// Rows at which the relationship starts, in the store, when it leads to one of the keys.
bool KXContextFetcher::step(const KXEntityDescription &entity, const KXPropertyDescription &relationship,
    const QSet<qint64> &reached, QSet<qint64> &from)
{
    QByteArray keys = "[";
    for (const qint64 key : reached)
        keys += QByteArray::number(key) + ',';
    keys[keys.size() - 1] = ']';
    const QByteArray list = "(SELECT value FROM json_each(?))";
    QByteArray sql;
    if (!relationship.joinTable().isEmpty())
        sql = "SELECT " + relationship.joinSource() + " FROM " + relationship.joinTable() + " WHERE "
            + relationship.joinTarget() + " IN " + list;
    else if (relationship.isToMany())
        sql = "SELECT " + relationship.inverse()->column() + " FROM " + relationship.destinationEntity()->table()
            + " WHERE kx_id IN " + list;
    else
        sql = "SELECT kx_id FROM " + entity.table() + " WHERE " + relationship.column() + " IN " + list;
    const KXStoreConnections::Reader reader = m_store->connections.reader(&m_error);
    if (!reader)
        return false;
    KXStatement statement = reader->prepare(sql);
    int code = SQLITE_ERROR;
    if (statement) {
        statement.bindText(1, std::string_view(keys.constData(), size_t(keys.size())));
        while ((code = statement.step()) == SQLITE_ROW)
            from.insert(statement.integer(0));
    }
    if (code != SQLITE_DONE)
        m_error = reader->lastError();
    return code == SQLITE_DONE;
}

/// Adds the rows of the fetched entity that see an unsaved change somewhere along the path. The path is followed
/// back from its end in the store; links that are themselves unsaved have made their own ends dirty.
bool KXContextFetcher::followBack(const KXModelPath &path, QSet<qint64> &affected)
{
    const std::vector<KXModelPath::Step> &steps = path.steps();
    QSet<qint64> reached;
    const auto addDeleted = [this, &reached](const KXEntityDescription *root) {
        for (const KXChangeLedger *ledger : m_lineage) {
            for (const KXContextHold &object : ledger->deletions()) {
                if (object->entity()->root() == root)
                    reached.insert(Access::key(object));
            }
        }
    };
    // A relationship without inverse does not become dirty when a member is deleted.
    if (!steps.empty() && steps.back().property->isRelationship() && !steps.back().property->inverse())
        addDeleted(steps.back().property->destinationEntity()->root());
    for (size_t i = steps.size(); i-- > 0;) {
        if (!reached.isEmpty()) {
            QSet<qint64> starts;
            if (!step(*steps[i].entity, *steps[i].property, reached, starts))
                return false;
            reached = starts;
        }
        addDirty(steps[i].entity, steps[i].property->name(), reached);
        if (i > 0) // a row that is deleted here still stands in the store, and whoever leads to it sees it there
            addDeleted(steps[i].entity->root());
    }
    affected.unite(reached);
    return true;
}

bool KXContextFetcher::findAffected()
{
    const auto isClean = [](const KXChangeLedger *ledger) { return ledger->isEmpty(); };
    if (std::all_of(m_lineage.begin(), m_lineage.end(), isClean))
        return true;
    for (const KXChangeLedger *ledger : m_lineage) {
        for (const auto *list : { &ledger->insertions(), &ledger->deletions() }) {
            for (const KXContextHold &object : *list) {
                if (object->entity()->root() == m_entity.root())
                    m_affected.insert(Access::key(object));
            }
        }
    }
    QStringList paths = m_request.predicate().keyPaths();
    for (const KXSortDescriptor &descriptor : m_request.sortDescriptors())
        paths.append(descriptor.keyPaths());
    for (const QString &path : paths) {
        if (!followBack(KXModelPath(m_entity, path), m_affected))
            return false;
    }
    return true;
}
