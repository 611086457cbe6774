// Reading and seeking; opening and the facts of the file are in KXFFmpegAudioFileOpen.cpp.

#include <kestrixkit/audio/ffmpeg/KXFFmpegAudioFile_p.h>

#include <bit>
#include <cstring>

#include <kestrixkit/audio/KXAudioFileGrowth_p.h>

namespace {

/// Where a block of FLAC begins and how long it is, in frames, by its own header. The library knows neither where that
/// leaves the rate to the file's header.
void ffmpegPlaceFlacBlock(AVPacket &packet, quint32 framesPerBlock)
{
    const uint8_t *at = packet.data;
    const uint8_t *const end = at + packet.size;
    if (packet.size < 6 || at[0] != 0xFF || (at[1] & 0xFC) != 0xF8)
        return;
    const bool countsFrames = at[1] & 1; // else blocks
    const int code = at[2] >> 4;
    // The number is written as UTF-8 writes characters, in up to seven bytes.
    const int length = std::max(1, std::countl_one(at[4]));
    qint64 number = length == 1 ? at[4] : at[4] & 0x7F >> length;
    at += 5;
    for (int i = 1; i < length && at < end; ++i)
        number = number << 6 | (*at++ & 0x3F);
    qint64 frames = code == 1 ? 192 : code < 6 ? 576 << std::max(0, code - 2) : 256 << std::max(0, code - 8);
    if (code == 6 && at < end)
        frames = *at + 1;
    else if (code == 7 && at + 1 < end)
        frames = (at[0] << 8 | at[1]) + 1;
    packet.pts = countsFrames ? number : number * framesPerBlock;
    packet.duration = frames;
}

/// Whether a packet has fewer bytes than it says.
bool ffmpegIsCutOff(const AVPacket &packet, quint32 formatID)
{
    if (packet.flags & AV_PKT_FLAG_CORRUPT)
        return true;
    if (formatID != KXAudioFormatMPEGLayer3 || packet.size < 4)
        return false;
    constexpr int kilobits[2][16] = { { 0, 8, 16, 24, 32, 40, 48, 56, 64, 80, 96, 112, 128, 144, 160 },
        { 0, 32, 40, 48, 56, 64, 80, 96, 112, 128, 160, 192, 224, 256, 320 } };
    constexpr int rates[] = { 44100, 48000, 32000, 44100 };
    const uint8_t *header = packet.data;
    const int version = header[1] >> 3 & 3; // 3: MPEG-1; 2 and 0 have half and a quarter of its rates
    const int rate = rates[header[2] >> 2 & 3] / (version == 3 ? 1 : version == 2 ? 2 : 4);
    const int bytes = (version == 3 ? 144000 : 72000) * kilobits[version == 3][header[2] >> 4] / rate;
    return packet.size < bytes + (header[2] >> 1 & 1);
}

}

KXAudioFileStatus KXFFmpegAudioFile::seek(qint64 frame)
{
    if (frame < 0 || (m_lengthIsExact && frame > m_length))
        return KXAudioFileParameterError;
    renewDeadline();
    return reposition(frame, true);
}

int KXFFmpegAudioFile::reposition(qint64 frame, bool mayDecodeAllTheWay)
{
    int status = 0;
    bool found = false;
    if (isSeekable()) {
        // A used Ogg demuxer that has seen the last page delivers wrong samples. A connection that broke off stays so.
        if ((m_isOgg || m_isBroken) && (status = openInput()) < 0)
            return status;
        const qint64 wanted
            = m_startTime + av_rescale_q_rnd(frame - m_preroll, { 1, m_rate }, m_timeBase, AV_ROUND_DOWN);
        const qint64 time = std::max(m_firstTime, wanted);
        status = avformat_seek_file(m_file.get(), m_stream->index, INT64_MIN, time, time, 0);
        found = status >= 0;
    } else if (frame >= m_position && !m_isAtEnd && !m_waitsForGrowth && !m_isBroken) {
        // What lies between is read and dropped.
        const qint64 skipped = frame - m_position;
        const qint64 left = m_frame->nb_samples - m_frameOffset;
        const qint64 silent = std::min(skipped, m_silence);
        m_silence -= silent;
        m_frameOffset += std::min(skipped - silent, left);
        m_position = frame;
        return 0;
    }
    if (!found && (!mayDecodeAllTheWay || (status = openInput()) < 0))
        return status;
    if ((status = openDecoder()) < 0)
        return status;
    av_packet_unref(m_packet.get());
    av_frame_unref(m_frame.get());
    m_position = frame;
    m_silence = m_frameOffset = 0;
    m_decodedEnd = m_packetEnd = -1;
    m_hasPacket = m_waitsForGrowth = m_isAtEnd = m_isBroken = false;
    m_failure = 0;
    return 0;
}

