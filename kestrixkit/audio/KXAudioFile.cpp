#include <kestrixkit/audio/KXAudioFile.h>

#include <QThreadPool>

#include <kestrixkit/audio/KXFFmpeg_p.h>
#include <kestrixkit/audio/KXPCMAudioFile_p.h>
#include <kestrixkit/foundation/KXLog.h>

namespace {

std::mutex audioFileFactoryMutex;
std::atomic<bool> audioFileFollowsPrivateRedirects = false;

KXAudioFile::BackendFactory &audioFileFactory()
{
    static KXAudioFile::BackendFactory factory;
    return factory;
}

}

KXAudioFileBackend::~KXAudioFileBackend() = default;

KXAudioFile::~KXAudioFile() = default;

void KXAudioFile::setBackendFactory(BackendFactory factory)
{
    const std::lock_guard lock(audioFileFactoryMutex);
    audioFileFactory() = std::move(factory);
}

void KXAudioFile::prepare()
{
    QThreadPool::globalInstance()->start([] { Q_UNUSED(KXFFmpeg::shared()) }); // whose end the application waits for
}

void KXAudioFile::setFollowsPrivateRedirects(bool follows) { audioFileFollowsPrivateRedirects = follows; }

bool KXAudioFile::followsPrivateRedirects() { return audioFileFollowsPrivateRedirects; }

KXAudioFileStatus KXAudioFile::open(const QUrl &url, const KXAudioFileOptions &options)
{
    close();
    BackendFactory factory;
    {
        const std::lock_guard lock(audioFileFactoryMutex);
        factory = audioFileFactory();
    }
    std::unique_ptr<KXAudioFileBackend> backend;
    KXAudioFileStatus status = KXAudioFileNoError;
    if (factory) {
        backend = factory(url);
        status = backend ? backend->open(url, options) : KXAudioFileParameterError;
    } else {
        // Whatever is not the plainest PCM is left to the libraries, damaged headers included.
        backend = std::make_unique<KXPCMAudioFile>();
        if (backend->open(url, options) != KXAudioFileNoError) {
            const KXFFmpeg *const libraries = KXFFmpeg::shared();
            backend = libraries ? libraries->file() : nullptr;
            status = backend ? backend->open(url, options) : KXAudioFileMissingDecoderError;
        }
    }
    if (status == KXAudioFileNoError)
        m_backend = std::move(backend);
    return status;
}

bool KXAudioFile::fail(KXError *error, const char *step, KXAudioFileStatus status, bool isLogged)
{
    if (isLogged)
        KXLogError(audio, step, status);
    return KXSetError(error,
        KXError(KXKestrixKitErrorDomain, KXAudioFileErrorCode, KXStringWithFormat(KXLocalizedString(step), status)));
}

bool KXAudioFile::openForReading(
    const QUrl &url, const KXAudioFileOptions &options, KXStreamFormat *format, qint64 *frames, KXError *error)
{
    if (const KXAudioFileStatus status = open(url, options))
        return fail(error, QT_TRANSLATE_NOOP("KestrixKit", "Failed to open file (%i)"), status,
            !options.cancelled || !*options.cancelled);
    if (const KXAudioFileStatus status = dataFormat(format))
        return fail(error, QT_TRANSLATE_NOOP("KestrixKit", "Failed to read file data format property (%i)"), status);
    if (const KXAudioFileStatus status = lengthInFrames(frames))
        return fail(error, QT_TRANSLATE_NOOP("KestrixKit", "Failed to read frames property (%i)"), status);
    return true;
}

bool KXAudioFile::useFormat(const KXStreamFormat &format, KXError *error)
{
    const KXAudioFileStatus status = setClientFormat(format);
    return status == KXAudioFileNoError
        || fail(error, QT_TRANSLATE_NOOP("KestrixKit", "Failed to set client data format (%i)"), status);
}

void KXAudioFile::close() { m_backend.reset(); }

KXAudioFileStatus KXAudioFile::dataFormat(KXStreamFormat *format) const
{
    return m_backend ? m_backend->dataFormat(format) : KXAudioFileParameterError;
}

KXAudioFileStatus KXAudioFile::lengthInFrames(qint64 *frames) const
{
    return m_backend ? m_backend->lengthInFrames(frames) : KXAudioFileParameterError;
}

bool KXAudioFile::lengthIsExact() const { return m_backend && m_backend->lengthIsExact(); }

KXAudioFileStatus KXAudioFile::findExactLength()
{
    return m_backend ? m_backend->findExactLength() : KXAudioFileParameterError;
}

KXAudioFileStatus KXAudioFile::setClientFormat(const KXStreamFormat &format)
{
    return m_backend ? m_backend->setClientFormat(format) : KXAudioFileParameterError;
}

qint64 KXAudioFile::position() const { return m_backend ? m_backend->position() : 0; }

bool KXAudioFile::isSeekable() const { return m_backend && m_backend->isSeekable(); }

KXAudioFileStatus KXAudioFile::seek(qint64 frame)
{
    return m_backend ? m_backend->seek(frame) : KXAudioFileParameterError;
}

KXAudioFileStatus KXAudioFile::read(float *const *channels, quint32 frames, quint32 *framesRead)
{
    *framesRead = 0;
    return m_backend ? m_backend->read(channels, frames, framesRead) : KXAudioFileParameterError;
}

KXAudioFileStatus KXAudioFile::read(KXAudioBufferList *list, quint32 frames, quint32 *framesRead)
{
    constexpr size_t usual = 32;
    float *few[usual];
    std::vector<float *> many;
    float **channels = few;
    if (list->mNumberBuffers > usual) {
        many.resize(list->mNumberBuffers);
        channels = many.data();
    }
    for (quint32 i = 0; i < list->mNumberBuffers; ++i)
        channels[i] = static_cast<float *>(list->buffers()[i].mData);
    const KXAudioFileStatus status = read(channels, frames, framesRead);
    for (KXAudioBuffer &buffer : list->buffers())
        buffer.mDataByteSize = *framesRead * quint32(sizeof(float));
    return status;
}
