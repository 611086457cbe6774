// Opening, and what is known about a file from then on.

#include <kestrixkit/audio/ffmpeg/KXFFmpegAudioFile_p.h>

#include <QFile>
#include <QtEndian>

#include <kestrixkit/audio/KXAudioFile.h>
#include <kestrixkit/audio/KXAudioFileGrowth_p.h>
#include <kestrixkit/audio/KXLocalPath_p.h>
#include <kestrixkit/audio/ffmpeg/KXStreamAddress_p.h>
#include <kestrixkit/foundation/KXLog.h>

extern "C" {
#include <libavutil/opt.h>
}

using namespace Qt::StringLiterals;

static_assert(KXAudioFileInterruptedError == AVERROR_EXIT && KXAudioFileParameterError == AVERROR(EINVAL)
    && KXAudioFileConnectionError == AVERROR(EIO) && KXAudioFileForbiddenError == AVERROR(EACCES));

namespace {

/// How far back decoding must start for a frame to come out as it does in one go; found by trial, with a margin.
qint64 ffmpegPreroll(AVCodecID codec, bool isPCM)
{
    switch (codec) {
    case AV_CODEC_ID_FLAC:
    case AV_CODEC_ID_ALAC:
        return 0;
    case AV_CODEC_ID_AAC:
        return 4096;
    case AV_CODEC_ID_VORBIS:
        return 8192;
    case AV_CODEC_ID_MP3:
        return 11520; // ten packets: low bit rates borrow bits from far back
    default:
        return isPCM ? 0 : 48000;
    }
}

bool ffmpegIsPCM(AVCodecID codec) { return codec >= AV_CODEC_ID_FIRST_AUDIO && codec < AV_CODEC_ID_ADPCM_IMA_QT; }

quint32 ffmpegFormatID(AVCodecID codec, quint32 tag)
{
    switch (codec) {
    case AV_CODEC_ID_ALAC:
        return KXAudioFormatAppleLossless;
    case AV_CODEC_ID_FLAC:
        return KXAudioFormatFLAC;
    case AV_CODEC_ID_AAC:
        return KXAudioFormatMPEG4AAC;
    case AV_CODEC_ID_MP3:
        return KXAudioFormatMPEGLayer3;
    case AV_CODEC_ID_VORBIS:
        return KXAudioFormatVorbis;
    case AV_CODEC_ID_OPUS:
        return KXAudioFormatOpus;
    default:
        return ffmpegIsPCM(codec) ? KXAudioFormatLinearPCM : qFromBigEndian(qToLittleEndian(tag));
    }
}

}

KXFFmpegAudioFile::KXFFmpegAudioFile()
    : m_packet(av_packet_alloc())
    , m_frame(av_frame_alloc())
{
    static const bool silenced = (av_log_set_level(AV_LOG_QUIET), true); // failures come as statuses
    Q_UNUSED(silenced)
}

KXFFmpegAudioFile::~KXFFmpegAudioFile() = default;

int KXFFmpegAudioFile::isInterrupted(void *self)
{
    const auto *file = static_cast<const KXFFmpegAudioFile *>(self);
    if (file->m_options.cancelled && file->m_options.cancelled->load(std::memory_order_relaxed))
        return 1;
    return file->m_path.isEmpty() && std::chrono::steady_clock::now() > file->m_deadline;
}

void KXFFmpegAudioFile::renewDeadline()
{
    const std::chrono::duration<double> wait(std::clamp(m_options.secondsPerCall, 0.0, 86400.0));
    if (m_path.isEmpty())
        m_deadline = std::chrono::steady_clock::now() + std::chrono::duration_cast<std::chrono::milliseconds>(wait);
}

KXAudioFileStatus KXFFmpegAudioFile::open(const QUrl &url, const KXAudioFileOptions &options)
{
    m_options = options;
    if (!m_packet || !m_frame)
        return AVERROR(ENOMEM);
    if (url.isLocalFile()) {
        m_path = KXLocalPath(url);
        m_address = "file:" + m_path;
        struct stat info = {};
        if (stat(m_path.constData(), &info) != 0)
            return -errno;
        if (!S_ISREG(info.st_mode)) // reading a pipe could wait for ever
            return S_ISDIR(info.st_mode) ? -EISDIR : KXAudioFileParameterError;
    } else if (url.scheme() == "http"_L1 || url.scheme() == "https"_L1) {
        QUrl address = url;
        renewDeadline();
        const bool followsPrivate = KXAudioFile::followsPrivateRedirects();
        if (!followsPrivate || m_options.mayLeadTo) {
            const KXAudioFileStatus status = KXStreamAddress::resolve(address, m_staysAtAddress,
                { [this] { return isInterrupted(this) != 0; }, m_options.mayLeadTo, followsPrivate,
                    QStringLiteral(LIBAVFORMAT_IDENT) });
            if (status != KXAudioFileNoError)
                return status;
        }
        m_address = address.toEncoded();
    } else {
        return KXAudioFileParameterError;
    }
    renewDeadline();
    int status = openInput();
    if (status < 0)
        return status;
    readFacts();
    if ((status = openDecoder()) < 0)
        return status;
    // The first packet can lie before frame 0, and is needed to decode it.
    if (readPacket() == 0) {
        m_hasPacket = true;
        if (m_packet->pts != AV_NOPTS_VALUE)
            m_firstTime = m_packet->pts;
    }
    return KXAudioFileNoError;
}

