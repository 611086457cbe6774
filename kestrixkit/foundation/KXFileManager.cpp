#include <kestrixkit/foundation/KXFileManager.h>

#include <filesystem>

#include <QDir>
#include <QStandardPaths>

#include <kestrixkit/foundation/KXApplication.h>
#include <kestrixkit/foundation/KXBundle.h>
#include <kestrixkit/foundation/KXError.h>
#include <kestrixkit/foundation/KXLog.h>

using namespace Qt::StringLiterals;

namespace {

QString fileManagerBase(QStandardPaths::StandardLocation location)
{
    const QString base = QStandardPaths::writableLocation(location);
    return base.isEmpty() ? QDir::tempPath() : base;
}

// The path, once a folder (or a file) is there; null and the reason else.
QString fileManagerFolder(const QString &base, const QString &name, KXError *error = nullptr)
{
    const QString path = base + u'/' + name;
    std::error_code status;
    const std::filesystem::path native(path.toStdU16String());
    if (std::filesystem::exists(native, status))
        return path;
    std::filesystem::create_directories(native, status);
    if (!status)
        return path;
    const KXError reason(u"std."_s + QString::fromLatin1(status.category().name()), status.value(),
        QString::fromLocal8Bit(status.message()));
    KXLogError(foundation, "Failed to create dir %@ - %@", path, reason);
    KXSetError(error, reason);
    return {};
}

}

QString KXFileManager::applicationSupportFolderPath()
{
    KXError error;
    const QString path = fileManagerFolder(
        fileManagerBase(QStandardPaths::GenericDataLocation), KXBundle::mainBundle().name(), &error);
    if (error) {
        KXApplication::presentError(error);
        KXApplication::terminate();
    }
    return path;
}

QString KXFileManager::cachesFolderPath()
{
    return fileManagerFolder(
        fileManagerBase(QStandardPaths::GenericCacheLocation), KXBundle::mainBundle().identifier());
}

QString KXFileManager::temporaryFolderPath()
{
    return fileManagerFolder(QDir::tempPath(), KXBundle::mainBundle().identifier());
}
