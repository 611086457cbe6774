#include <kestrixkit/foundation/KXUserDefaults.h>

#include <fcntl.h>
#include <unistd.h>

#include <QCborMap>
#include <QCborValue>
#include <QCoreApplication>
#include <QFile>
#include <QFileInfo>
#include <QSettings>
#include <QStandardPaths>
#include <QUrl>
#include <QUuid>

#include <kestrixkit/foundation/KXArchive.h>
#include <kestrixkit/foundation/KXBundle.h>
#include <kestrixkit/foundation/KXLog.h>
#include <kestrixkit/foundation/KXMainQueue.h>

using namespace Qt::StringLiterals;

namespace {

constexpr QStringView defaultsFormatName = u"kestrix.defaults";
constexpr int defaultsFormatNumber = 1;

/// A name beside the file, one for each state of it.
QString defaultsAside(const QString &path)
{
    return path + ".unreadable-"_L1 + QFileInfo(path).lastModified().toUTC().toString(u"yyyyMMddhhmmsszzz"_s);
}

/// Keeps what cannot be read before the file is written anew, once.
void defaultsKeepAside(const QString &path)
{
    const QString aside = defaultsAside(path);
    if (QFileInfo::exists(aside))
        return;
    if (::linkat(AT_FDCWD, QFile::encodeName(path).constData(), AT_FDCWD, QFile::encodeName(aside).constData(),
            AT_SYMLINK_FOLLOW)
            == 0
        || QFile::copy(path, aside))
        KXLogWarning(foundation, "They are kept as %@", aside);
    else
        KXLogError(foundation, "%@ cannot be kept as %@", path, aside);
}

/// The path, where a file can be now: a pipe or a device would be read for ever.
QString defaultsMakeWay(const QString &path)
{
    const QFileInfo info(path);
    if (info.exists() && !info.isFile() && !info.isDir()) {
        QString aside = defaultsAside(path);
        if (QFileInfo::exists(aside)) // another one of the same millisecond
            aside += u'-' + QUuid::createUuid().toString(QUuid::WithoutBraces);
        KXLogWarning(foundation, "%@ is no file of user defaults, and kept as %@", path, aside);
        if (!QFile::rename(path, aside))
            KXLogError(foundation, "%@ cannot be kept as %@", path, aside);
    }
    return path;
}

bool defaultsRead(QIODevice &device, QSettings::SettingsMap &map)
{
    const QByteArray bytes = device.read(KXArchive::mostBytes + 1);
    if (bytes.isEmpty()) // a new file
        return true;
    const auto values = KXArchive::unarchive(bytes, defaultsFormatName, defaultsFormatNumber);
    if (!values || !values->isMap()) {
        KXLogWarning(foundation, "The user defaults are unreadable and taken as empty");
        if (const auto *file = qobject_cast<const QFileDevice *>(&device))
            defaultsKeepAside(file->fileName());
        return false;
    }
    map = values->toMap().toVariantMap();
    return true;
}

bool defaultsWrite(QIODevice &device, const QSettings::SettingsMap &map)
{
    const QByteArray bytes
        = KXArchive::archive(defaultsFormatName, defaultsFormatNumber, QCborMap::fromVariantMap(map));
    // A new file is its owner's alone; one that is there stays as it is.
    if (auto *file = qobject_cast<QFileDevice *>(&device); file && !QFileInfo::exists(file->fileName()))
        file->setPermissions(QFile::ReadOwner | QFile::WriteOwner);
    return !bytes.isEmpty() && device.write(bytes) == bytes.size();
}

QSettings::Format defaultsFormat()
{
    static const QSettings::Format format
        = QSettings::registerFormat(u"cbor"_s, defaultsRead, defaultsWrite, Qt::CaseSensitive);
    return format;
}

// To QSettings a slash parts groups, and it tidies them; to us a key is any text.
QString defaultsEncoded(QString key)
{
    return key.replace(u'%', "%25"_L1).replace(u'/', "%2F"_L1).replace(u'\\', "%5C"_L1);
}

bool defaultsCanStore(const QVariant &value)
{
    switch (value.typeId()) {
    case QMetaType::Bool:
    case QMetaType::Int:
    case QMetaType::UInt:
    case QMetaType::LongLong:
    case QMetaType::Short:
    case QMetaType::UShort:
    case QMetaType::Long:
    case QMetaType::Float:
    case QMetaType::Double:
    case QMetaType::QString:
    case QMetaType::QStringList:
    case QMetaType::QByteArray:
    case QMetaType::QDateTime:
    case QMetaType::QUrl:
    case QMetaType::QUuid:
        return true;
    case QMetaType::ULongLong:
    case QMetaType::ULong:
        return value.toULongLong() <= quint64(std::numeric_limits<qint64>::max());
    case QMetaType::QVariantList: {
        const QVariantList list = value.toList();
        return std::all_of(list.begin(), list.end(), defaultsCanStore);
    }
    case QMetaType::QVariantMap: {
        const QVariantMap map = value.toMap();
        return std::all_of(map.begin(), map.end(), defaultsCanStore);
    }
    default:
        return false;
    }
}

// The value as it will come back from the file.
QVariant defaultsStored(const QVariant &value)
{
    return QCborValue::fromCbor(QCborValue::fromVariant(value).toCbor()).toVariant();
}

}

