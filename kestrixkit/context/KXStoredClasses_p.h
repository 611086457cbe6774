#pragma once

#include <atomic>

#include <kestrixkit/context/KXManagedObject.h>

class KXManagedObjectModel;

/// The C++ classes of stored objects by name, and whether they fit a model. Any thread.
class KXStoredClasses
{
public:
    using Factory = KXManagedObject::Factory;

    static void add(
        const QString &className, Factory factory, const QList<const std::type_info *> &classes, bool awakesFromInsert);
    [[nodiscard]] static Factory factory(const QString &className);
    /// What makes the entity's objects: its class or, where it has none of its own, the nearest ancestor's; nullptr
    /// where there is none.
    [[nodiscard]] static Factory factoryFor(const KXEntityDescription &entity);
    /// Whether a new object of the entity hears of that.
    [[nodiscard]] static bool awakesFromInsert(const KXEntityDescription &entity);
    /// Throws KXException (KXInvalidClassException) where the entity has no class, or one with accessors that do not
    /// fit.
    static void require(const KXEntityDescription &entity);
    /// Raised by each registration: whoever remembers factories asks again.
    [[nodiscard]] static quint32 serial() { return s_serial.load(std::memory_order_acquire); }

    /// Logs every accessor of the registered classes that does not fit the model, once for each model. Not an error
    /// yet: a store of an older model may be looked into by keys. Nothing without a model.
    static void check(const std::shared_ptr<const KXManagedObjectModel> &model);

private:
    static std::atomic<quint32> s_serial;
};