/// Opens the file anew. The one that was open stays open when this fails.
int KXFFmpegAudioFile::openInput()
{
    AVFormatContext *context = avformat_alloc_context();
    if (!context)
        return AVERROR(ENOMEM);
    context->interrupt_callback = { &isInterrupted, this };
    AVDictionary *settings = nullptr;
    // Playlists and the like would open whatever they name.
    av_dict_set(&settings, "format_whitelist", "wav,w64,aiff,caf,flac,mov,mp3,aac,ogg", 0);
    av_dict_set(&settings, "protocol_whitelist", m_path.isEmpty() ? "http,https,tcp,tls" : "file", 0);
    if (m_path.isEmpty()) {
        av_dict_set_int(&settings, "rw_timeout", int64_t(m_options.secondsPerCall * 1e6), 0);
        av_dict_set(&settings, "reconnect", "1", 0);
    }
    int status = avformat_open_input(&context, m_address.constData(), nullptr, &settings);
    av_dict_free(&settings);
    if (status < 0)
        return status;
    Pointer<AVFormatContext> file(context);
    if (isLedAstray(context))
        return KXAudioFileForbiddenError;
    if ((status = avformat_find_stream_info(context, nullptr)) < 0
        || (status = av_find_best_stream(context, AVMEDIA_TYPE_AUDIO, -1, -1, nullptr, 0)) < 0)
        return status;
    AVStream *stream = context->streams[status];
    const AVCodecParameters *parameters = stream->codecpar;
    if (parameters->sample_rate <= 0 || parameters->ch_layout.nb_channels <= 0)
        return AVERROR_INVALIDDATA;
    for (unsigned i = 0; i < context->nb_streams; ++i)
        context->streams[i]->discard = context->streams[i] == stream ? AVDISCARD_DEFAULT : AVDISCARD_ALL;
    m_file = std::move(file);
    m_stream = stream;
    return 0;
}

/// Whether a server that was asked where it leads said another thing to the decoder: when it opened the file, or when
/// it asked again for a place in it or after the connection broke.
bool KXFFmpegAudioFile::isLedAstray(AVFormatContext *file) const
{
    if (!m_staysAtAddress)
        return false;
    uint8_t *location = nullptr;
    const bool isKnown = av_opt_get(file->pb, "location", AV_OPT_SEARCH_CHILDREN, &location) >= 0;
    const QByteArray there = isKnown ? reinterpret_cast<const char *>(location) : "";
    av_free(location);
    if (there.isEmpty() || there == m_address)
        return false;
    KXLogError(audio, "%@ leads to %@ after all, where it may not", QUrl::fromEncoded(m_address).host(),
        QUrl::fromEncoded(there).host());
    return true;
}

/// A new decoder, since one that is merely flushed remembers some of what it had decoded.
int KXFFmpegAudioFile::openDecoder()
{
    const AVCodec *codec = avcodec_find_decoder(m_stream->codecpar->codec_id);
    if (!codec)
        return AVERROR_DECODER_NOT_FOUND;
    Pointer<AVCodecContext> context(avcodec_alloc_context3(codec));
    if (!context)
        return AVERROR(ENOMEM);
    int status = avcodec_parameters_to_context(context.get(), m_stream->codecpar);
    context->pkt_timebase = m_stream->time_base; // moves time stamps along when samples at the start are skipped
    context->thread_count = 1;
    if (status < 0 || (status = avcodec_open2(context.get(), codec, nullptr)) < 0)
        return status;
    m_codec = std::move(context);
    return 0;
}

