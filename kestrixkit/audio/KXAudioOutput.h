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
/// Players may share an output. It belongs to the one whose source it has: whoever wants to be heard sets its own,
/// which takes the output from the one before, and leaves alone what others have set.
///
/// A source is pulled between start() and stop() only, and never again once stop() has returned. Statuses are 0 or the
/// negative number of what went wrong.
///
/// Threads: all functions on the main thread.
class KX_AUDIO_EXPORT KXAudioOutput
{
public:
    using Status = int;
    /// Called on the main thread when the device goes while it is running, or somebody else takes the output. It has
    /// stopped by then.
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

    /// Stops, and plays this one from the next start on. Whoever has lost the output by that is told by the handler
    /// that came with its source, last of all: look again whether it is still yours.
    void setSource(std::shared_ptr<KXAudioRenderSource> source, LostHandler lost = {});
    [[nodiscard]] bool hasSource(const KXAudioRenderSource *source) const { return m_source.get() == source; }
    /// Stops and lets go of this source; nothing happens while it has another one. Nobody is told.
    void removeSource(const KXAudioRenderSource *source);

    /// Called, after whoever plays, when the device goes while it is running; for a host that wants to tell its user.
    void setDeviceLostHandler(LostHandler handler) { m_deviceLostHandler = std::move(handler); }

    /// Nothing happens while it is running.
    virtual Status start() = 0;
    /// What the device still holds is dropped. Nothing happens while it is stopped.
    virtual void stop() = 0;
    [[nodiscard]] virtual bool isRunning() const = 0;

protected:
    void setSampleRate(double rate) { m_sampleRate = rate; }
    /// For the render thread: borrowed, valid while running.
    [[nodiscard]] KXAudioRenderSource *source() const { return m_source.get(); }
    [[nodiscard]] std::shared_ptr<KXAudioRenderSource> sharedSource() const { return m_source; }
    /// The device is gone, and the output has stopped. To be called on the main thread.
    void announceLost(const QString &reason);

private:
    double m_sampleRate = 0;
    std::shared_ptr<KXAudioRenderSource> m_source;
    LostHandler m_lostHandler;
    LostHandler m_deviceLostHandler;
};
