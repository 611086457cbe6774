// Fetching and counting: SQL answers, and what is unsaved in the context is worked into its answer.

#include <algorithm>

#include <kestrixkit/context/KXContextFetch_p.h>
#include <kestrixkit/foundation/KXAbstractOperation.h>
#include <kestrixkit/foundation/KXException.h>
#include <kestrixkit/foundation/KXLog.h>
#include <kestrixkit/foundation/KXStringWithFormat.h>
#include <kestrixkit/predicate/KXPredicateCheck_p.h>
#include <kestrixkit/predicate/KXPredicateEvaluator_p.h>
#include <kestrixkit/store/KXRowReader_p.h>

using namespace Qt::StringLiterals;

using Access = KXObjectAccess;
using Object = KXManagedObject;

KXContextFetcher::KXContextFetcher(KXManagedObjectContextPrivate &context, const KXFetchRequest &request)
    : m_context(context)
    , m_store(context.store)
    , m_request(request)
    , m_entity(context.entity(request.entityName()))
    , m_sortOrder(request.sortDescriptors())
{
    context.checkThread();
    for (KXManagedObjectContextPrivate *each = &context; each;
         each = each->parent ? &KXManagedObjectContextPrivate::of(*each->parent) : nullptr)
        m_lineage.push_back(&each->ledger);
    if (!m_store)
        m_error = KXPersistentStorePrivate::notOpen();
}

bool KXContextFetcher::compile()
{
    if (m_error)
        return false;
    const quint64 serial = m_store->identity->serial;
    m_predicate = KXPredicateSQL::compile(m_request.predicate(), m_entity, serial);
    if (!m_request.sortDescriptors().isEmpty())
        m_order = KXPredicateSQL::compileOrder(m_request.sortDescriptors(), m_entity);
    for (const KXPredicateSQL *part : { &m_predicate, &m_order }) {
        if (part->status == KXPredicateSQL::UnknownKey)
            m_error = KXError(KXKestrixKitErrorDomain, KXStoreErrorCode::UnknownKey, part->reason);
    }
    if (const QString misfit = KXPredicateCheck::misfit(m_request.predicate(), m_entity); !m_error && !misfit.isEmpty())
        m_error = KXError(KXKestrixKitErrorDomain, KXStoreErrorCode::NotComparable, misfit);
    return !m_error && findAffected();
}

void KXContextFetcher::throwIfMistake(const KXError &error)
{
    if (error.code() == KXStoreErrorCode::UnknownKey && error.domain() == KXKestrixKitErrorDomain)
        throw KXException(QString(KXUnknownKeyException), error.localizedDescription());
}

void KXContextFetcher::reportOf(const QString &subject, const KXError &error)
{
    throwIfMistake(error);
    KXLogError(store, "%@: %@", subject, error);
}

void KXContextFetcher::reportOf(const QString &name, const KXPredicate &predicate, const KXError &error)
{
    throwIfMistake(error);
    KXLogError(store, "%@: %@ %@", name, predicate.predicateFormat(), error);
}

void KXContextFetcher::report(KXError *slot) const
{
    KXSetError(slot, m_error);
    if (slot)
        return;
    throwIfMistake(m_error);
    KXLogError(store, "Cannot fetch \"%@\": %@", m_request.entityName(), m_error);
}

// Asking SQL

QByteArray KXContextFetcher::where(bool withPredicate) const
{
    QByteArray text = KXEntityCondition(m_entity);
    if (withPredicate && m_request.predicate())
        text += (text.isEmpty() ? "" : " AND ") + QByteArray("(") + m_predicate.text + ')';
    return text.isEmpty() ? text : " WHERE " + text;
}

/// The keys of all rows in their order; with the values of the predicate, then of the order.
QByteArray KXContextFetcher::select() const
{
    return "SELECT t0.kx_id FROM " + m_entity.table() + " t0" + where(true)
        + (m_order.text.isEmpty() ? QByteArray() : " ORDER BY " + m_order.text);
}

bool KXContextFetcher::query(
    const QByteArray &sql, const std::vector<const KXPredicateSQL *> &parts, std::vector<qint64> &numbers)
{
    const KXStoreConnections::Reader reader = m_store->connections.reader(&m_error);
    if (!reader)
        return false;
    KXStatement statement = reader->prepare(sql);
    int code = SQLITE_ERROR;
    if (statement) {
        int parameter = 1;
        for (const KXPredicateSQL *part : parts) {
            part->bind(statement.get(), parameter);
            parameter += int(part->values.size());
        }
        while ((code = statement.step()) == SQLITE_ROW)
            numbers.push_back(statement.integer(0));
    }
    if (code != SQLITE_DONE)
        m_error = reader->lastError();
    return code == SQLITE_DONE;
}

