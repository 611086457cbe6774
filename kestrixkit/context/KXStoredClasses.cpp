#include <kestrixkit/context/KXStoredClasses_p.h>

#include <algorithm>
#include <map>
#include <mutex>
#include <vector>

#include <kestrixkit/context/KXAccessorNote.h>
#include <kestrixkit/foundation/KXException.h>
#include <kestrixkit/foundation/KXLog.h>
#include <kestrixkit/foundation/KXStringWithFormat.h>
#include <kestrixkit/model/KXManagedObjectModel.h>

using namespace Qt::StringLiterals;

namespace {

struct StoredClass
{
    KXStoredClasses::Factory factory = nullptr;
    QList<const KXAccessorNote *> accessors;
    bool awakesFromInsert = false;
};

struct StoredClassRegistry
{
    std::mutex mutex;
    std::map<QString, StoredClass> classes;
    std::vector<std::weak_ptr<const KXManagedObjectModel>> checked;
};

StoredClassRegistry &storedClasses()
{
    static StoredClassRegistry registry;
    return registry;
}

StoredClass storedClassNamed(const QString &name)
{
    StoredClassRegistry &registry = storedClasses();
    const std::lock_guard lock(registry.mutex);
    const auto found = registry.classes.find(name);
    return found == registry.classes.end() ? StoredClass() : found->second;
}

/// The entity's own or, where it has none, the nearest ancestor's.
StoredClass storedClassFor(const KXEntityDescription &entity)
{
    StoredClass found;
    for (const KXEntityDescription *ancestor = &entity; ancestor && !found.factory; ancestor = ancestor->parent())
        found = storedClassNamed(ancestor->className());
    return found;
}

/// What of the class does not fit the entity, a text each.
QStringList storedClassMisfits(const StoredClass &storedClass, const KXEntityDescription &entity)
{
    QStringList misfits;
    for (const KXAccessorNote *accessor : storedClass.accessors) {
        const KXPropertyDescription *const property = entity.property(accessor->key());
        if (!property)
            misfits.append(KXStringWithFormat(
                "\"%@\" is %@ in the class and missing in the model", QString(accessor->key()), accessor->type()));
        else if (!KXAccessorNote::fits(accessor->kind(), *property))
            misfits.append(KXStringWithFormat("\"%@\" is %@ in the class and %@ in the model", property->name(),
                accessor->type(), KXAccessorNote::typeOfProperty(*property)));
    }
    misfits.sort();
    misfits.removeDuplicates();
    return misfits;
}

QString storedClassProblem(const KXEntityDescription &entity, const QStringList &misfits)
{
    return KXStringWithFormat(
        "The class of the entity \"%@\" does not fit the model: %@", entity.name(), misfits.join(u", "_s));
}

}

std::atomic<quint32> KXStoredClasses::s_serial { 0 };

void KXStoredClasses::add(
    const QString &className, Factory factory, const QList<const std::type_info *> &classes, bool awakesFromInsert)
{
    StoredClass added { factory, KXAccessorNote::ofClasses(classes), awakesFromInsert };
    StoredClassRegistry &registry = storedClasses();
    const std::lock_guard lock(registry.mutex);
    StoredClass &known = registry.classes[className];
    if (std::exchange(known, std::move(added)).factory != factory)
        s_serial.fetch_add(1, std::memory_order_release);
}

KXStoredClasses::Factory KXStoredClasses::factory(const QString &className)
{
    return storedClassNamed(className).factory;
}

KXStoredClasses::Factory KXStoredClasses::factoryFor(const KXEntityDescription &entity)
{
    return storedClassFor(entity).factory;
}

bool KXStoredClasses::awakesFromInsert(const KXEntityDescription &entity)
{
    return storedClassFor(entity).awakesFromInsert;
}

void KXStoredClasses::require(const KXEntityDescription &entity)
{
    const StoredClass storedClass = storedClassNamed(entity.className());
    if (!storedClass.factory)
        throw KXException(QString(KXInvalidClassException),
            KXStringWithFormat("The class of the entity \"%@\" is not registered: call its registerEntity() before a "
                               "store is opened",
                entity.name()));
    if (const QStringList misfits = storedClassMisfits(storedClass, entity); !misfits.isEmpty())
        throw KXException(QString(KXInvalidClassException), storedClassProblem(entity, misfits));
}

void KXStoredClasses::check(const std::shared_ptr<const KXManagedObjectModel> &model)
{
    if (model) {
        StoredClassRegistry &registry = storedClasses();
        const std::lock_guard lock(registry.mutex);
        std::erase_if(registry.checked, [](const auto &one) { return one.expired(); });
        if (std::any_of(
                registry.checked.begin(), registry.checked.end(), [&](const auto &one) { return one.lock() == model; }))
            return;
        registry.checked.push_back(model);
    }
    for (const KXEntityDescription *entity : model ? model->entities() : QList<const KXEntityDescription *>()) {
        if (const QStringList misfits = storedClassMisfits(storedClassNamed(entity->className()), *entity);
            !misfits.isEmpty())
            KXLogWarning(store, "%@", storedClassProblem(*entity, misfits));
    }
}
