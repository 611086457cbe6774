#pragma once

#include <chrono>

#include <QByteArray>

#include <kestrixkit/audio/KXAudioFileBackend.h>

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libswresample/swresample.h>
}

/// Any audio that FFmpeg's libraries decode, local or over http, positioned to the frame.
///
/// A seek goes back to a key position some way before the target, and drops what is decoded up to it by the frames'
/// time stamps; the way is long enough for each codec to forget that it started there. Where packets are missing,
/// silence takes their place, so that what follows stays where it belongs.
class KXFFmpegAudioFile final : public KXAudioFileBackend
{
public:
    KXFFmpegAudioFile();
    ~KXFFmpegAudioFile() override;

    KXAudioFileStatus open(const QUrl &url, const KXAudioFileOptions &options) override;
    KXAudioFileStatus dataFormat(KXStreamFormat *format) override;
    KXAudioFileStatus lengthInFrames(qint64 *frames) override;
    KXAudioFileStatus setClientFormat(const KXStreamFormat &format) override;
    KXAudioFileStatus seek(qint64 frame) override;
    KXAudioFileStatus read(float *const *channels, quint32 frames, quint32 *framesRead) override;
    /// The next packet as it was encoded, borrowed until the next call; empty at the end. In place of read().
    KXAudioFileStatus readEncoded(QByteArrayView *packet);
    [[nodiscard]] bool lengthIsExact() const override { return m_lengthIsExact; }
    KXAudioFileStatus findExactLength() override;
    [[nodiscard]] qint64 position() const override { return m_position; }
    [[nodiscard]] bool isSeekable() const override;

private:
    struct Deleter
    {
        void operator()(AVFormatContext *context) const { avformat_close_input(&context); }
        void operator()(AVCodecContext *context) const { avcodec_free_context(&context); }
        void operator()(AVPacket *packet) const { av_packet_free(&packet); }
        void operator()(AVFrame *frame) const { av_frame_free(&frame); }
        void operator()(SwrContext *context) const { swr_free(&context); }
    };
    template <typename T> using Pointer = std::unique_ptr<T, Deleter>;
    enum { EndOfFile = 1 }; // beside the statuses, which are 0, negative or a huge number

    static int isInterrupted(void *self);
    void renewDeadline();
    int openInput();
    int openDecoder();
    [[nodiscard]] bool isLedAstray(AVFormatContext *file) const;
    void readFacts();
    void findLength();
    int reposition(qint64 frame, bool mayDecodeAllTheWay);
    int waitForGrowth();
    int resumeGrown();
    int nextFrame();
    int feedDecoder();
    int readPacket();
    bool takeFrame();
    int convert(float *const *channels, qint64 at, qint64 frames);
    void reachedEnd();
    [[nodiscard]] qint64 framesOf(qint64 timestamp) const;
    [[nodiscard]] bool isShortOfPromise(qint64 frame) const;
    [[nodiscard]] bool isGrowing() const;

    QByteArray m_address;
    QByteArray m_path; // empty for remote files
    bool m_staysAtAddress = false; // the server has been asked already where it leads
    KXAudioFileOptions m_options;
    std::chrono::steady_clock::time_point m_deadline;

    Pointer<AVFormatContext> m_file;
    Pointer<AVCodecContext> m_codec;
    Pointer<AVPacket> m_packet;
    Pointer<AVFrame> m_frame;
    Pointer<SwrContext> m_converter; // null while the decoder gives planar floats
    int m_converterFormat = AV_SAMPLE_FMT_NONE;
    AVStream *m_stream = nullptr; // of m_file

    // Facts of the stream, found once
    KXStreamFormat m_format;
    AVRational m_timeBase = { 0, 1 };
    int m_rate = 0;
    int m_channels = 0;
    bool m_isOgg = false;
    qint64 m_startTime = 0; // of frame 0, in the time base
    qint64 m_firstTime = 0; // of the first packet: the earliest that can be sought
    qint64 m_preroll = 0; // frames
    qint64 m_slack = 0; // frames by which a time stamp may be off, where its unit is coarser than a frame
    qint64 m_promise = -1; // frames that the header says there will be, -1 when it does not
    qint64 m_promiseSlack = 0; // and how far that may be off
    qint64 m_length = 0;
    bool m_lengthIsExact = false;
    bool m_endsAtLength = false; // although the last packet may hold more

    // Where reading is
    qint64 m_position = 0; // next frame to be delivered
    qint64 m_silence = 0; // frames to be delivered as silence before those of m_frame
    qint64 m_frameOffset = 0; // frames of m_frame that were delivered or dropped
    qint64 m_decodedEnd = -1; // end of the last frame decoded; -1 after a seek
    qint64 m_packetEnd = -1; // and of the last packet read
    qint64 m_knownSize = 0; // bytes in the file when it was last looked at
    bool m_hasPacket = false; // m_packet is still to be decoded
    bool m_waitsForGrowth = false; // the demuxer has met the present end and must be repositioned
    bool m_isAtEnd = false;
    bool m_isBroken = false; // the input must be opened again
    int m_failure = 0; // what ended reading before the end
};