// In memory

bool KXContextFetcher::isWanted(qint64 key, KXRef<Object> &object)
{
    object = m_context.reader.object(m_entity, key);
    return object && object->entity()->isKindOf(&m_entity) && !object->isDeleted() && !object->isMissing()
        && (!m_request.predicate() || m_request.predicate().evaluateWithObject(object.get(), {}, &m_error));
}

void KXContextFetcher::cut(std::vector<qint64> &keys, const KXFetchRequest &request)
{
    const auto offset = std::min<size_t>(keys.size(), size_t(std::max<qint64>(0, request.fetchOffset())));
    keys.erase(keys.begin(), keys.begin() + ptrdiff_t(offset));
    if (request.fetchLimit() > 0 && keys.size() > size_t(request.fetchLimit()))
        keys.resize(size_t(request.fetchLimit()));
}

/// For what SQL cannot say: every object of the entity is looked at.
bool KXContextFetcher::fetchInMemory(std::vector<qint64> &keys)
{
    std::vector<qint64> all;
    if (!query("SELECT t0.kx_id FROM " + m_entity.table() + " t0" + where(false), {}, all))
        return false;
    for (const KXChangeLedger *ledger : m_lineage) {
        for (const KXContextHold &object : ledger->insertions()) {
            if (object->isInserted() && object->entity()->isKindOf(&m_entity))
                all.push_back(Access::key(object));
        }
    }
    std::vector<KXRef<Object>> objects;
    KXAbstractOperation *const current = KXAbstractOperation::current();
    const KXAbstractOperation *const operation = current && !current->isCancelled() ? current : nullptr;
    constexpr size_t batch = 1000;
    for (size_t from = 0; from < all.size(); from += batch) {
        const auto part = std::span(all).subspan(from, std::min(batch, all.size() - from));
        m_error = m_context.reader.fill(m_entity, part);
        if (m_error)
            return false;
        for (const qint64 key : part) {
            if (KXRef<Object> object; isWanted(key, object))
                objects.push_back(object);
            if (operation && operation->isCancelled()) // as a query is interrupted
                m_error = KXPredicateEvaluator::GivenUp { true }.error();
            if (m_error)
                return false;
        }
    }
    for (const KXSortedRow &row : m_sortOrder.sorted(objects))
        keys.push_back(Access::key(row.object()));
    cut(keys, m_request);
    return true;
}

bool KXContextFetcher::isInSQL() const
{
    return m_predicate.status != KXPredicateSQL::NotInSQL && m_order.status != KXPredicateSQL::NotInSQL;
}

bool KXContextFetcher::isAnsweredByStore() { return compile() && isInSQL() && m_affected.isEmpty(); }

bool KXContextFetcher::fetchFromStore(std::vector<qint64> &keys)
{
    QByteArray sql = select();
    const bool limited = m_request.fetchLimit() > 0 || m_request.fetchOffset() > 0;
    if (limited && m_affected.isEmpty()) {
        sql += " LIMIT " + QByteArray::number(m_request.fetchLimit() > 0 ? m_request.fetchLimit() : -1) + " OFFSET "
            + QByteArray::number(std::max<qint64>(0, m_request.fetchOffset()));
    }
    const KXPropertyDescription *own = sortedHere();
    return own ? querySorted(*own, keys) : query(sql, { &m_predicate, &m_order }, keys);
}

