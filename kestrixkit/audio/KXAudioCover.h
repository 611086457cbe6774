#pragma once

#include <QImage>
#include <QUrl>

#include <kestrixkit/foundation/KXGlobal.h>

/// The picture of a piece of music.
namespace KXAudioCover {

/// The picture that lies in the tags of the file, the front cover before others; else an image "cover" or "folder"
/// (.jpg, .jpeg or .png) beside it. Scaled down, never up, to fit into `most`, in pixels. A null image where there is
/// none, it is damaged, or it is larger than 64 MB when it is unpacked. Local files only; reads no more of them than
/// their tags. Any thread.
[[nodiscard]] KX_AUDIO_EXPORT QImage imageOfFile(const QUrl &file, QSize most);

}
