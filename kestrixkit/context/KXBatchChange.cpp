#include <kestrixkit/context/KXBatchChange_p.h>

#include <algorithm>

#include <kestrixkit/context/KXContextRows_p.h>

namespace {

// Objects in a record: what is undone together. Rows that come take far more of the main thread than those that go.
constexpr size_t changeMost = 1'000;

using ChangeEntries = std::vector<KXContextRecorder::Entry>;

/// What the context records while this lives, turn by turn.
class ChangeRecording
{
public:
    explicit ChangeRecording(KXManagedObjectContextPrivate &context)
        : m_context(context)
    {
        context.recorder.setTake([this](ChangeEntries entries) { taken.push_back(std::move(entries)); });
    }
    ~ChangeRecording() { m_context.recorder.setTake({}); }
    Q_DISABLE_COPY_MOVE(ChangeRecording)

    std::vector<ChangeEntries> taken;

private:
    KXManagedObjectContextPrivate &m_context;
};

}

KXBatchChangeOperation::KXBatchChangeOperation(const KXManagedObjectContext::Ref &context, KXBatchEditor *editor,
    std::shared_ptr<KXBatchShared> shared, std::shared_ptr<KXBatchChange> change)
    : KXBatchOperation(context, editor, std::move(shared), change->actionName)
    , m_change(std::move(change))
{
}

/// What is left of a cancelled change is not asked for again.
size_t KXBatchChangeOperation::begin()
{
    m_keys = std::exchange(m_change->keys, {});
    return m_keys.size();
}

std::optional<size_t> KXBatchChangeOperation::carryOut(KXManagedObjectContext &context, size_t from, size_t most)
{
    const KXContextRows rows(context);
    const KXEntityDescription &entity = rows.entity(m_change->entityName);
    const size_t count = std::min(most, changeMost);
    const std::span<const qint64> keys = std::span<const qint64>(m_keys).subspan(from, count);
    outcome->error = rows.fill(entity, keys);
    if (outcome->error)
        return std::nullopt;
    QList<KXRef<KXManagedObject>> objects;
    std::vector<qint64> changed;
    for (const qint64 key : keys) {
        KXRef<KXManagedObject> object = rows.object(entity, key);
        if (!object || object->isMissing())
            continue;
        objects.append(std::move(object));
        changed.push_back(key);
    }
    auto &parts = KXManagedObjectContextPrivate::of(context);
    ChangeRecording recording(parts);
    m_change->function(context, objects);
    if (!save(context))
        return std::nullopt;
    outcome->changed += qint64(changed.size());
    for (ChangeEntries &entries : recording.taken)
        m_change->records.emplace_back(std::exchange(changed, {}), std::move(entries), parts);
    return count;
}

KXBatchUndoOperation::KXBatchUndoOperation(const KXManagedObjectContext::Ref &context, KXBatchEditor *editor,
    std::shared_ptr<KXBatchShared> shared, std::shared_ptr<KXBatchChange> change)
    : KXBatchOperation(context, editor, std::move(shared), change->actionName)
    , m_change(std::move(change))
{
}

size_t KXBatchUndoOperation::begin()
{
    m_change->keys.clear(); // of a change that was cancelled before it began
    size_t total = 0;
    for (const KXBatchRecord &record : m_change->records)
        total += record.keys().size();
    return total;
}

/// What cannot be saved, or is cancelled, is still there for the next undo, after a redo.
std::optional<size_t> KXBatchUndoOperation::carryOut(KXManagedObjectContext &context, size_t, size_t)
{
    if (m_change->records.empty())
        return std::nullopt;
    const KXBatchRecord &last = m_change->records.back();
    const KXBatchRecord::Undone undone = last.undo(KXManagedObjectContextPrivate::of(context));
    if (!save(context))
        return std::nullopt;
    outcome->changed += qint64(undone.keys.size());
    outcome->kept += undone.kept;
    m_change->keys.insert(m_change->keys.end(), undone.keys.begin(), undone.keys.end());
    const size_t count = last.keys().size();
    m_change->records.pop_back();
    return count;
}
