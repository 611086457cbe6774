#pragma once

#include <functional>
#include <vector>

#include "analysis/Analyser.h"
#include "import/Scanner.h"
#include "library/Library.h"

/// What was set of a track.
struct AnalysedValues
{
    qint64 key = 0; ///< the track's
    std::optional<double> bpm;
    std::optional<int> keyOrder;
};

struct TrackAnalysisResult
{
    std::vector<AnalysedValues> found;
    qint64 silent = 0; ///< tracks in which neither a steady beat nor a key was heard
    std::vector<SkippedFile> failed;
    bool cancelled = false; ///< what was found before is there
    KXError error; ///< of the store; what was saved before stays
};

/// Finds tempo and key of tracks that have none, by listening to their files, several at a time. What is found is
/// marked as analysed until somebody confirms it, and never takes the place of what a tag or the user says. On the
/// context's thread; other threads wait for the program that listens.
class TrackAnalysis
{
public:
    using Stop = std::function<bool()>; ///< asked by several threads
    using Progress = std::function<void(qint64 done, qint64 total)>;

    explicit TrackAnalysis(KXManagedObjectContext::Ref context, Analyser analyser = Analyser());

    /// Tracks that have their file and lack tempo or key; not those in which nothing was found before.
    [[nodiscard]] std::vector<qint64> unknown() const;
    /// Saves as it goes. Of these tracks those that have tempo and key, or no file, are passed over.
    TrackAnalysisResult run(const std::vector<qint64> &tracks, const Stop &stop, const Progress &progress = {});

    /// Takes away what was found, as long as nobody has confirmed or changed it; and sets it again where there is
    /// nothing.
    KXError takeBack(const std::vector<AnalysedValues> &found) { return change(found, false); }
    KXError putBack(const std::vector<AnalysedValues> &found) { return change(found, true); }

private:
    struct Task
    {
        qint64 key;
        std::string path;
    };
    struct Heard
    {
        size_t task;
        SoundAnalysis analysis;
    };

    [[nodiscard]] KXRef<Track> track(qint64 key) const;
    [[nodiscard]] std::vector<Task> tasksFor(const std::vector<qint64> &tracks, const Stop &stop) const;
    void take(const Task &task, const SoundAnalysis &analysis, TrackAnalysisResult &result);
    bool set(Track &track, AnalysedValues &values);
    KXError change(const std::vector<AnalysedValues> &found, bool isSet);

    const KXManagedObjectContext::Ref m_context;
    const Analyser m_analyser;
};
