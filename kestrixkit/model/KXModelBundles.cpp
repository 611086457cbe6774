// Models of bundles: their files put together, and the one that a process shares.

#include <kestrixkit/model/KXManagedObjectModel.h>

#include <algorithm>
#include <mutex>

#include <kestrixkit/entity/KXStoreErrorCode.h>
#include <kestrixkit/foundation/KXBundle.h>
#include <kestrixkit/foundation/KXException.h>
#include <kestrixkit/foundation/KXLog.h>
#include <kestrixkit/foundation/KXMainThreadDictionary.h>
#include <kestrixkit/model/KXModelFile_p.h>

using namespace Qt::StringLiterals;

namespace {

std::mutex sharedModelMutex;

/// The files of some bundles: those that make a model by themselves, and those whose entities need the others'.
struct ModelFiles
{
    QList<KXManagedObjectModel::Ref> models;
    QList<KXModelFile::Content> dependent;
    KXError dependence; // of the first of those: what it lacks
    KXError damage; // of the first that is none at all

    void read(const QString &path)
    {
        KXError problem;
        if (const auto model = KXManagedObjectModel::modelWithContentsOfFile(path, &problem)) {
            models.append(model);
            return;
        }
        QByteArray json;
        KXModelFile::Content content;
        const bool isReadable = !KXModelFile::readFile(path, json) && !KXModelFile::read(json, content);
        if (isReadable)
            dependent.append(content);
        if (KXError &first = isReadable ? dependence : damage; !first)
            first = problem;
    }
};

/// nullptr where they do not fit together.
KXManagedObjectModel::Ref modelOn(const QList<KXManagedObjectModel::Ref> &models, const KXModelFile::Content &content)
{
    try {
        return KXManagedObjectModel::make(content.entities, content.templates, models);
    } catch (const KXException &) {
        return nullptr;
    }
}

const QList<const KXBundle *> bundlesOrMain(const QList<const KXBundle *> &bundles)
{
    return bundles.isEmpty() ? QList<const KXBundle *> { &KXBundle::mainBundle() } : bundles;
}

}

KXManagedObjectModel::Ref KXManagedObjectModel::mergedModelFromBundles(
    const QList<const KXBundle *> &bundles, KXError *error)
{
    ModelFiles files;
    for (const KXBundle *bundle : bundlesOrMain(bundles)) {
        for (const QString &path : KXModelFile::currentModelFiles(*bundle))
            files.read(path);
    }
    KXModelFile::Content dependent;
    for (const KXModelFile::Content &content : files.dependent) {
        dependent.entities += content.entities;
        dependent.templates += content.templates;
    }
    if (files.models.isEmpty() && files.dependent.isEmpty() && !files.damage)
        files.damage = KXError(KXKestrixKitErrorDomain, KXStoreErrorCode::InvalidModel, u"The bundles hold no model"_s);
    if (!files.damage && files.dependent.isEmpty())
        return modelByMergingModels(files.models, error);
    Ref model = files.damage ? nullptr : modelOn(files.models, dependent);
    if (!model)
        KXSetError(error, files.damage ? files.damage : files.dependence);
    return model;
}

KXManagedObjectModel::Ref KXManagedObjectModel::mergedModelFromBundles(
    const QList<const KXBundle *> &bundles, const KXStoreMetadata &forStoreMetadata)
{
    const auto &wanted = forStoreMetadata.versionHashes;
    const auto fits = [&wanted](const Ref &model) {
        return std::all_of(model->m_sorted.begin(), model->m_sorted.end(),
            [&wanted](auto *entity) { return wanted.value(entity->name()) == entity->versionHash(); });
    };
    ModelFiles files;
    for (const KXBundle *bundle : bundlesOrMain(bundles)) {
        for (const QString &path : KXModelFile::allModelFiles(*bundle))
            files.read(path);
    }
    QList<Ref> models;
    std::copy_if(files.models.begin(), files.models.end(), std::back_inserter(models), fits);
    for (const Ref &model : models) {
        if (model->versionHashes() == wanted)
            return model;
    }
    Ref merged = modelByMergingModels(models);
    for (const KXModelFile::Content &content : files.dependent) {
        if (const Ref more = modelOn({ merged }, content); more && fits(more))
            merged = more;
    }
    return merged && merged->versionHashes() == wanted ? merged : nullptr;
}

KXManagedObjectModel::Ref KXManagedObjectModel::managedObjectModel()
{
    // Held while the model is read, so that whoever asks meanwhile waits for the one instead of making a second.
    const std::lock_guard lock(sharedModelMutex);
    Ref model = KXMainThreadDictionary::get<Ref>(KXNSManagedObjectModelMainThreadKey);
    if (!model) {
        KXError error;
        model = mergedModelFromBundles({}, &error);
        if (model)
            KXMainThreadDictionary::setValue(KXNSManagedObjectModelMainThreadKey, model);
        else
            KXLogError(store, "Failed to load the object model - %@", error);
    }
    return model;
}

void KXManagedObjectModel::setManagedObjectModel(const Ref &model)
{
    const std::lock_guard lock(sharedModelMutex);
    KXMainThreadDictionary::setValue(KXNSManagedObjectModelMainThreadKey, model);
}
