#pragma once

#include <QObject>

#include <kestrixkit/foundation/KXObservable.h>

/// A QObject that is also a KXObservable: the base of controllers, players and shared instances. Its
/// properties (declared and dynamic) are its keys. Belongs to its thread, as any QObject.
class KX_CORE_EXPORT KXObject : public QObject, public KXObservable
{
    Q_OBJECT
public:
    explicit KXObject(QObject *parent = nullptr);
    ~KXObject() override;

    [[nodiscard]] QVariant valueForKey(const QString &key) const override;
    /// False for a property that does not exist, is read-only or refuses the value.
    bool setValueForKey(const QString &key, const QVariant &value) override;
};