// The settings with a lock around them: their coalesced writing is an event of their own thread.
class KXUserDefaultsPrivate : public std::enable_shared_from_this<KXUserDefaultsPrivate>
{
public:
    class Settings : public QSettings
    {
    public:
        Settings(const QString &path, std::recursive_mutex &mutex)
            : QSettings(defaultsMakeWay(path), defaultsFormat())
            , m_mutex(mutex)
        {
            setFallbacksEnabled(false);
        }

    protected:
        bool event(QEvent *event) override
        {
            const std::lock_guard lock(m_mutex);
            (void)defaultsMakeWay(fileName());
            return QSettings::event(event);
        }

    private:
        std::recursive_mutex &m_mutex;
    };

    explicit KXUserDefaultsPrivate(const QString &path)
        : settings(path, mutex)
    {
    }

    QVariant value(const QString &key) const
    {
        const QVariant stored = settings.value(defaultsEncoded(key));
        return stored.isValid() ? stored : registered.value(key);
    }

    mutable std::recursive_mutex mutex; // guards everything below but the centre
    Settings settings;
    QVariantMap registered;
    KXNotificationCenter center;
};

KXUserDefaults::KXUserDefaults(const QString &filePath)
    : d(std::make_shared<KXUserDefaultsPrivate>(filePath))
{
    // Made by a worker thread it would otherwise never be written by an event.
    if (QCoreApplication::instance())
        d->settings.moveToThread(QCoreApplication::instance()->thread());
}

KXUserDefaults::~KXUserDefaults() = default;

KXUserDefaults &KXUserDefaults::standard()
{
    static auto *const defaults = [] {
        const QString folder = QStandardPaths::writableLocation(QStandardPaths::GenericConfigLocation);
        auto *made = new KXUserDefaults(folder + u'/' + KXBundle::mainBundle().identifier() + "/defaults.cbor"_L1);
        qAddPostRoutine([] { KXUserDefaults::standard().synchronize(); });
        return made;
    }();
    return *defaults;
}

QVariant KXUserDefaults::valueForKey(const QString &key) const
{
    const std::lock_guard lock(d->mutex);
    return d->value(key);
}

bool KXUserDefaults::setValue(const QString &key, const QVariant &value)
{
    if (value.isValid() && !defaultsCanStore(value)) {
        KXLogError(foundation, "User defaults cannot store a value of type %@ under \"%@\"", value.typeName(), key);
        return false;
    }
    const bool observed = KXMainQueue::isMainThread() && isObserved();
    if (observed)
        willChangeValueForKey(key);
    bool changed = false;
    {
        const std::lock_guard lock(d->mutex);
        const QVariant before = d->value(key);
        if (value.isValid())
            d->settings.setValue(defaultsEncoded(key), defaultsStored(value));
        else
            d->settings.remove(defaultsEncoded(key));
        const QVariant after = d->value(key);
        changed = before != after || before.metaType() != after.metaType();
    }
    if (observed)
        didChangeValueForKey(key);
    if (!changed)
        return true;
    if (!KXMainQueue::isMainThread()) {
        KXMainQueue::async([this, alive = std::weak_ptr(d), key] {
            if (const auto keep = alive.lock())
                didChangeValueForKey(key);
        });
    }
    d->center.post(key, this);
    return true;
}

