#pragma once

#include <any>

#include <QLatin1StringView>

#include <kestrixkit/foundation/KXGlobal.h>

/// Process-wide objects under exported keys: the shared model, coordinator and main context. One dictionary
/// whichever thread asks; every call is safe on any thread.
class KX_CORE_EXPORT KXMainThreadDictionary
{
public:
    /// Empty where the key has no value.
    [[nodiscard]] static std::any value(QLatin1StringView key);
    static void setValue(QLatin1StringView key, std::any value);
    static void remove(QLatin1StringView key);

    /// The value as a T; a default one where there is none or one of another type.
    template <typename T> [[nodiscard]] static T get(QLatin1StringView key)
    {
        const std::any held = value(key);
        const T *typed = std::any_cast<T>(&held);
        return typed ? *typed : T();
    }
};