bool KXContextFetcher::fetch(std::vector<qint64> &keys)
{
    if (!compile())
        return false;
    if (!isInSQL())
        return fetchInMemory(keys);
    if (!fetchFromStore(keys))
        return false;
    if (m_affected.isEmpty())
        return true;

    std::erase_if(keys, [this](qint64 key) { return m_affected.contains(key); });
    std::vector<qint64> affected(m_affected.begin(), m_affected.end());
    std::sort(affected.begin(), affected.end());
    m_error = m_context.reader.fill(m_entity, affected);
    if (m_error)
        return false;
    std::vector<KXRef<Object>> wanted;
    for (const qint64 key : affected) {
        if (KXRef<Object> object; isWanted(key, object))
            wanted.push_back(object);
    }
    if (m_error)
        return false;
    if (!m_sortOrder.isEmpty()) {
        // Each affected object is put to its place among the others, which SQL has sorted.
        std::vector<qint64> merged;
        merged.reserve(keys.size() + wanted.size());
        size_t from = 0;
        for (const KXSortedRow &row : m_sortOrder.sorted(wanted)) {
            const size_t to = KXPlaceAmong(keys, from, keys.size() / wanted.size(), [&](qint64 key) {
                const KXRef<Object> other = m_context.reader.object(m_entity, key);
                return other && m_sortOrder.precedes(KXSortedRow(other.get()), row);
            });
            merged.insert(merged.end(), keys.begin() + ptrdiff_t(from), keys.begin() + ptrdiff_t(to));
            merged.push_back(Access::key(row.object()));
            from = to;
        }
        merged.insert(merged.end(), keys.begin() + ptrdiff_t(from), keys.end());
        keys.swap(merged);
    } else {
        for (const KXRef<Object> &object : wanted)
            keys.push_back(Access::key(object));
    }
    cut(keys, m_request);
    return true;
}

bool KXContextFetcher::count(qint64 &number)
{
    if (!compile())
        return false;
    if (m_predicate.status == KXPredicateSQL::NotInSQL) {
        std::vector<qint64> keys;
        if (!fetchInMemory(keys))
            return false;
        number = qint64(keys.size());
        return true;
    }
    std::vector<qint64> numbers;
    const QByteArray condition = where(true);
    if (!query("SELECT count(*) FROM " + m_entity.table() + " t0" + condition, { &m_predicate }, numbers))
        return false;
    number = numbers.front();
    if (!m_affected.isEmpty()) {
        // Without the affected rows that SQL counted, and with those that match as they are now.
        KXPredicateSQL keys;
        QByteArray list = "[";
        for (const qint64 key : m_affected)
            list += QByteArray::number(key) + ',';
        list[list.size() - 1] = ']';
        keys.values.push_back({ .type = KXSQLValue::Text, .bytes = list });
        numbers.clear();
        if (!query("SELECT count(*) FROM " + m_entity.table() + " t0" + condition
                    + (condition.isEmpty() ? " WHERE " : " AND ") + "t0.kx_id IN (SELECT value FROM json_each(?))",
                { &m_predicate, &keys }, numbers))
            return false;
        number -= numbers.front();
        const std::vector<qint64> affected(m_affected.begin(), m_affected.end());
        m_error = m_context.reader.fill(m_entity, affected);
        if (m_error)
            return false;
        for (const qint64 key : affected) {
            KXRef<Object> object;
            number += isWanted(key, object);
        }
        if (m_error)
            return false;
    }
    number = std::max<qint64>(0, number - std::max<qint64>(0, m_request.fetchOffset()));
    if (m_request.fetchLimit() > 0)
        number = std::min(number, m_request.fetchLimit());
    return true;
}

KXRef<Object> KXContextFetcher::objectAt(KXManagedObjectContextPrivate &context, const KXEntityDescription &entity,
    std::span<const qint64> keys, size_t place, size_t batchSize)
{
    const qint64 key = keys[place];
    if (const Object *object = context.reader.registered(key); !object || !Access::values(object)) {
        const size_t from = place / batchSize * batchSize;
        std::span<const qint64> batch = keys.subspan(from, std::min(batchSize, keys.size() - from));
        while (!batch.empty() && batch.back() <= 0) // the last rows of a list that is being put right may be nobody's
            batch = batch.first(batch.size() - 1);
        context.reader.fill(entity, batch);
    }
    return context.reader.object(entity, key);
}

KXFetchedList KXManagedObjectContextPrivate::fetch(const KXFetchRequest &request, KXError *error)
{
    KXContextFetcher fetcher(*this, request);
    std::vector<qint64> keys;
    if (!fetcher.fetch(keys)) {
        fetcher.report(error);
        return {};
    }
    keys.shrink_to_fit();
    return KXFetchedList(q->weak_from_this(), &fetcher.entity(), std::move(keys), request.fetchBatchSize());
}

qint64 KXManagedObjectContextPrivate::count(const KXFetchRequest &request, KXError *error)
{
    KXContextFetcher fetcher(*this, request);
    qint64 number = 0;
    if (!fetcher.count(number)) {
        fetcher.report(error);
        return -1;
    }
    return number;
}