void KXUserDefaults::remove(const QString &key) { setValue(key, {}); }

void KXUserDefaults::registerDefaults(const QVariantMap &defaults)
{
    const std::lock_guard lock(d->mutex);
    d->registered.insert(defaults);
}

std::optional<QString> KXUserDefaults::stringForKey(const QString &key) const
{
    const QVariant value = valueForKey(key);
    return value.typeId() == QMetaType::QString ? std::optional(value.toString()) : std::nullopt;
}

std::optional<bool> KXUserDefaults::boolForKey(const QString &key) const
{
    const QVariant value = valueForKey(key);
    return value.typeId() == QMetaType::Bool ? std::optional(value.toBool()) : std::nullopt;
}

std::optional<qint64> KXUserDefaults::integerForKey(const QString &key) const
{
    const QVariant value = valueForKey(key);
    switch (value.typeId()) {
    case QMetaType::Int:
    case QMetaType::UInt:
    case QMetaType::Long:
    case QMetaType::LongLong:
        return value.toLongLong();
    default:
        return std::nullopt;
    }
}

std::optional<double> KXUserDefaults::doubleForKey(const QString &key) const
{
    const QVariant value = valueForKey(key);
    if (value.typeId() == QMetaType::Double || value.typeId() == QMetaType::Float)
        return value.toDouble();
    const auto integer = integerForKey(key);
    return integer ? std::optional(double(*integer)) : std::nullopt;
}

std::optional<QByteArray> KXUserDefaults::dataForKey(const QString &key) const
{
    const QVariant value = valueForKey(key);
    return value.typeId() == QMetaType::QByteArray ? std::optional(value.toByteArray()) : std::nullopt;
}

std::optional<QDateTime> KXUserDefaults::dateForKey(const QString &key) const
{
    const QVariant value = valueForKey(key);
    return value.typeId() == QMetaType::QDateTime ? std::optional(value.toDateTime()) : std::nullopt;
}

std::optional<QVariantList> KXUserDefaults::arrayForKey(const QString &key) const
{
    const QVariant value = valueForKey(key);
    const bool isList = value.typeId() == QMetaType::QVariantList || value.typeId() == QMetaType::QStringList;
    return isList ? std::optional(value.toList()) : std::nullopt;
}

std::optional<QStringList> KXUserDefaults::stringArrayForKey(const QString &key) const
{
    const auto list = arrayForKey(key);
    if (!list)
        return std::nullopt;
    QStringList texts;
    for (const QVariant &value : *list) {
        if (value.typeId() != QMetaType::QString)
            return std::nullopt;
        texts.append(value.toString());
    }
    return texts;
}

std::optional<QVariantMap> KXUserDefaults::dictionaryForKey(const QString &key) const
{
    const QVariant value = valueForKey(key);
    return value.typeId() == QMetaType::QVariantMap ? std::optional(value.toMap()) : std::nullopt;
}

KXNotificationToken KXUserDefaults::onChange(const QString &key, std::function<void()> function)
{
    return d->center.addObserver(key, this, [function = std::move(function)](const KXNotification &) { function(); });
}

bool KXUserDefaults::synchronize()
{
    const std::lock_guard lock(d->mutex);
    (void)defaultsMakeWay(d->settings.fileName());
    d->settings.sync();
    // An unreadable file has been told about, and replaced.
    if (d->settings.status() != QSettings::AccessError)
        return true;
    KXLogError(foundation, "Failed to write the user defaults to %@", d->settings.fileName());
    return false;
}
