#include <kestrixkit/context/KXBatchEditor.h>

#include <algorithm>
#include <span>

#include <kestrixkit/context/KXBatchChange_p.h>
#include <kestrixkit/context/KXBatchRows_p.h>
#include <kestrixkit/context/KXContextRows_p.h>
#include <kestrixkit/foundation/KXException.h>
#include <kestrixkit/foundation/KXMainQueue.h>
#include <kestrixkit/foundation/KXStringWithFormat.h>
#include <kestrixkit/foundation/KXUndoManager.h>

namespace {

constexpr qsizetype batchRemembered = 64; // values among which one that was there before is looked for

/// As another context can use it: an object by its identifier.
QVariant batchCarried(const QVariant &value)
{
    if (value.metaType() == QMetaType::fromType<QVariantList>()) {
        QVariantList carried;
        for (const QVariant &each : value.toList())
            carried.append(batchCarried(each));
        return carried;
    }
    if (value.metaType() != QMetaType::fromType<KXRef<KXManagedObject>>())
        return value;
    const auto object = value.value<KXRef<KXManagedObject>>();
    return object ? QVariant::fromValue(object->objectID()) : QVariant();
}

/// The objects of the identifiers; of a list, those that are there.
QVariant batchPlaced(const QVariant &value, KXManagedObjectContext &context)
{
    if (value.metaType() == QMetaType::fromType<QVariantList>()) {
        QVariantList placed;
        for (const QVariant &each : value.toList()) {
            if (const QVariant object = batchPlaced(each, context); object.isValid())
                placed.append(object);
        }
        return placed;
    }
    if (value.metaType() != QMetaType::fromType<KXManagedObjectID>())
        return value;
    const KXRef<KXManagedObject> object = context.objectWithID(value.value<KXManagedObjectID>());
    return object && !object->isMissing() ? KXVariantFromRef(object) : QVariant();
}

}

/// What is to be done, by identifiers. Values are often few and objects many: they are numbered. Each is a list with a
/// value of every property.
struct KXBatchEditor::Edit
{
    QString entityName, actionName;
    QStringList keys;
    QList<QVariantList> values;
    std::vector<KXBatchRows::Step> steps;
    bool isGiven = false; ///< the values are a host's; others have been stored before

    /// Among all of very many values it would be looked for in vain and for long.
    qint32 numberOf(const QVariantList &value)
    {
        const qsizetype from = std::max<qsizetype>(0, values.size() - batchRemembered);
        for (qsizetype known = values.size() - 1; known >= from; --known) {
            if (values[known] == value)
                return qint32(known);
        }
        values.append(value);
        return qint32(values.size() - 1);
    }

    [[nodiscard]] QVariantList valuesOf(const KXManagedObject &object) const
    {
        QVariantList all;
        for (const QString &key : keys)
            all.append(batchCarried(object.valueForKey(key)));
        return all;
    }

    bool setValues(KXManagedObject &object, const QVariantList &target, KXManagedObjectContext &context) const
    {
        bool isSet = true;
        for (qsizetype i = 0; i < keys.size(); ++i)
            isSet = object.setValueForKey(keys[i], batchPlaced(target[i], context)) && isSet;
        return isSet;
    }
};

class KXBatchEditOperation : public KXBatchOperation
{
public:
    using Edit = KXBatchEditor::Edit;

    KXBatchEditOperation(const KXManagedObjectContext::Ref &context, KXBatchEditor *editor,
        std::shared_ptr<KXBatchShared> shared, std::shared_ptr<const Edit> edit, std::shared_ptr<Edit> inverse)
        : KXBatchOperation(context, editor, std::move(shared), edit->actionName)
        , m_edit(std::move(edit))
        , m_inverse(std::move(inverse))
    {
    }

protected:
    [[nodiscard]] size_t begin() override
    {
        m_inverse->values = m_edit->values;
        return m_edit->steps.size();
    }

    [[nodiscard]] std::optional<size_t> carryOut(KXManagedObjectContext &context, size_t from, size_t most) override
    {
        const std::span<const Step> steps = std::span(m_edit->steps).subspan(from, most);
        const bool isDone = canDoWithoutObjects(context, steps) ? carryOutRows(steps) : carryOutObjects(context, steps);
        return isDone ? std::optional(most) : std::nullopt;
    }

private:
    using Step = KXBatchRows::Step;

