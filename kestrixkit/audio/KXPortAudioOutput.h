#pragma once

#include <QTimer>

#include <kestrixkit/audio/KXAudioOutput.h>

/// Plays through the system's default device.
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

    Status prepare() override;
    Status open(double sampleRate) override;
    void close() override;
    Status start() override;
    void stop() override;
    [[nodiscard]] bool isRunning() const override { return m_isRunning; }

private:
    struct Stream;
    void watch();
    void lose(const QString &reason);

    std::unique_ptr<Stream> m_stream;
    bool m_isRunning = false;
    QTimer m_watchdog;
    unsigned m_passesSeen = 0; // by the watchdog
    int m_idleTurns = 0; // of the watchdog, without a pass
};
