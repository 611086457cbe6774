// How a table of counts follows what its context announces.

#include <kestrixkit/counts/KXCountTable_p.h>

#include <algorithm>
#include <bit>

#include <kestrixkit/context/KXContextRows_p.h>
#include <kestrixkit/entity/KXModelPath.h>
#include <kestrixkit/foundation/KXLog.h>

using Object = KXManagedObject;

void KXCountTable::follow(const KXObjectsDidChange &did)
{
    KXError error;
    if (!m_hasRows || !update(&error))
        return; // what is read later is read as it then is
    followObjects(did);
    if (did.merged)
        followMerge(*did.merged);
    followRelated(did);
    markForStore(did);
    if (m_dead > countDeadAllowed && m_dead * 4 > m_keys.size())
        compact();
}

void KXCountTable::followObjects(const KXObjectsDidChange &did)
{
    for (const KXRef<Object> &object : did.inserted) {
        if (!object->entity()->isKindOf(&m_entity) || object->isDeleted())
            continue;
        changeRow(object->objectID().key(), [&](qint64) {
            const size_t row = addRow(object->objectID().key());
            for (size_t column = 0; column < m_columns.size(); ++column)
                setFromObject(row, object.get(), column);
        });
        m_evaluations += m_rules.size();
    }
    for (const KXRef<Object> &object : did.deleted) {
        if (!object->entity()->isKindOf(&m_entity))
            continue;
        changeRow(object->objectID().key(), [&](qint64 row) {
            if (has(row))
                bury(size_t(row));
        });
        m_evaluations += m_rules.size();
    }
    std::vector<size_t> columns;
    for (const auto *list : { &did.updated, &did.refreshed }) {
        for (const KXRef<Object> &object : *list) {
            if (!object->entity()->isKindOf(&m_entity) || object->isDeleted())
                continue;
            columns.clear();
            const auto keys = did.changedKeys.constFind(object.get());
            if (keys == did.changedKeys.constEnd())
                continue;
            for (const QString &key : *keys) {
                if (const auto column = m_columnsByName.find(key); column != m_columnsByName.end())
                    columns.push_back(column->second);
            }
            if (columns.empty())
                continue;
            changeRow(object->objectID().key(), [&](qint64 row) {
                for (size_t i = 0; i < columns.size() && has(row); ++i)
                    setFromObject(size_t(row), object.get(), columns[i]);
            });
            noteEvaluations(columns);
        }
    }
}

void KXCountTable::followMerge(const KXStoreChange &change)
{
    const KXContextRows rows(m_context);
    std::vector<qint64> inserted;
    std::vector<size_t> columns;
    for (const KXEntityChange &entity : change.entities()) {
        if (!entity.entity->isKindOf(&m_entity))
            continue;
        std::copy_if(entity.inserted.begin(), entity.inserted.end(), std::back_inserter(inserted),
            [&](qint64 key) { return !rows.held(key) || !rows.held(key)->isDeleted(); });
        for (const qint64 key : entity.deleted) {
            changeRow(key, [&](qint64 row) {
                if (has(row))
                    bury(size_t(row));
            });
        }
        for (const KXRowChange &news : entity.updated) {
            if (!has(rowOf(news.key)))
                continue;
            // What the context holds may have edits of its own.
            Object *held = rows.held(news.key);
            if (held && held->isFault())
                held = nullptr;
            columns.clear();
            changeRow(news.key, [&](qint64 row) {
                for (const KXPropertyChange &property : news.properties) {
                    for (size_t i = 0; i < m_columns.size(); ++i) {
                        if (m_columns[i]->property().name() != property.property->name())
                            continue;
                        columns.push_back(i);
                        if (held)
                            setFromObject(size_t(row), held, i);
                        else
                            setFromChange(size_t(row), property, i);
                    }
                }
            });
            noteEvaluations(columns);
        }
    }
    if (!inserted.empty())
        expect(inserted);
}

void KXCountTable::setFromChange(size_t row, const KXPropertyChange &change, size_t column)
{
    KXCountColumn &values = *m_columns[column];
    if (change.property->isAttribute()) {
        if (values.setValue(row, change.newValue))
            noteOrder(column, row);
    } else if (change.property->isToOne()) {
        values.setKeys(row,
            change.newValue.isValid() ? std::vector<qint64> { change.newValue.toLongLong() } : std::vector<qint64>());
    } else {
        const std::vector<qint64> &before = values.keysAt(row);
        std::vector<qint64> keys(change.added.begin(), change.added.end());
        std::copy_if(before.begin(), before.end(), std::back_inserter(keys),
            [&](qint64 key) { return !change.removed.contains(key); });
        std::sort(keys.begin(), keys.end());
        keys.erase(std::unique(keys.begin(), keys.end()), keys.end());
        values.setKeys(row, keys);
    }
}

