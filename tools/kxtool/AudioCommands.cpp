#include "AudioCommands.h"

#include <cmath>
#include <cstdio>

#include <QCommandLineParser>
#include <QDir>
#include <QEventLoop>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QRegularExpression>
#include <QSaveFile>

#include <kestrixkit/audio/KXAudioFile.h>
#include <kestrixkit/audio/KXAudioFileMetadata.h>
#include <kestrixkit/audio/KXWaveformGenerator.h>
#include <kestrixkit/audio/KXWaveformWindow.h>
#include <kestrixkit/foundation/KXOperationQueue.h>

using namespace Qt::StringLiterals;

namespace {

constexpr int fastCompression = 80; // of PNG: level 1, a fraction of the time for a few more bytes

int channelsOf(const QString &path)
{
    KXAudioFile file;
    KXStreamFormat format;
    qint64 frames = 0;
    KXError error;
    if (!file.openForReading(audioUrl(path), {}, &format, &frames, &error))
        throw Ending { WrongInput, u"%1: %2"_s.arg(path, error.localizedDescription()) };
    return int(format.mChannelsPerFrame);
}

ExitStatus printInfo(const QStringList &arguments)
{
    QCommandLineParser parser;
    const QString file = positionalArguments(parser, arguments, 1).at(0);
    KXAudioFileMetadata metadata(audioUrl(file));
    metadata.readMetadataFromAudioFile();
    if (metadata.error())
        throw Ending { WrongInput, u"%1: %2"_s.arg(file, metadata.error().localizedDescription()) };
    const QJsonObject object { { u"file"_s, file }, { u"numberOfFrames"_s, metadata.numberOfFrames() },
        { u"numberOfChannels"_s, metadata.numberOfChannels() }, { u"bitsPerChannel"_s, metadata.bitsPerChannel() },
        { u"sampleRate"_s, metadata.sampleRate() }, { u"duration"_s, metadata.duration() },
        { u"uti"_s, metadata.uti() } };
    std::fputs(QJsonDocument(object).toJson().constData(), stdout);
    return Done;
}

/// The images one below the other.
QImage stacked(const QList<QImage> &images, const QSize &size)
{
    QImage all(size, QImage::Format_RGBA8888_Premultiplied);
    if (all.isNull())
        return all;
    std::memset(all.bits(), 0, size_t(all.sizeInBytes()));
    int top = 0;
    for (const QImage &image : images) {
        for (int y = 0; y < image.height(); ++y)
            std::memcpy(all.scanLine(top + y), image.constScanLine(y), size_t(image.bytesPerLine()));
        top += image.height();
    }
    return all;
}

ExitStatus drawWaveform(const QStringList &arguments)
{
    QCommandLineParser parser;
    parser.addOptions(
        { { u"size"_s, {}, u"WxH"_s }, { u"sum"_s, {} }, { u"colour"_s, {}, u"#rrggbb"_s, u"#2f6fb7"_s } });
    const QStringList files = positionalArguments(parser, arguments, 2);
    const auto sizes = QRegularExpression(u"^([1-9][0-9]{0,4})x([1-9][0-9]{0,4})$"_s).match(parser.value(u"size"_s));
    if (!sizes.hasMatch())
        throw Ending { WrongInput, u"--size takes a width and a height in pixels, such as 1800x200"_s };
    const QString colour = parser.value(u"colour"_s);
    if (!QRegularExpression(u"^#[0-9a-fA-F]{6}$"_s).match(colour).hasMatch())
        throw Ending { WrongInput, u"--colour takes #rrggbb"_s };

    // Each channel gets its share of the height.
    const bool sum = parser.isSet(u"sum"_s);
    const QSize size(sizes.captured(1).toInt(), sizes.captured(2).toInt());
    const int rows = sum ? 1 : channelsOf(files.at(0));
    if (size.height() < rows)
        throw Ending { WrongInput,
            u"%1 has %2 channels, which do not fit into this height"_s.arg(files.at(0)).arg(rows) };
    const auto generator = std::make_shared<KXWaveformGenerator>(
        audioUrl(files.at(0)), QSizeF(size.width(), size.height() / rows), QColor(colour));
    generator->setSumAllChannels(sum);
    generator->setDecodingThreads(2);
    QEventLoop loop;
    QString failure;
    int columns = 0;
    const auto showProgress
        = [&](int percent) { std::fprintf(stderr, "\r%s: %d %%", qPrintable(files.at(0)), percent); };
    generator->setProgressBlock([&](const QList<QImage> &) {
        columns += KXWaveformGenerator::ColumnsPerProgress;
        showProgress(std::min(100, 100 * columns / size.width()));
    });
    generator->setSuccessBlock([&](const QList<QImage> &) { loop.quit(); });
    generator->setFailureBlock([&](const KXError &error) {
        failure = error.localizedDescription();
        loop.exit(1);
    });
    showProgress(0);
    KXOperationQueue queue;
    queue.addOperation(generator);
    if (loop.exec() != 0) {
        std::fputs("\n", stderr);
        throw Ending { WrongInput, u"%1: %2"_s.arg(files.at(0), failure) };
    }
    showProgress(100);
    std::fputs("\n", stderr);
    QSaveFile out(files.at(1));
    if (!out.open(QIODevice::WriteOnly)
        || !stacked(generator->waveformImages(), size).save(&out, "PNG", fastCompression) || !out.commit())
        throw Ending { Failed, u"%1: %2"_s.arg(files.at(1), out.errorString()) };
    return Done;
}

KXWaveformPyramid pyramidOf(const QString &path, bool measuresLoudness)
{
    KXWaveformReading reading;
    reading.measuresLoudness = measuresLoudness;
    KXError error;
    const auto pyramid = KXWaveformPyramid::read(audioUrl(path), reading, &error);
    if (!pyramid)
        throw Ending { WrongInput, u"%1: %2"_s.arg(path, error.localizedDescription()) };
    return *pyramid;
}

/// Channels counted from 0, such as 0,1,4.
std::vector<int> channelList(const QString &list, int channels)
{
    std::vector<int> result;
    for (const QString &each : list.split(u',')) {
        bool isNumber = false;
        const int channel = each.toInt(&isNumber);
        if (!isNumber || channel < 0 || channel >= channels)
            throw Ending { WrongInput, u"--channels takes numbers from 0 to %1"_s.arg(channels - 1) };
        result.push_back(channel);
    }
    return result;
}

ExitStatus printPyramid(const QStringList &arguments)
{
    QCommandLineParser parser;
    parser.addOptions({ { u"columns"_s, {}, u"N"_s }, { u"from"_s, {}, u"S"_s }, { u"to"_s, {}, u"S"_s },
        { u"channels"_s, {}, u"LIST"_s } });
    const QString file = positionalArguments(parser, arguments, 1).at(0);
    constexpr int most = 1'000'000;
    bool isNumber = false;
    const int count = parser.value(u"columns"_s).toInt(&isNumber);
    if (!isNumber || count < 1 || count > most)
        throw Ending { WrongInput, u"--columns takes a number from 1 to %1"_s.arg(most) };
    const KXWaveformPyramid pyramid = pyramidOf(file, false);
    const double from = numberOption(parser, u"from"_s, 0), to = numberOption(parser, u"to"_s, pyramid.duration());
    if (from > pyramid.duration() || to < from)
        throw Ending { WrongInput, u"--from and --to take seconds of the file, in this order"_s };
    KXWaveformWindow window { qint64(std::llround(from * pyramid.sampleRate())),
        std::min(pyramid.frames(), qint64(std::llround(std::min(to, pyramid.duration()) * pyramid.sampleRate()))),
        count, {}, {} };
    if (parser.isSet(u"channels"_s))
        window.channels = channelList(parser.value(u"channels"_s), pyramid.channels());
    // Columns made of whole cells are the pyramid's; others begin or end within one.
    const qint64 stretch = pyramid.framesPerCell() * count;
    KXWaveformColumns columns;
    if (window.from % pyramid.framesPerCell() == 0 && window.to > window.from
        && (window.to - window.from) % stretch == 0) {
        columns = pyramid.columnsOfChannels(window.channels, window.from, window.to, count);
    } else {
        KXError error;
        const auto read = window.read(audioUrl(file), {}, &error);
        if (!read)
            throw Ending { WrongInput, u"%1: %2"_s.arg(file, error.localizedDescription()) };
        columns = *read;
    }
    QJsonArray array;
    for (const KXWaveformColumn &column : columns)
        array.append(QJsonObject { { u"min"_s, double(column.least) }, { u"max"_s, double(column.greatest) },
            { u"rms"_s, double(column.rms) } });
    std::fputs(QJsonDocument(QJsonObject { { u"columns"_s, array } }).toJson().constData(), stdout);
    return Done;
}

ExitStatus printLoudness(const QStringList &arguments)
{
    QCommandLineParser parser;
    const QString file = positionalArguments(parser, arguments, 1).at(0);
    const std::optional<double> loudness = pyramidOf(file, true).loudness();
    if (!loudness)
        throw Ending { WrongInput, u"%1: its loudness cannot be measured"_s.arg(file) };
    const QJsonObject object { { u"file"_s, file },
        { u"loudness"_s, std::isfinite(*loudness) ? QJsonValue(*loudness) : QJsonValue() } };
    std::fputs(QJsonDocument(object).toJson().constData(), stdout);
    return Done;
}

ExitStatus runAudio(const QStringList &arguments)
{
    const QString name = arguments.value(0);
    for (const auto &[command, run] : { std::pair("info"_L1, &printInfo), std::pair("waveform"_L1, &drawWaveform),
             std::pair("pyramid"_L1, &printPyramid), std::pair("loudness"_L1, &printLoudness),
             std::pair("render"_L1, &renderAudio) }) {
        if (name == command)
            return run(arguments.sliced(1));
    }
    throw Ending { WrongInput, u"audio: info, waveform, pyramid, loudness or render?"_s };
}

} // namespace

