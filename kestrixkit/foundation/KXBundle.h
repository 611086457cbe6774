#pragma once

#include <QString>
#include <QStringList>

#include <kestrixkit/foundation/KXGlobal.h>

/// What a program or library is called and where its resources lie. The main bundle is the host application's;
/// the framework has its own. All functions may be called on any thread.
class KX_CORE_EXPORT KXBundle
{
public:
    [[nodiscard]] static KXBundle &mainBundle();
    [[nodiscard]] static KXBundle &frameworkBundle();

    /// The name that folders and stores get. Unless set: QCoreApplication::applicationName().
    [[nodiscard]] QString name() const;
    void setName(const QString &name);

    /// Unless set: the reversed organisation domain and the name, "com.example.Browser".
    [[nodiscard]] QString identifier() const;
    void setIdentifier(const QString &identifier);

    /// The folders searched for resources, first to last; may be Qt resource paths.
    [[nodiscard]] QStringList resourceFolders() const;
    void setResourceFolders(const QStringList &folders);

    /// The files (and folders) with this extension in all resource folders, or in a subfolder of them, by name.
    [[nodiscard]] QStringList resourcePaths(const QString &extension, const QString &subfolder = {}) const;
    /// The first match; null when there is none. An empty extension means that the name has its own.
    [[nodiscard]] QString pathForResource(
        const QString &name, const QString &extension = {}, const QString &subfolder = {}) const;

    Q_DISABLE_COPY_MOVE(KXBundle)

private:
    struct Data;
    explicit KXBundle(Data *data);
    ~KXBundle() = default;
    Data *const d; // lives as long as the process
};
