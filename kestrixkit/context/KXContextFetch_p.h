#pragma once

#include <span>
#include <vector>

#include <QSet>

#include <kestrixkit/context/KXManagedObjectContext_p.h>
#include <kestrixkit/context/KXSortOrder_p.h>
#include <kestrixkit/store/KXPredicateSQL_p.h>

class KXModelPath;

/// One fetch or count under way.
class KXContextFetcher
{
public:
    /// The request is borrowed.
    KXContextFetcher(KXManagedObjectContextPrivate &context, const KXFetchRequest &request);

    /// False with an error.
    bool fetch(std::vector<qint64> &keys);
    bool count(qint64 &number);
    /// Whether the store alone has the answer, as nothing that is unsaved in the context can be seen in it.
    [[nodiscard]] bool isAnsweredByStore();
    /// What fetch() does then. Any one thread; the context may be gone, its store not.
    bool fetchFromStore(std::vector<qint64> &keys);
    [[nodiscard]] const KXEntityDescription &entity() const { return m_entity; }
    [[nodiscard]] const KXError &error() const { return m_error; }
    /// Puts the error into the slot. Without one it is logged, and an unknown key is an exception.
    void report(KXError *slot) const;
    /// Throws KXException for an unknown key: of who gave no error slot.
    static void throwIfMistake(const KXError &error);
    /// Logs why a fetch has failed, or throws for an unknown key: of who gave no error slot. The name is that of the
    /// entity or template.
    static void reportOf(const QString &name, const KXPredicate &predicate, const KXError &error);
    static void reportOf(const QString &subject, const KXError &error);
    [[nodiscard]] const KXSortOrder &sortOrder() const { return m_sortOrder; }

    /// Whether a row is part of the result as the context sees it now; its object comes along.
    bool isWanted(qint64 key, KXRef<KXManagedObject> &object);

    /// The object at a place of a result, its values in memory: those of its batch are read with it.
    [[nodiscard]] static KXRef<KXManagedObject> objectAt(KXManagedObjectContextPrivate &context,
        const KXEntityDescription &entity, std::span<const qint64> keys, size_t place, size_t batchSize);

private:
    bool compile();
    [[nodiscard]] bool isInSQL() const;
    bool findAffected();
    bool followBack(const KXModelPath &path, QSet<qint64> &affected);
    void addDirty(const KXEntityDescription *from, const QString &key, QSet<qint64> &dirty) const;
    bool step(const KXEntityDescription &entity, const KXPropertyDescription &relationship, const QSet<qint64> &reached,
        QSet<qint64> &from);
    bool query(const QByteArray &sql, const std::vector<const KXPredicateSQL *> &parts, std::vector<qint64> &numbers);
    [[nodiscard]] QByteArray where(bool withPredicate) const;
    [[nodiscard]] QByteArray select() const;
    // Orders that are made here: KXContextFetchSorted.cpp.
    [[nodiscard]] const KXPropertyDescription *sortedHere() const;
    bool querySorted(const KXPropertyDescription &attribute, std::vector<qint64> &keys);
    int readFalling(KXStatement &statement, const KXPropertyDescription &attribute, std::vector<qint64> &keys) const;
    int readFolded(KXStatement &statement, std::vector<qint64> &keys) const;
    bool fetchInMemory(std::vector<qint64> &keys);
    static void cut(std::vector<qint64> &keys, const KXFetchRequest &request);

    KXManagedObjectContextPrivate &m_context;
    KXPersistentStorePrivate *const m_store;
    std::vector<const KXChangeLedger *> m_lineage; // of the context and its parents: what is unsaved in any counts
    const KXFetchRequest &m_request;
    const KXEntityDescription &m_entity;
    const KXSortOrder m_sortOrder;
    KXPredicateSQL m_predicate;
    KXPredicateSQL m_order;
    QSet<qint64> m_affected; // rows of which SQL may say the wrong thing, because of unsaved changes
    KXError m_error;
};