    /// Where all is stored attributes of one class. What that makes of a host's values is tried with one object: where
    /// setting one does more than to store it, all is left to objects.
    bool canDoWithoutObjects(KXManagedObjectContext &context, std::span<const Step> steps)
    {
        if (m_needsObjects)
            return false;
        if (!m_rows) {
            const KXEntityDescription &entity = KXContextRows(context).entity(m_edit->entityName);
            KXBatchRows::Attributes attributes;
            for (const QString &key : m_edit->keys)
                attributes.push_back(entity.property(key));
            m_needsObjects = entity.family().size() > 1
                || !std::all_of(attributes.begin(), attributes.end(),
                    [](const KXPropertyDescription *each) { return each->isAttribute() && each->hasColumn(); });
            if (m_needsObjects)
                return false;
            m_rows = std::make_unique<KXBatchRows>(
                KXManagedObjectContextPrivate::of(context), entity, std::move(attributes));
            m_isTried = !m_edit->isGiven;
        }
        constexpr size_t mostTargets = 1'000; // of an undo each may have its own
        if (m_targets > mostTargets)
            m_rows->forgetTargets();
        for (const Step &step : steps) {
            for (const qint32 number : { step.target, step.expected }) {
                if (number < 0 || m_rows->hasTarget(number))
                    continue;
                m_needsObjects = m_needsObjects || !m_rows->setTarget(number, m_edit->values[number]);
                ++m_targets;
            }
        }
        if (!m_needsObjects && !m_isTried)
            tryOne(context, steps);
        return !m_needsObjects && m_isTried;
    }

    void tryOne(KXManagedObjectContext &context, std::span<const Step> steps)
    {
        const KXContextRows rows(context);
        const KXEntityDescription &entity = rows.entity(m_edit->entityName);
        constexpr size_t enough = 16; // of which one is there
        for (const Step &step : steps.first(std::min(steps.size(), enough))) {
            const KXRef<KXManagedObject> object = rows.object(entity, step.key);
            if (!object || object->isMissing())
                continue;
            const bool isSet = m_edit->setValues(*object, m_edit->values[step.target], context);
            m_needsObjects = !isSet || m_edit->valuesOf(*object) != m_rows->valuesOf(step.target)
                || changesMore(KXManagedObjectContextPrivate::of(context).ledger, *object);
            context.rollback();
            m_isTried = true;
            return;
        }
    }

    [[nodiscard]] bool changesMore(const KXChangeLedger &ledger, const KXManagedObject &object) const
    {
        const auto isAsked = [&](const auto &each) {
            const QList<KXPropertyDescription> &properties = object.entity()->properties();
            return each.first == &object
                && std::all_of(properties.begin(), properties.end(), [&](const KXPropertyDescription &property) {
                       return !each.second.changed.test(size_t(property.index()))
                           || m_edit->keys.contains(property.name());
                   });
        };
        return !ledger.insertions().empty() || !ledger.deletions().empty()
            || !std::all_of(ledger.changes().begin(), ledger.changes().end(), isAsked);
    }

    bool carryOutRows(std::span<const Step> steps)
    {
        KXBatchRows::Result result;
        if (!m_rows->carryOut(steps, result, &outcome->error))
            return false;
        outcome->kept += result.kept;
        outcome->changed += qint64(result.done.size());
        for (const auto &[step, before] : result.done)
            m_inverse->steps.push_back({ steps[step].key, m_inverse->numberOf(before), steps[step].target });
        return true;
    }

    bool carryOutObjects(KXManagedObjectContext &context, std::span<const Step> steps)
    {
        const KXContextRows rows(context);
        const KXEntityDescription &entity = rows.entity(m_edit->entityName);
        std::vector<qint64> keys;
        for (const Step &step : steps)
            keys.push_back(step.key);
        outcome->error = rows.fill(entity, keys);
        if (outcome->error)
            return false;
        std::vector<Step> done;
        qint64 kept = 0;
        for (const Step &step : steps) {
            const KXRef<KXManagedObject> object = rows.object(entity, step.key);
            if (!object || object->isMissing())
                continue;
            const QVariantList before = m_edit->valuesOf(*object);
            const QVariantList &target = m_edit->values[step.target];
            if (step.expected >= 0 && before != m_edit->values[step.expected]) {
                ++kept;
                continue;
            }
            if (before == target || !m_edit->setValues(*object, target, context))
                continue;
            done.push_back({ step.key, m_inverse->numberOf(before), step.target });
        }
        outcome->kept += kept;
        if (!done.empty() && !save(context))
            return false;
        outcome->changed += qint64(done.size());
        m_inverse->steps.insert(m_inverse->steps.end(), done.begin(), done.end());
        return true;
    }

    const std::shared_ptr<const Edit> m_edit;
    const std::shared_ptr<Edit> m_inverse; // read by nobody before this is done: edits run one after the other
    std::unique_ptr<KXBatchRows> m_rows;
    size_t m_targets = 0; // that m_rows was told of
    bool m_isTried = false; // the class makes of the values what a column does
    bool m_needsObjects = false;
};

