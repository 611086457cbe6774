#include <kestrixkit/audio/KXClockAudioOutput.h>

#include <ctime>
#include <system_error>

KXClockAudioOutput::~KXClockAudioOutput() { KXClockAudioOutput::stop(); }

KXAudioOutput::Status KXClockAudioOutput::open(double sampleRate)
{
    stop();
    setSampleRate(sampleRate);
    return 0;
}

KXAudioOutput::Status KXClockAudioOutput::start()
{
    if (isRunning())
        return 0;
    if (!isOpen())
        return -EINVAL;
    m_stops = false;
    try {
        m_thread = std::thread(&KXClockAudioOutput::run, this, source(), sampleRate());
    } catch (const std::system_error &error) {
        return -error.code().value();
    }
    return 0;
}

void KXClockAudioOutput::stop()
{
    m_stops = true;
    if (m_thread.joinable())
        m_thread.join();
}

void KXClockAudioOutput::run(KXAudioRenderSource *source, double sampleRate)
{
    constexpr long nanoseconds = 1'000'000'000;
    float left[FramesPerPass];
    float right[FramesPerPass];
    timespec start = {};
    clock_gettime(CLOCK_MONOTONIC, &start);
    // Each moment is counted from the start, so that lateness does not add up.
    for (qint64 passes = 0; !m_stops; ++passes) {
        if (source)
            source->render(left, right, FramesPerPass);
        const double seconds = double(passes + 1) * FramesPerPass / sampleRate;
        const auto whole = time_t(seconds);
        timespec due { start.tv_sec + whole, start.tv_nsec + long((seconds - double(whole)) * nanoseconds) };
        if (due.tv_nsec >= nanoseconds) {
            due.tv_nsec -= nanoseconds;
            ++due.tv_sec;
        }
        while (!m_stops && clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &due, nullptr) == EINTR) { }
    }
}
