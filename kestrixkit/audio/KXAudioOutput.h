#pragma once

#include <atomic>
#include <functional>
#include <memory>

#include <QString>

#include <kestrixkit/foundation/KXGlobal.h>

/// What an output plays.
class KX_AUDIO_EXPORT KXAudioRenderSource
{
public:
    virtual ~KXAudioRenderSource();

    /// Fills both sides with so many frames and answers how many of them were there to be played; the rest is
    /// silence. On the render thread: no lock, allocation, log, system call or QObject in here.
    virtual int render(float *left, float *right, int frames) noexcept = 0;
};

/// Pulls stereo sound out of a source, at its own pace. KXPortAudioOutput plays it, KXClockAudioOutput is silent and
/// keeps time where there is no device, KXHandCrankedAudioOutput waits to be asked.
///
/// A source is pulled between start() and stop() only, and never again once stop() has returned. Statuses are 0 or the
/// negative number of what went wrong.
///
/// Threads: all functions on the main thread.
class KX_AUDIO_EXPORT KXAudioOutput
{
public:
    using Status = int;
    using LostHandler = std::function<void(const QString &reason)>;

    KXAudioOutput();
    virtual ~KXAudioOutput();
    Q_DISABLE_COPY_MOVE(KXAudioOutput)

    /// Looks for the device.
    virtual Status prepare();
    /// Gets ready to play at this rate, in place of what was open before.
    virtual Status open(double sampleRate) = 0;
    virtual void close();
    [[nodiscard]] bool isOpen() const { return m_sampleRate > 0; }
    [[nodiscard]] double sampleRate() const { return m_sampleRate; }

    /// Only while stopped. Kept until the next one.
    void setSource(std::shared_ptr<KXAudioRenderSource> source);

    /// Nothing happens while it is running.
    virtual Status start() = 0;
    /// What the device still holds is dropped. Nothing happens while it is stopped.
    virtual void stop() = 0;
    [[nodiscard]] virtual bool isRunning() const = 0;

    /// Is called, on the main thread, when the device goes while it is running. The output has stopped by then.
    void setLostHandler(LostHandler handler) { m_lostHandler = std::move(handler); }

protected:
    void setSampleRate(double rate) { m_sampleRate = rate; }
    /// For the render thread: borrowed, valid while running.
    [[nodiscard]] KXAudioRenderSource *source() const { return m_source.get(); }
    [[nodiscard]] std::shared_ptr<KXAudioRenderSource> sharedSource() const { return m_source; }
    /// To be called on the main thread.
    void announceLost(const QString &reason);

private:
    double m_sampleRate = 0;
    std::shared_ptr<KXAudioRenderSource> m_source;
    LostHandler m_lostHandler;
};
