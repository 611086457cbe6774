#include <kestrixkit/migration/KXStoreCheck_p.h>

#include <kestrixkit/foundation/KXStringWithFormat.h>
#include <kestrixkit/migration/KXStoreMigration_p.h>
#include <kestrixkit/store/KXPersistentStore.h>
#include <kestrixkit/store/KXStoreProgress_p.h>
#include <kestrixkit/store/KXStoreSchema_p.h>
#include <kestrixkit/store/KXStoreTables_p.h>

using namespace Qt::StringLiterals;

namespace {

using CheckProperty = KXPropertyDescription;

class StoreChecker
{
public:
    explicit StoreChecker(KXSQLiteConnection &connection)
        : m_connection(connection)
    {
    }

    void sequence()
    {
        if (KXStoreSchema::nextKey(m_connection) == 0)
            m_lines.append(u"The sequence of keys is broken"_s);
    }

    void table(const KXEntityDescription &root)
    {
        expectNone("SELECT count(*) FROM " + root.table() + " WHERE kx_id >= (SELECT next FROM kx_sequence)",
            "%@ rows of %@ have keys that were never given out", root.name());
        if (root.hasDiscriminator())
            expectNone("SELECT count(*) FROM " + root.table() + " WHERE " + isNone(root),
                "%@ rows of %@ are of no entity", root.name());
        for (const KXEntityDescription *entity : root.family()) {
            for (const CheckProperty &property : entity->properties())
                check(*entity, property);
        }
    }

    [[nodiscard]] const QStringList &lines() const { return m_lines; }

private:
    void expectNone(const QByteArray &count, const char *format, const QString &subject)
    {
        if (const qint64 found = m_connection.integer(count, -1))
            m_lines.append(found < 0 ? KXStringWithFormat("%@ cannot be read", subject)
                                     : KXStringWithFormat(format, found, subject));
    }

    static QByteArray isNone(const KXEntityDescription &root)
    {
        QByteArrayList numbers;
        for (const KXEntityDescription *entity : root.family())
            numbers.append(QByteArray::number(entity->number()));
        return "kx_entity NOT IN (" + numbers.join(',') + ')';
    }

    static QByteArray isOf(const KXEntityDescription &entity, const QByteArray &alias)
    {
        return entity.hasDiscriminator() ? " AND " + alias + ".kx_entity = " + QByteArray::number(entity.number())
                                         : QByteArray();
    }

    void check(const KXEntityDescription &entity, const CheckProperty &property)
    {
        const QString name = entity.name() + u'.' + property.name();
        if (property.hasColumn() && !property.isOptional())
            expectNone("SELECT count(*) FROM " + entity.table() + " s WHERE s." + property.column() + " IS NULL"
                    + isOf(entity, "s"),
                "%@ rows have no value for %@", name);
        if (property.isAttribute()
            || !property.inverse()) // where nothing leads back, a key may lead to what was deleted
            return;
        const QByteArray other = property.destinationEntity()->table();
        if (property.isToOne()) {
            // Does the row at the other end exist, and lead back where only it can?
            const QByteArray back = property.inverse()->isToOne()
                ? " AND o." + property.inverse()->column() + " = s.kx_id"
                : QByteArray();
            expectNone("SELECT count(*) FROM " + entity.table() + " s WHERE s." + property.column() + " IS NOT NULL"
                    + isOf(entity, "s") + " AND NOT EXISTS(SELECT 1 FROM " + other + " o WHERE o.kx_id = s."
                    + property.column() + back + ')',
                "%@ links of %@ lead nowhere", name);
        } else if (!property.joinTable().isEmpty()) {
            expectNone("SELECT count(*) FROM " + property.joinTable() + " j JOIN " + entity.table()
                    + " s ON s.kx_id = j." + property.joinSource() + isOf(entity, "s")
                    + " WHERE NOT EXISTS(SELECT 1 FROM " + other + " o WHERE o.kx_id = j." + property.joinTarget()
                    + ')',
                "%@ links of %@ lead nowhere", name);
            if (property.inverseName() == property.name()) {
                expectNone("SELECT count(*) FROM " + property.joinTable() + " j WHERE NOT EXISTS(SELECT 1 FROM "
                        + property.joinTable() + " r WHERE r.a = j.b AND r.b = j.a)",
                    "%@ links of %@ lead one way only", name);
            }
        }
    }

    KXSQLiteConnection &m_connection;
    QStringList m_lines;
};

}

QStringList KXStoreCheck::damage(KXSQLiteConnection &connection, const KXStoreProgress &progress)
{
    // Each page is read about once.
    const KXStatementProgress shown(
        connection, progress, [&, pages = std::max<double>(1, double(connection.integer("PRAGMA page_count")))] {
            int misses = 0;
            int most = 0;
            sqlite3_db_status(connection.handle(), SQLITE_DBSTATUS_CACHE_MISS, &misses, &most, 0);
            return misses / pages;
        });
    QStringList lines;
    // The quick one does not look at what is in indexes.
    KXStatement check = connection.prepare(
        KXStoreTables::isFoldedByOthers(connection) ? "PRAGMA quick_check(20)" : "PRAGMA integrity_check(20)");
    int code = SQLITE_ERROR;
    while (check && (code = check.step()) == SQLITE_ROW)
        lines.append(check.text(0));
    if (code != SQLITE_DONE)
        lines.append(connection.lastError().localizedDescription());
    lines.removeAll(u"ok"_s);
    return lines;
}

QStringList KXStoreCheck::brokenPromises(
    KXSQLiteConnection &connection, const KXManagedObjectModel &model, const KXStoreProgress &progress)
{
    StoreChecker checker(connection);
    checker.sequence();
    double done = 0;
    for (const KXEntityDescription *entity : model.entities()) {
        if (progress)
            progress(done++ / double(model.entities().size()));
        if (!entity->parent())
            checker.table(*entity);
    }
    return checker.lines();
}

std::optional<QStringList> KXPersistentStore::problemsOfStoreURL(
    const QUrl &url, KXError *error, const KXStoreProgress &progress)
{
    KXError problem;
    const auto metadata = metadataForStoreURL(url, &problem);
    KXSQLiteConnection connection;
    if (metadata)
        problem = connection.open(url.toLocalFile(), { .untouched = true });
    const auto model = metadata && !problem ? KXStoreMigration::modelOf(*metadata, &problem) : nullptr;
    if (!model) {
        KXSetError(error, problem);
        return std::nullopt;
    }
    const KXReadTransaction one(connection);
    const QStringList damage = KXStoreCheck::damage(connection, KXProgressOfPart(progress, 0, 0.5));
    if (!damage.isEmpty())
        return damage;
    if (KXError foreign = KXStoreTables::check(connection, *model))
        return QStringList { foreign.localizedDescription() };
    return KXStoreCheck::brokenPromises(connection, *model, KXProgressOfPart(progress, 0.5, 1));
}
