#pragma once

#include <QString>

/// Under which a folder keeps a count of its own for a place, in place of the sum: beside that of the place, as a
/// preset that was counted may become a folder.
inline QString KXFolderCountIdentifier(const QString &contextIdentifier)
{
    return contextIdentifier + QStringLiteral("\nfolder");
}
