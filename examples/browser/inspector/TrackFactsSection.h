#pragma once

#include <kestrixkit/foundation/KXOperationQueue.h>

#include "inspector/TrackSection.h"

/// Cover, title and what is known of the track; of several tracks how many there are and how long they last together.
class TrackFactsSection : public TrackSection
{
    Q_OBJECT
public:
    explicit TrackFactsSection(QObject *parent = nullptr);
    ~TrackFactsSection() override;

protected:
    void makeRows(QVBoxLayout &rows) override;
    void showTracks() override;

private:
    void showCover(const QUrl &file);

    QLabel *m_cover = nullptr, *m_title = nullptr, *m_credits = nullptr, *m_facts = nullptr;
    QUrl m_file; // whose cover is shown, or looked for
    KXOperationQueue m_covers; // last: its work uses what stands above
};