KXAudioFileStatus KXFFmpegAudioFile::read(float *const *channels, quint32 frames, quint32 *framesRead)
{
    renewDeadline();
    const qint64 wanted = m_endsAtLength ? std::min<qint64>(frames, m_length - m_position) : frames;
    qint64 done = 0;
    int status = 0;
    while (done < wanted && status == 0) {
        const qint64 left = m_frame->nb_samples - m_frameOffset;
        if (m_silence > 0) {
            const qint64 count = std::min(wanted - done, m_silence);
            for (int c = 0; c < m_channels; ++c)
                std::memset(channels[c] + done, 0, size_t(count) * sizeof(float));
            m_silence -= count;
            done += count;
            m_position += count;
        } else if (left > 0) {
            const qint64 count = std::min(wanted - done, left);
            status = convert(channels, done, count);
            m_frameOffset += count;
            done += count;
            m_position += count;
        } else {
            status = nextFrame();
        }
    }
    *framesRead = quint32(done);
    if (done == 0 && status == EndOfFile)
        return m_failure;
    return done > 0 || status == EndOfFile ? KXAudioFileNoError : status;
}

KXAudioFileStatus KXFFmpegAudioFile::readEncoded(QByteArrayView *packet)
{
    *packet = {};
    renewDeadline();
    if (!std::exchange(m_hasPacket, false)) {
        const int status = readPacket();
        if (status < 0 || status == KXAudioFileInvalidFileError)
            return status == AVERROR_EOF ? KXAudioFileNoError : status;
    }
    *packet = QByteArrayView(m_packet->data, m_packet->size);
    return KXAudioFileNoError;
}

int KXFFmpegAudioFile::nextFrame()
{
    if (m_isAtEnd)
        return EndOfFile;
    if (m_waitsForGrowth) {
        if (const int status = resumeGrown())
            return status;
    }
    for (;;) {
        const int status = avcodec_receive_frame(m_codec.get(), m_frame.get());
        if (status == 0) {
            if (takeFrame())
                return 0;
        } else if (status == AVERROR_EOF) {
            // The last frame may have been there in part.
            if (m_lengthIsExact && isShortOfPromise(std::max(m_position, m_decodedEnd)) && isGrowing())
                return waitForGrowth();
            reachedEnd();
            return EndOfFile;
        } else if (const int fed = feedDecoder()) { // more is wanted, or a damaged packet is passed over
            return fed;
        }
    }
}

/// Decides what of a decoded frame is to be delivered. False when nothing is.
bool KXFFmpegAudioFile::takeFrame()
{
    const qint64 frames = m_frame->nb_samples;
    m_frameOffset = frames;
    if (m_frame->ch_layout.nb_channels != m_channels || m_frame->sample_rate != m_rate)
        return false; // damage; silence takes its place
    qint64 start = m_frame->pts != AV_NOPTS_VALUE ? framesOf(m_frame->pts)
        : m_decodedEnd >= 0                       ? m_decodedEnd
                                                  : m_position;
    if (m_decodedEnd >= 0 && std::abs(start - m_decodedEnd) <= m_slack)
        start = m_decodedEnd;
    m_decodedEnd = start + frames;
    if (m_decodedEnd <= m_position)
        return false;
    m_frameOffset = std::max<qint64>(0, m_position - start);
    // Not for ever, where damage made the time stamp.
    m_silence = std::clamp<qint64>(start - m_position, 0, std::max<qint64>(10 * qint64(m_rate), m_length - m_position));
    return true;
}

int KXFFmpegAudioFile::feedDecoder()
{
    if (!m_hasPacket) {
        const int status = readPacket();
        m_isBroken = status < 0 && status != AVERROR_EOF && status != KXAudioFileInvalidFileError;
        if (status == KXAudioFileInterruptedError || status == KXAudioFileInvalidFileError)
            return status;
        if (status < 0) {
            m_failure = status == AVERROR_EOF ? 0 : status;
            avcodec_send_packet(m_codec.get(), nullptr);
            return 0;
        }
    }
    avcodec_send_packet(m_codec.get(), m_packet.get()); // what is damaged shows as a gap in time
    av_packet_unref(m_packet.get());
    m_hasPacket = false;
    return 0;
}