void KXFFmpegAudioFile::readFacts()
{
    const AVCodecParameters *parameters = m_stream->codecpar;
    const bool isPCM = ffmpegIsPCM(parameters->codec_id);
    m_rate = parameters->sample_rate;
    m_channels = parameters->ch_layout.nb_channels;
    m_timeBase = m_stream->time_base;
    m_startTime = m_firstTime = m_stream->start_time == AV_NOPTS_VALUE ? 0 : m_stream->start_time;
    m_preroll = ffmpegPreroll(parameters->codec_id, isPCM);
    m_isOgg = qstrcmp(m_file->iformat->name, "ogg") == 0;
    const qint64 unitsPerSecond = m_timeBase.den / std::max(1, m_timeBase.num);
    m_slack = unitsPerSecond % m_rate == 0 ? 0 : 1 + m_rate / std::max<qint64>(1, unitsPerSecond);

    m_format.mSampleRate = m_rate;
    m_format.mChannelsPerFrame = quint32(m_channels);
    m_format.mFormatID = ffmpegFormatID(parameters->codec_id, parameters->codec_tag);
    m_format.mFramesPerPacket = quint32(std::max(0, parameters->frame_size));
    if (isPCM) {
        m_format.mBitsPerChannel = quint32(std::max(0, av_get_bits_per_sample(parameters->codec_id)));
        m_format.mBytesPerFrame = m_format.mBytesPerPacket = m_format.mBitsPerChannel / 8 * quint32(m_channels);
        m_format.mFramesPerPacket = 1;
    } else if (parameters->codec_id == AV_CODEC_ID_ALAC && parameters->extradata_size >= 16) {
        m_format.mFramesPerPacket = qFromBigEndian<quint32>(parameters->extradata + 12);
    } else if (parameters->codec_id == AV_CODEC_ID_FLAC && parameters->extradata_size >= 4) {
        m_format.mFramesPerPacket = qFromBigEndian<quint16>(parameters->extradata + 2);
    }
    m_format.mFramesPerPacket = std::max<quint32>(1, m_format.mFramesPerPacket); // callers divide by it
    findLength();
}

void KXFFmpegAudioFile::findLength()
{
    const AVCodecID codec = m_stream->codecpar->codec_id;
    const QByteArray container = m_file->iformat->name;
    const bool isGuess = m_file->duration_estimation_method == AVFMT_DURATION_FROM_BITRATE;
    const bool isMovie = container.startsWith("mov");
    if (m_stream->duration != AV_NOPTS_VALUE && m_stream->duration > 0)
        m_length = av_rescale_q(m_stream->duration, m_timeBase, { 1, m_rate });
    else if (m_file->duration != AV_NOPTS_VALUE && m_file->duration > 0)
        m_length = av_rescale_q(m_file->duration, AV_TIME_BASE_Q, { 1, m_rate });
    const bool knowsItself = ffmpegIsPCM(codec) || codec == AV_CODEC_ID_FLAC || codec == AV_CODEC_ID_VORBIS
        || (isMovie && (codec == AV_CODEC_ID_ALAC || codec == AV_CODEC_ID_AAC));
    m_lengthIsExact = !isGuess && m_length > 0 && knowsItself;
    m_endsAtLength = m_lengthIsExact && isMovie;
    // The last page of an Ogg file, and a length guessed from the size, only speak of what is there.
    if (!isGuess && m_length > 0 && !m_isOgg) {
        m_promise = m_length;
        // A promise in whole packets counts from the first one's start, before frame 0.
        m_promiseSlack = m_lengthIsExact ? 0 : av_rescale_q(m_startTime, m_timeBase, { 1, m_rate });
    }
}

KXAudioFileStatus KXFFmpegAudioFile::dataFormat(KXStreamFormat *format)
{
    *format = m_format;
    return KXAudioFileNoError;
}

KXAudioFileStatus KXFFmpegAudioFile::lengthInFrames(qint64 *frames)
{
    *frames = m_length;
    return KXAudioFileNoError;
}

KXAudioFileStatus KXFFmpegAudioFile::setClientFormat(const KXStreamFormat &format)
{
    return format == KXPlanarFloatFormat(m_rate, quint32(m_channels)) ? KXAudioFileNoError : KXAudioFileParameterError;
}

bool KXFFmpegAudioFile::isSeekable() const
{
    return !m_path.isEmpty() || (m_file && m_file->pb && (m_file->pb->seekable & AVIO_SEEKABLE_NORMAL));
}

qint64 KXFFmpegAudioFile::framesOf(qint64 timestamp) const
{
    return av_rescale_q(timestamp - m_startTime, m_timeBase, { 1, m_rate });
}

bool KXFFmpegAudioFile::isShortOfPromise(qint64 frame) const
{
    return m_promise >= 0 && frame < m_promise - m_promiseSlack;
}

bool KXFFmpegAudioFile::isGrowing() const { return KXAudioFileGrowth::of(m_path.constData(), m_options).recent; }