KXBatchEditor::KXBatchEditor(KXManagedObjectContext::Ref context, QObject *parent)
    : QObject(parent)
    , m_context(std::move(context))
    , m_shared(std::make_shared<KXBatchShared>())
{
    m_queue.setMaxConcurrentOperationCount(1);
}

KXBatchEditor::~KXBatchEditor()
{
    m_shared->ends = true;
    m_queue.cancelAllOperations();
    m_queue.waitUntilAllOperationsAreFinished();
    if (KXUndoManager *const undo = m_context->undoManager())
        undo->removeAllActionsWithTarget(this);
}

bool KXBatchEditor::merges(const void *originatingContext) const
{
    return originatingContext && m_shared->writer.load() == originatingContext;
}

void KXBatchEditor::setValue(const QVariant &value, const QString &forKey, const QString &entityName,
    const std::vector<qint64> &keys, const QString &actionName)
{
    setValues({ { forKey, value } }, entityName, keys, actionName);
}

void KXBatchEditor::setValues(const QList<std::pair<QString, QVariant>> &values, const QString &ofEntityName,
    const std::vector<qint64> &keys, const QString &actionName)
{
    const auto edit = std::make_shared<Edit>(Edit { .entityName = ofEntityName, .actionName = actionName });
    QVariantList target;
    for (const auto &[key, value] : values) {
        if (!KXContextRows(*m_context).entity(ofEntityName).property(key))
            throw KXException(QStringLiteral("KXInvalidArgumentException"),
                KXStringWithFormat("\"%@\" has no property \"%@\"", ofEntityName, key));
        edit->keys.append(key);
        target.append(batchCarried(value));
    }
    if (keys.empty() || values.isEmpty())
        return;
    edit->values = { target };
    edit->isGiven = true;
    for (const qint64 key : keys)
        edit->steps.push_back({ key, 0, -1 });
    const auto inverse = std::make_shared<Edit>(Edit { ofEntityName, actionName, edit->keys, {}, {} });
    begin(edit, inverse);
}

void KXBatchEditor::change(
    const Change &change, const QString &entityName, const std::vector<qint64> &keys, const QString &actionName)
{
    (void)KXContextRows(*m_context).entity(entityName);
    if (change && !keys.empty())
        carryOut(std::make_shared<KXBatchChange>(KXBatchChange { change, entityName, actionName, keys, {} }));
}

void KXBatchEditor::remove(const QString &entityName, const std::vector<qint64> &keys, const QString &actionName)
{
    change([](KXManagedObjectContext &context,
               const QList<KXRef<KXManagedObject>> &objects) { context.deleteObjects(objects); },
        entityName, keys, actionName);
}

/// The step's content comes to be when the edit has been carried out; whoever undoes it before waits for that.
void KXBatchEditor::registerStep(const QString &actionName, const std::function<void()> &revert)
{
    KXUndoManager *const undo = m_context->undoManager();
    if (!undo)
        return;
    const KXUndoGroup group(undo, actionName);
    undo->registerUndo(this, revert);
}

void KXBatchEditor::begin(const std::shared_ptr<const Edit> &edit, const std::shared_ptr<Edit> &inverse)
{
    registerStep(edit->actionName, [this, inverse] {
        begin(
            inverse, std::make_shared<Edit>(Edit { inverse->entityName, inverse->actionName, inverse->keys, {}, {} }));
    });
    run(std::make_shared<KXBatchEditOperation>(m_context, this, m_shared, edit, inverse));
}

void KXBatchEditor::carryOut(const std::shared_ptr<KXBatchChange> &change)
{
    registerStep(change->actionName, [this, change] { takeBack(change); });
    run(std::make_shared<KXBatchChangeOperation>(m_context, this, m_shared, change));
}

void KXBatchEditor::takeBack(const std::shared_ptr<KXBatchChange> &change)
{
    registerStep(change->actionName, [this, change] { carryOut(change); });
    run(std::make_shared<KXBatchUndoOperation>(m_context, this, m_shared, change));
}

void KXBatchEditor::run(const std::shared_ptr<KXBatchOperation> &operation)
{
    ++m_pending;
    operation->outcome->isUndo = m_context->undoManager() && m_context->undoManager()->isUndoing();
    // Queued behind the merges of its saves.
    operation->setCompletionBlock([this, outcome = operation->outcome] {
        KXMainQueue::async(this, [this, outcome] {
            --m_pending;
            Q_EMIT finished(*outcome);
        });
    });
    m_queue.addOperation(operation);
}

void KXBatchEditor::cancel() { m_queue.cancelAllOperations(); }