Command audioCommand()
{
    return { u"audio"_s,
        u"info FILE\n"
        "  audio waveform FILE OUT.png --size WxH [--sum] [--colour #rrggbb]\n"
        "  audio pyramid FILE --columns N [--from S] [--to S] [--channels 0,1]\n"
        "  audio loudness FILE\n"
        "  audio render FILE OUT.wav [--player basic|multitrack] [--volume V] [--mute 1,3] [--seek S] [--duration S]"_s,
        u"the facts of an audio file as JSON; its waveform as a picture or as JSON; its loudness in LUFS (null: "
        u"silence); "
        "what a player makes of it (channels are counted from 0)"_s,
        &runAudio };
}

QStringList positionalArguments(QCommandLineParser &parser, const QStringList &arguments, qsizetype count)
{
    if (!parser.parse(QStringList(u"kxtool"_s) + arguments))
        throw Ending { WrongInput, parser.errorText() };
    QStringList positional = parser.positionalArguments();
    if (positional.size() != count)
        throw Ending { WrongInput, u"%1 file names are needed (kxtool --help)"_s.arg(count) };
    return positional;
}

QUrl audioUrl(const QString &argument)
{
    return QUrl::fromUserInput(argument, QDir::currentPath(), QUrl::AssumeLocalFile);
}

double numberOption(const QCommandLineParser &parser, const QString &name, double otherwise, double least)
{
    if (!parser.isSet(name))
        return otherwise;
    bool isNumber = false;
    const double number = parser.value(name).toDouble(&isNumber);
    if (!isNumber || !std::isfinite(number) || number < least)
        throw Ending { WrongInput, u"--%1 takes a number"_s.arg(name) };
    return number;
}
