#pragma once

#include <functional>
#include <memory>
#include <vector>

#include <QObject>
#include <QVariant>

#include <kestrixkit/context/KXManagedObjectContext.h>
#include <kestrixkit/foundation/KXError.h>
#include <kestrixkit/foundation/KXOperationQueue.h>

class KXBatchOperation;
struct KXBatchChange;
struct KXBatchShared;

/// What came of an edit of many objects.
struct KXBatchOutcome
{
    QString actionName;
    bool isUndo = false; ///< it took back what the action did
    qint64 changed = 0;
    qint64 kept = 0; ///< of an undo or redo: those that somebody has changed since, and that stay as they are
    bool cancelled = false; ///< what was changed before stays changed, and is undone with the step
    KXError error; ///< of the store; what was saved before stays
};

/// Edits and deletes very many objects in the background, without making the main thread wait for it: a library of
/// 300,000 tracks is rated while it is scrolled.
///
/// Works through the objects in batches, each of them saved and merged into the main context before the next one is
/// saved, so that the main thread is busy for a batch at a time. One edit comes after the other. Each is a step of the
/// context's undo manager from the moment it is asked for; undoing and redoing are such edits themselves, and carry
/// identifiers and former values, not objects. They leave alone what was changed meanwhile, and say how much that was.
///
/// Unsaved changes of the main context are its own: save it before. Main thread; the context is that of the thread.
class KX_CORE_EXPORT KXBatchEditor : public QObject
{
    Q_OBJECT
public:
    explicit KXBatchEditor(KXManagedObjectContext::Ref context, QObject *parent = nullptr);
    /// Cancels what is under way, and waits for that. Its steps go from the undo manager.
    ~KXBatchEditor() override;

    /// An invalid value takes the attribute away. Keys of objects that are gone are skipped. Throws KXException for an
    /// entity or property that the model does not have.
    void setValue(const QVariant &value, const QString &forKey, const QString &entityName,
        const std::vector<qint64> &keys, const QString &actionName);
    /// Several properties at once, as one step: what a text is and the objects that it names. Related objects are given
    /// as valueForKey() answers them, and are saved before; they are led by their identifiers.
    void setValues(const QList<std::pair<QString, QVariant>> &values, const QString &ofEntityName,
        const std::vector<qint64> &keys, const QString &actionName);
    /// What a host does to some objects, with a context of its own on another thread: it inserts, changes and deletes
    /// what it likes and leaves the saving to the editor.
    using Change = std::function<void(KXManagedObjectContext &context, const QList<KXRef<KXManagedObject>> &objects)>;
    /// Has the function do what no values say: it is called batch by batch with those of the keys that are there.
    ///
    /// Undone by identifiers and stored values: what was deleted comes back under its identifier with its
    /// relationships, unless what it belonged to is gone; what was inserted goes; what was changed is what it was,
    /// unless somebody has changed it since. Redoing calls the function with those that came back. An undo that was
    /// cancelled or could not be saved goes on where it ended when it is redone and undone. Throws KXException for an
    /// unknown entity.
    void change(
        const Change &change, const QString &entityName, const std::vector<qint64> &keys, const QString &actionName);
    /// Deletes the objects and whatever their delete rules reach.
    void remove(const QString &entityName, const std::vector<qint64> &keys, const QString &actionName);
    /// Ends what is under way after the batch at hand, and drops what waits for it.
    void cancel();
    [[nodiscard]] bool isBusy() const { return m_pending > 0; }
    /// Whether changes of that context, as the change feed names it, are merged by the editor. Any thread.
    [[nodiscard]] bool merges(const void *originatingContext) const;

Q_SIGNALS:
    void progressed(qint64 done, qint64 total);
    void finished(const KXBatchOutcome &outcome);

private:
    friend class KXBatchEditOperation;
    struct Edit;
    void begin(const std::shared_ptr<const Edit> &edit, const std::shared_ptr<Edit> &inverse);
    void carryOut(const std::shared_ptr<KXBatchChange> &change);
    void takeBack(const std::shared_ptr<KXBatchChange> &change);
    void registerStep(const QString &actionName, const std::function<void()> &revert);
    void run(const std::shared_ptr<KXBatchOperation> &operation);

    const KXManagedObjectContext::Ref m_context;
    const std::shared_ptr<KXBatchShared> m_shared;
    int m_pending = 0;
    KXOperationQueue m_queue; // last: it is waited for
};
