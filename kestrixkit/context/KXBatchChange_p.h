#pragma once

#include <vector>

#include <kestrixkit/context/KXBatchOperation_p.h>
#include <kestrixkit/context/KXBatchRecord_p.h>

/// A change of very many objects by a function, and how far it is done and undone. Nobody looks at it but the
/// operations, which come one after the other: carrying it out moves keys to the records, undoing it the other way.
struct KXBatchChange
{
    KXBatchEditor::Change function;
    QString entityName, actionName;
    std::vector<qint64> keys; ///< to be changed (again)
    std::vector<KXBatchRecord> records; ///< of what was changed, in order
};

class KXBatchChangeOperation : public KXBatchOperation
{
public:
    KXBatchChangeOperation(const KXManagedObjectContext::Ref &context, KXBatchEditor *editor,
        std::shared_ptr<KXBatchShared> shared, std::shared_ptr<KXBatchChange> change);

protected:
    [[nodiscard]] size_t begin() override;
    [[nodiscard]] std::optional<size_t> carryOut(KXManagedObjectContext &context, size_t from, size_t most) override;

private:
    const std::shared_ptr<KXBatchChange> m_change;
    std::vector<qint64> m_keys;
};

class KXBatchUndoOperation : public KXBatchOperation
{
public:
    KXBatchUndoOperation(const KXManagedObjectContext::Ref &context, KXBatchEditor *editor,
        std::shared_ptr<KXBatchShared> shared, std::shared_ptr<KXBatchChange> change);

protected:
    [[nodiscard]] size_t begin() override;
    [[nodiscard]] std::optional<size_t> carryOut(KXManagedObjectContext &context, size_t from, size_t most) override;

private:
    const std::shared_ptr<KXBatchChange> m_change;
};
