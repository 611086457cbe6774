#include <kestrixkit/foundation/KXBundle.h>

#include <QCoreApplication>
#include <QDir>

using namespace Qt::StringLiterals;

struct KXBundle::Data
{
    mutable std::mutex mutex;
    QString name;
    QString identifier;
    std::optional<QStringList> folders;
};

KXBundle::KXBundle(Data *data)
    : d(data)
{
}

KXBundle &KXBundle::mainBundle()
{
    static auto *const bundle = new KXBundle(new Data);
    return *bundle;
}

KXBundle &KXBundle::frameworkBundle()
{
    static auto *const bundle = [] {
        auto *made = new KXBundle(new Data);
        made->setName(u"KestrixKit"_s);
        made->setIdentifier(u"com.kestrix.KestrixKit"_s);
        made->setResourceFolders({ u":/kestrixkit"_s });
        return made;
    }();
    return *bundle;
}

QString KXBundle::name() const
{
    const std::lock_guard lock(d->mutex);
    return d->name.isEmpty() ? QCoreApplication::applicationName() : d->name;
}

void KXBundle::setName(const QString &name)
{
    const std::lock_guard lock(d->mutex);
    d->name = name;
}

QString KXBundle::identifier() const
{
    {
        const std::lock_guard lock(d->mutex);
        if (!d->identifier.isEmpty())
            return d->identifier;
    }
    QStringList parts = QCoreApplication::organizationDomain().split(u'.', Qt::SkipEmptyParts);
    std::reverse(parts.begin(), parts.end());
    parts.append(name());
    return parts.join(u'.');
}

void KXBundle::setIdentifier(const QString &identifier)
{
    const std::lock_guard lock(d->mutex);
    d->identifier = identifier;
}

QStringList KXBundle::resourceFolders() const
{
    const std::lock_guard lock(d->mutex);
    if (d->folders)
        return *d->folders;
    QStringList folders { u":"_s };
    if (QCoreApplication::instance())
        folders.append(QCoreApplication::applicationDirPath() + "/resources"_L1);
    return folders;
}

void KXBundle::setResourceFolders(const QStringList &folders)
{
    const std::lock_guard lock(d->mutex);
    d->folders = folders;
}

QStringList KXBundle::resourcePaths(const QString &extension, const QString &subfolder) const
{
    QStringList paths;
    for (const QString &folder : resourceFolders()) {
        const QDir dir(subfolder.isEmpty() ? folder : folder + u'/' + subfolder);
        for (const QString &entry :
            dir.entryList({ "*."_L1 + extension }, QDir::AllEntries | QDir::NoDotAndDotDot, QDir::Name))
            paths.append(dir.filePath(entry));
    }
    return paths;
}

QString KXBundle::pathForResource(const QString &name, const QString &extension, const QString &subfolder) const
{
    const QString file = extension.isEmpty() ? name : name + u'.' + extension;
    for (const QString &folder : resourceFolders()) {
        const QString path = QDir(subfolder.isEmpty() ? folder : folder + u'/' + subfolder).filePath(file);
        if (QFileInfo::exists(path))
            return path;
    }
    return {};
}
