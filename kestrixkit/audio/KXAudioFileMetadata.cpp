#include <kestrixkit/audio/KXAudioFileMetadata.h>

#include <QMimeDatabase>

#include <kestrixkit/audio/KXAudioFile.h>
#include <kestrixkit/audio/KXCoreAudioUtilities.h>

KXAudioFileMetadata::KXAudioFileMetadata(const QUrl &audioFileURL)
    : m_audioFileURL(audioFileURL)
    , m_cancelled(std::make_shared<std::atomic<bool>>(false))
{
}

KXAudioFileMetadata::~KXAudioFileMetadata() = default;

void KXAudioFileMetadata::main() { readMetadataFromAudioFile(); }

void KXAudioFileMetadata::cancel()
{
    *m_cancelled = true;
    KXAbstractOperation::cancel();
}

void KXAudioFileMetadata::readMetadataFromAudioFile()
{
    KXAudioFileOptions options;
    options.cancelled = m_cancelled;
    KXAudioFile file;
    KXStreamFormat format;
    qint64 frames = 0;
    m_error = {};
    m_numberOfFrames = m_numberOfChannels = m_bitsPerChannel = 0;
    m_sampleRate = m_duration = 0;
    m_uti.clear();
    if (!file.openForReading(m_audioFileURL, options, &format, &frames, &m_error))
        return;
    KX_AUDIO_INVARIANT(format.mFramesPerPacket > 0, "a file's format has packets of at least one frame");
    m_numberOfFrames = frames;
    m_duration = double(frames / format.mFramesPerPacket * format.mFramesPerPacket) * (1 / format.mSampleRate);
    m_numberOfChannels = format.mChannelsPerFrame;
    m_sampleRate = format.mSampleRate;
    m_bitsPerChannel = format.mBitsPerChannel;
    m_uti = QMimeDatabase().mimeTypeForUrl(m_audioFileURL).name();
}
