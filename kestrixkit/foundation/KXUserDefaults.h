#pragma once

#include <memory>
#include <optional>

#include <QDateTime>
#include <QStringList>
#include <QVariant>

#include <kestrixkit/foundation/KXNotificationCenter.h>
#include <kestrixkit/foundation/KXObservable.h>

class KXUserDefaultsPrivate;

/// The user's settings: values by key, kept in a file, over defaults that the host registers.
///
/// Types survive: what was stored as a text comes back as a text, a number as a number. Stored can be texts,
/// booleans, integers, floating-point numbers, dates, data, URLs, UUIDs, and lists and maps (with text keys) of
/// these. Several processes may use one file: keys written by others are merged in. Writing is coalesced and
/// atomic, at the latest when the application ends or by synchronize(). An unreadable file reads as empty.
///
/// All functions may be called on any thread, those of KXObservable on the main thread only.
class KX_CORE_EXPORT KXUserDefaults : public KXObservable
{
public:
    /// The main bundle's: "<identifier>/defaults.cbor" in the user's configuration folder, as they are at the
    /// first call.
    [[nodiscard]] static KXUserDefaults &standard();
    explicit KXUserDefaults(const QString &filePath);
    ~KXUserDefaults() override;
    Q_DISABLE_COPY_MOVE(KXUserDefaults)

    /// The stored value, else the registered one, else invalid.
    [[nodiscard]] QVariant valueForKey(const QString &key) const override;
    /// False (and logged) for a value of a kind that cannot be stored. An invalid value removes the key.
    bool setValueForKey(const QString &key, const QVariant &value) override { return setValue(key, value); }
    bool setValue(const QString &key, const QVariant &value);
    void remove(const QString &key);
    /// Values for keys that are not stored; adds to those registered before.
    void registerDefaults(const QVariantMap &defaults);

    // Typed: absent when the key is, or when its value is of another type.
    [[nodiscard]] std::optional<QString> stringForKey(const QString &key) const;
    [[nodiscard]] std::optional<bool> boolForKey(const QString &key) const;
    [[nodiscard]] std::optional<qint64> integerForKey(const QString &key) const;
    /// Integers are numbers, too.
    [[nodiscard]] std::optional<double> doubleForKey(const QString &key) const;
    [[nodiscard]] std::optional<QByteArray> dataForKey(const QString &key) const;
    [[nodiscard]] std::optional<QDateTime> dateForKey(const QString &key) const;
    [[nodiscard]] std::optional<QVariantList> arrayForKey(const QString &key) const;
    /// Absent, too, when one of the members is no text.
    [[nodiscard]] std::optional<QStringList> stringArrayForKey(const QString &key) const;
    [[nodiscard]] std::optional<QVariantMap> dictionaryForKey(const QString &key) const;

    /// Calls the function, on the changing thread, after the key's value has changed in this process, until the
    /// token goes. (Observers of the key as a KXObservable's are called on the main thread.)
    [[nodiscard]] KXNotificationToken onChange(const QString &key, std::function<void()> function);

    /// Writes what is not written yet and reads what other processes wrote. False, and logged, when it failed.
    bool synchronize();

private:
    std::shared_ptr<KXUserDefaultsPrivate> d;
};
