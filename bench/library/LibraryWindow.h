/// The browser's window on a copy of the library of 300,000 tracks, and how long its thread is busy at a time.
#pragma once

#include <QTimer>

#include <window/BrowserWindow.h>

class LibraryWindow
{
public:
    /// Shown, with all counts there and followed.
    LibraryWindow();

    [[nodiscard]] BrowserWindow &window() { return *m_window; }
    /// From here on pauses count.
    void watch();
    void waitUntil(const bool &isDone);
    /// Seconds since watch(), and the longest in which no event was handled.
    [[nodiscard]] double seconds() const;
    [[nodiscard]] double longestPause() const { return m_longest; }

private:
    void pulse();

    std::unique_ptr<BrowserWindow> m_window;
    QTimer m_pulse;
    double m_start = 0, m_last = 0, m_longest = 0;
};