int KXFFmpegAudioFile::readPacket()
{
    int status = 0;
    int damaged = 0;
    do {
        av_packet_unref(m_packet.get());
        status = av_read_frame(m_file.get(), m_packet.get());
        // Behind a damaged place there may be more.
        damaged += status == AVERROR_INVALIDDATA;
    } while (status >= 0 ? m_packet->stream_index != m_stream->index : status == AVERROR_INVALIDDATA && damaged < 1000);
    if (isLedAstray(m_file.get())) {
        av_packet_unref(m_packet.get());
        return KXAudioFileForbiddenError;
    }

    if (status >= 0 && m_format.mFormatID == KXAudioFormatFLAC && m_packet->duration <= 0
        && av_cmp_q(m_timeBase, { 1, m_rate }) == 0)
        ffmpegPlaceFlacBlock(*m_packet, m_format.mFramesPerPacket);

    const bool isLocal = !m_path.isEmpty();
    AVIOContext *bytes = m_file->pb;
    const qint64 reached = std::max(m_position, m_packetEnd);
    // What fails behind the last packet does not matter.
    if (status < 0 && status != KXAudioFileInterruptedError && m_promise >= 0 && !isShortOfPromise(reached))
        return AVERROR_EOF;
    // A server that does not say how much there is says with the connection's end that this was all.
    if (status == AVERROR(EIO) && !isLocal && m_promise < 0 && avio_size(bytes) < 0)
        return AVERROR_EOF;
    if (status == AVERROR_EOF) {
        if (isLocal && isShortOfPromise(reached) && isGrowing())
            return waitForGrowth();
        // A connection that broke off looks like the end of the file.
        if (!isLocal && (m_promise < 0 || isShortOfPromise(reached)) && avio_tell(bytes) < avio_size(bytes))
            return KXAudioFileConnectionError;
        return status;
    }
    if (status < 0)
        return status;
    const qint64 end = m_packet->pts == AV_NOPTS_VALUE ? -1
                                                       : framesOf(m_packet->pts)
            + (m_packet->duration > 0 ? av_rescale_q(m_packet->duration, m_timeBase, { 1, m_rate })
                                      : m_format.mFramesPerPacket);
    // While a file grows, the last packet may be half of one.
    if (isLocal && m_packet->pos >= 0 && m_packet->pos + m_packet->size >= m_knownSize) {
        m_knownSize = avio_size(bytes);
        if (m_packet->pos + m_packet->size >= m_knownSize && m_promise >= 0
            && (isShortOfPromise(end) || ffmpegIsCutOff(*m_packet, m_format.mFormatID)) && isGrowing())
            return waitForGrowth();
    }
    m_packetEnd = std::max(m_packetEnd, end);
    return status;
}

int KXFFmpegAudioFile::waitForGrowth()
{
    av_packet_unref(m_packet.get());
    m_waitsForGrowth = true;
    m_knownSize = avio_size(m_file->pb);
    return KXAudioFileInvalidFileError;
}

/// Goes on where the file ended when it was last read, if it has grown. Only a seek makes the demuxer look again.
int KXFFmpegAudioFile::resumeGrown()
{
    const KXAudioFileGrowth growth = KXAudioFileGrowth::of(m_path.constData(), m_options);
    if (growth.size <= m_knownSize && growth.recent)
        return KXAudioFileInvalidFileError;
    const int status = reposition(m_position, true);
    return status < 0 ? status : 0;
}

int KXFFmpegAudioFile::convert(float *const *channels, qint64 at, qint64 frames)
{
    const auto format = AVSampleFormat(m_frame->format);
    if (format == AV_SAMPLE_FMT_FLTP) {
        for (int c = 0; c < m_channels; ++c)
            std::memcpy(channels[c] + at, reinterpret_cast<const float *>(m_frame->extended_data[c]) + m_frameOffset,
                size_t(frames) * sizeof(float));
        return 0;
    }
    if (m_converterFormat != format) {
        // Without names of channels: neither mixes nor reorders; equal rates: no delay that a seek could disturb.
        AVChannelLayout layout = {};
        layout.order = AV_CHANNEL_ORDER_UNSPEC;
        layout.nb_channels = m_channels;
        SwrContext *converter = nullptr;
        int status
            = swr_alloc_set_opts2(&converter, &layout, AV_SAMPLE_FMT_FLTP, m_rate, &layout, format, m_rate, 0, nullptr);
        m_converter.reset(converter);
        m_converterFormat = AV_SAMPLE_FMT_NONE;
        if (status < 0 || (status = swr_init(converter)) < 0)
            return status;
        m_converterFormat = format;
    }
    constexpr int most = 64; // channels that the converter knows
    uint8_t *to[most];
    const uint8_t *from[most];
    const bool isPlanar = av_sample_fmt_is_planar(format);
    const qint64 offset = m_frameOffset * av_get_bytes_per_sample(format) * (isPlanar ? 1 : m_channels);
    for (int c = 0; c < std::min(m_channels, most); ++c) {
        to[c] = reinterpret_cast<uint8_t *>(channels[c] + at);
        from[c] = m_frame->extended_data[isPlanar ? c : 0] + offset;
    }
    const int status = swr_convert(m_converter.get(), to, int(frames), from, int(frames));
    return status < 0 ? status : 0;
}

/// Whatever was promised, the length is what there is.
void KXFFmpegAudioFile::reachedEnd()
{
    m_isAtEnd = true;
    if (m_failure != 0)
        return;
    if (m_decodedEnd >= 0 && !(m_endsAtLength && m_decodedEnd >= m_length)) {
        m_length = m_decodedEnd;
        m_lengthIsExact = true;
        m_promise = -1;
    } else if (m_decodedEnd < 0 && !m_lengthIsExact) {
        m_length = std::min(m_length, m_position);
    }
}

KXAudioFileStatus KXFFmpegAudioFile::findExactLength()
{
    if (m_lengthIsExact || m_path.isEmpty())
        return KXAudioFileNoError;
    const qint64 position = m_position;
    renewDeadline();
    int status = reposition(std::max<qint64>(0, m_length - 1), false);
    while (status == 0)
        status = nextFrame();
    const int back = reposition(position, true);
    return back < 0 ? back : status == EndOfFile || status == KXAudioFileInvalidFileError ? 0 : status;
}
