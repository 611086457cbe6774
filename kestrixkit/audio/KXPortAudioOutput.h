#pragma once

#include <QList>
#include <QTimer>

#include <kestrixkit/audio/KXAudioOutput.h>

/// Where sound can go.
struct KXAudioDevice
{
    QString identifier; ///< what setDevice() takes: name and driver, the same as long as the device is called so
    QString name; ///< for people
    double sampleRate = 0; ///< its own
    bool isDefault = false;
};

/// Plays through a device, the system's default one unless another is chosen. One that has another rate than what is
/// played gets it resampled.
///
/// The first prepare() of a process asks the audio libraries for all devices, which takes up to 0.2 s and may print
/// lines of theirs to standard error. A device that stops asking for sound for a second counts as lost. Main thread;
/// the source is pulled on the device's.
class KX_AUDIO_EXPORT KXPortAudioOutput : public KXAudioOutput
{
public:
    static constexpr int FramesPerPass = 512;

    KXPortAudioOutput();
    ~KXPortAudioOutput() override;

    /// The devices that can play; looked for anew while none is in use, if some seconds have passed since. May take as
    /// long as prepare().
    [[nodiscard]] static QList<KXAudioDevice> devices();
    /// Plays through this device from now on, the default one for an empty text; goes on there if it is playing. The
    /// status of that; 0 when nothing is open. One that is not there (any more) fails from the next start on.
    Status setDevice(const QString &identifier);
    [[nodiscard]] QString device() const { return m_device; }

    Status prepare() override;
    Status open(double sampleRate) override;
    void close() override;
    Status start() override;
    void stop() override;
    [[nodiscard]] bool isRunning() const override { return m_isRunning; }

private:
    struct Stream;
    [[nodiscard]] int deviceIndex() const;
    int startStream(std::shared_ptr<KXAudioRenderSource> source);
    void watch();
    void lose(const QString &reason);
    void abandon();

    QString m_device; // empty: the default one
    std::unique_ptr<Stream> m_stream;
    bool m_isRunning = false;
    QTimer m_watchdog;
    unsigned m_passesSeen = 0; // by the watchdog
    int m_idleTurns = 0; // of the watchdog, without a pass
};
