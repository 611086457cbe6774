#pragma once

#include <kestrixkit/foundation/KXObservable.h>

/// Stands for a row whose value is asked about.
class KXCountProbe : public KXObservable
{
public:
    QVariant value;
    [[nodiscard]] QVariant valueForKey(const QString &) const override { return value; }
    bool setValueForKey(const QString &, const QVariant &) override { return false; }
};
