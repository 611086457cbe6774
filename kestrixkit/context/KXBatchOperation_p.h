#pragma once

#include <atomic>
#include <memory>
#include <optional>

#include <QPointer>

#include <kestrixkit/context/KXBatchEditor.h>
#include <kestrixkit/context/KXManagedObjectContextOperation.h>

/// What an editor shares with its operations. Any thread.
struct KXBatchShared
{
    std::atomic<const void *> writer { nullptr }; ///< the context of the operation at work
    std::atomic<bool> ends { false };
};

/// What an editor was asked for, under way on a thread of its own: batch by batch, each saved and merged into the main
/// context before the next one is saved. One comes after the other.
class KXBatchOperation : public KXManagedObjectContextOperation
{
public:
    KXBatchOperation(const KXManagedObjectContext::Ref &context, KXBatchEditor *editor,
        std::shared_ptr<KXBatchShared> shared, const QString &actionName);

    void main() override;

    const std::shared_ptr<KXBatchOutcome> outcome = std::make_shared<KXBatchOutcome>();

protected:
    /// Answers how many objects there are.
    [[nodiscard]] virtual size_t begin() = 0;
    /// Changes and saves the next ones, not many more than given. Answers how many these were; nothing ends it all.
    [[nodiscard]] virtual std::optional<size_t> carryOut(KXManagedObjectContext &context, size_t from, size_t most) = 0;
    /// False with the outcome's error; nothing is unsaved either way.
    [[nodiscard]] bool save(KXManagedObjectContext &context);

private:
    [[nodiscard]] bool stops() const { return isCancelled() || m_shared->ends; }
    [[nodiscard]] qint64 waitForMainThread(size_t done, size_t total);

    const QPointer<KXBatchEditor> m_editor; // looked at on the main thread alone
    const std::shared_ptr<KXBatchShared> m_shared;
};
