#pragma once

#include <QByteArray>
#include <QMap>
#include <QString>

/// What a store file says about itself.
struct KXStoreMetadata
{
    QString uuid;
    QByteArray modelJSON; ///< of the model that it was written with
    QMap<QString, QByteArray> versionHashes; ///< of that model's entities
};
