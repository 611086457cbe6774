#include "ffmpeg/FFmpegModule.h"

#include <QDebug>
#include <QFileInfo>
#include <QLibrary>

using namespace Qt::StringLiterals;

QFunctionPointer FFmpegModule::function(const char *name)
{
    // Readers of tags have no application object that could be asked for the folder.
    static const QString folder = QFileInfo(QFileInfo(u"/proc/self/exe"_s).symLinkTarget()).path();
    QLibrary module(folder + u"/browser_ffmpeg.so"_s);
    module.setLoadHints(QLibrary::PreventUnloadHint);
    const QFunctionPointer found = module.resolve(name);
    if (!found)
        qCritical().noquote() << "A part of the installation cannot be used:" << module.errorString();
    return found;
}

std::optional<AudioProbe> probeAudio(const std::string &path)
{
    static const auto probe = reinterpret_cast<decltype(&browserProbe)>(FFmpegModule::function("browserProbe"));
    std::optional<AudioProbe> found;
    if (probe)
        probe(path, found);
    return found;
}

QString encodeAudio(const AudioBuffer &sound, AudioFormat format, const std::string &path)
{
    static const auto encode = reinterpret_cast<decltype(&browserEncode)>(FFmpegModule::function("browserEncode"));
    if (!encode)
        return u"cannot write audio: a part of the installation is missing"_s;
    QString failure;
    encode(sound, format, path, failure);
    return failure;
}