/// Rows that another context inserted; a change names their keys alone. They are read and counted by update().
void KXCountTable::expect(const std::vector<qint64> &keys)
{
    for (const qint64 key : keys) {
        if (has(rowOf(key)))
            changeRow(key, [&](qint64 row) { bury(size_t(row)); }); // it is read again
    }
    m_arrivals.insert(m_arrivals.end(), keys.begin(), keys.end());
    m_isSettled = false;
}

// Objects behind relationships

void KXCountTable::followRelated(const KXObjectsDidChange &did)
{
    for (size_t i = 0; i < m_columns.size(); ++i) {
        KXCountColumn &column = *m_columns[i];
        if (column.kind() != KXCountColumn::Kind::Relation)
            continue;
        for (size_t path = 0; path < column.pathCount(); ++path) {
            // At each step of the path the objects of one family; those of which the next key changed matter.
            const QStringList &rest = column.restOfPath(path);
            const KXEntityDescription &first = *column.property().destinationEntity();
            const std::vector<KXModelPath::Step> steps = KXModelPath(first, rest).steps();
            QSet<qint64> targets;
            for (qsizetype step = 0; step <= qsizetype(steps.size()); ++step) {
                const KXEntityDescription *entity
                    = step == 0 ? &first : steps[size_t(step - 1)].property->destinationEntity();
                const QSet<qint64> changed = entity ? did.touched(*entity, rest.value(step)) : QSet<qint64>();
                if (step == 0)
                    targets.unite(changed);
                else if (entity && !changed.isEmpty())
                    targets.unite(leadingTo(first, rest.first(step), *entity, changed));
            }
            if (targets.isEmpty())
                continue;
            changeSets(i, column.reread(path, targets));
        }
    }
}

/// Keys of the objects from which the path leads to one of those of the keys.
QSet<qint64> KXCountTable::leadingTo(const KXEntityDescription &from, const QStringList &path,
    const KXEntityDescription &to, const QSet<qint64> &keys) const
{
    QVariantList objects;
    for (const qint64 key : keys)
        objects.append(QVariant::fromValue(
            KXManagedObjectID(m_context.persistentStoreCoordinator()->store()->identity(), &to, key)));
    const KXFetchedList found = m_context.fetch(KXFetchRequest(from.name(),
        KXPredicate::comparison(path.join(u'.'), KXPredicateOperator::In, objects, KXPredicateModifier::Any)));
    return QSet<qint64>(found.keys().begin(), found.keys().end());
}

/// The sets reach other values now: their rows are counted out, and in again.
void KXCountTable::changeSets(size_t column, const std::vector<quint32> &sets)
{
    if (sets.empty())
        return;
    const QSet<quint32> wanted(sets.begin(), sets.end());
    KXCountColumn &values = *m_columns[column];
    std::vector<qint64> rows;
    for (size_t row = 0; row < m_keys.size(); ++row) {
        if (m_alive[row] && wanted.contains(values.codeAt(row)))
            rows.push_back(qint64(row));
    }
    KXCountBits none(m_words), row(m_words);
    for (const qint64 each : rows) {
        bits(each, row.data());
        count(row.data(), true, none.data(), false);
        for (KXCountWatcher *watcher : m_watchers)
            watcher->rowLeaves(size_t(each));
    }
    values.reclassify(sets);
    for (KXCountWatcher *watcher : m_watchers)
        watcher->setsDidChange(values, sets);
    for (const qint64 each : rows) {
        bits(each, row.data());
        count(none.data(), false, row.data(), true);
        for (KXCountWatcher *watcher : m_watchers)
            watcher->rowEnters(size_t(each));
    }
}

// Rules that the store counts

void KXCountTable::markForStore(const KXObjectsDidChange &did)
{
    const auto mentions = [](const Rule &rule, const auto &keys) {
        return std::any_of(keys.begin(), keys.end(), [&](const QString &key) { return rule.allKeys.contains(key); });
    };
    static const std::vector<KXEntityChange> none;
    for (const int number : m_byStore) {
        Rule &rule = m_rules[size_t(number)];
        bool concerned = !did.inserted.isEmpty() || !did.deleted.isEmpty();
        for (auto keys = did.changedKeys.cbegin(); keys != did.changedKeys.cend() && !concerned; ++keys)
            concerned = mentions(rule, *keys);
        for (const KXEntityChange &entity : did.merged ? did.merged->entities() : none) {
            concerned = concerned || !entity.inserted.isEmpty() || !entity.deleted.isEmpty();
            for (const KXRowChange &row : entity.updated) {
                concerned = concerned
                    || std::any_of(row.properties.begin(), row.properties.end(),
                        [&](const KXPropertyChange &news) { return rule.allKeys.contains(news.property->name()); });
            }
        }
        if (concerned)
            m_isSettled = rule.isCounted = false;
    }
}

void KXCountTable::noteEvaluations(const std::vector<size_t> &columns)
{
    for (size_t word = 0; word < m_words; ++word) {
        quint64 slots = 0;
        for (const size_t column : columns)
            slots |= m_columns[column]->users()[word];
        m_evaluations += quint64(std::popcount(slots));
    }
}
