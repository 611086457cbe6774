#pragma once

#include <memory>

#include <QPersistentModelIndex>
#include <QPointer>
#include <QUrl>

#include <kestrixkit/audio/KXAudioPlayer.h>
#include <kestrixkit/audio/KXWaveformLibrary.h>

class TrackTableModel;

/// How loud tracks are played.
struct PreviewLevels
{
    bool areEqual = false; ///< as soon as it is known how loud they are
    QPointer<KXWaveformLibrary> waveforms;
};

/// A track of the table, to be played.
struct PreviewItem : KXAudioPlayerItem
{
    QPersistentModelIndex index; // follows the track wherever it is sorted to
    QUrl url;
    QString title;
    std::shared_ptr<const PreviewLevels> levels;

    QUrl audioFileURL() const override { return url; }
    float gain() const override;
};

/// The tracks in the order in which the table shows them, or in any. Main thread.
class PreviewPlaylist : public KXAudioPlayerPlaylist
{
public:
    /// The model outlives this.
    PreviewPlaylist(TrackTableModel *model, std::shared_ptr<const PreviewLevels> levels);

    /// nullptr outside the table.
    [[nodiscard]] std::shared_ptr<PreviewItem> itemAt(int row) const;
    [[nodiscard]] bool isShuffled() const { return m_isShuffled; }
    /// What was played while shuffled is forgotten.
    void setShuffled(bool shuffled);

    KXAudioPlayerItemPointer audioPlayerItemAfter(const KXAudioPlayerItemPointer &item) override;
    KXAudioPlayerItemPointer audioPlayerItemBefore(const KXAudioPlayerItemPointer &item) override;

private:
    [[nodiscard]] KXAudioPlayerItemPointer beside(const QPersistentModelIndex &index, int step) const;
    [[nodiscard]] KXAudioPlayerItemPointer anyOther(const QPersistentModelIndex &index);
    [[nodiscard]] KXAudioPlayerItemPointer playedBefore(const QPersistentModelIndex &index);

    TrackTableModel *const m_model;
    const std::shared_ptr<const PreviewLevels> m_levels;
    bool m_isShuffled = false;
    QList<QPersistentModelIndex> m_played; // while shuffled
};
