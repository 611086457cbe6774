#pragma once

#include <chrono>
#include <functional>
#include <optional>
#include <string>

#include "tags/TagValues.h"

/// What was heard of a file's music. What was not is absent.
struct SoundAnalysis
{
    std::optional<double> bpm;
    std::optional<MusicalKey> key;
    QString problem; ///< for people: why the file could not be listened to; else empty
};

/// Finds tempo and key of music files by a program of its own, one process a file: a file that ends it, keeps it busy
/// for ever or makes it talk nonsense costs itself alone. Any thread, several at a time.
class Analyser
{
public:
    using Stop = std::function<bool()>;

    /// The file name of the program, and how long it may take for a file.
    explicit Analyser(
        std::string program = besideThisProgram(), std::chrono::milliseconds limit = std::chrono::minutes(2));

    /// The program may be left out of an installation.
    [[nodiscard]] bool isInstalled() const;
    /// Waits for the answer. Once stop answers true, which is asked some times a second, the process is ended and the
    /// answer is of no use. Paths are in the bytes of the file system.
    [[nodiscard]] SoundAnalysis analyse(const std::string &path, const Stop &stop) const;

private:
    static std::string besideThisProgram();

    std::string m_program;
    std::chrono::milliseconds m_limit;
};
