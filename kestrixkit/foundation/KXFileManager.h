#pragma once

#include <QString>

#include <kestrixkit/foundation/KXGlobal.h>

/// The folders of the main bundle, made (with those above them) when they are asked for and nothing exists at
/// their path. A plain file of that name is taken as it is. Any thread.
class KX_CORE_EXPORT KXFileManager
{
public:
    /// The user's data folder + bundle name: what must not be lost. If it cannot be made, the error is presented,
    /// the application asked to terminate, and the answer is null.
    [[nodiscard]] static QString applicationSupportFolderPath();

    /// The user's cache folder + bundle identifier. Null, with a log line, if it cannot be made.
    [[nodiscard]] static QString cachesFolderPath();

    /// The temporary folder + bundle identifier. Null, with a log line, if it cannot be made.
    [[nodiscard]] static QString temporaryFolderPath();

    KXFileManager() = delete;
};
