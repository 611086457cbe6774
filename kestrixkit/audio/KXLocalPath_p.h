#pragma once

#include <QByteArray>
#include <QFile>
#include <QUrl>

/// The path of a file URL, byte for byte: a file's name need not be text. Any thread.
inline QByteArray KXLocalPath(const QUrl &url)
{
    return url.host().isEmpty() ? QByteArray::fromPercentEncoding(url.path(QUrl::FullyEncoded).toLatin1())
                                : QFile::encodeName(url.toLocalFile());
}
