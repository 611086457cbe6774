#pragma once

#include <functional>
#include <memory>
#include <optional>

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

/// Something to play that is no track of the table.
struct PreviewSound
{
    QUrl address;
    QString title;
    /// Where its server may lead on to; empty: see KXAudioFileOptions.
    std::function<bool(const QUrl &)> mayLeadTo = {};
    /// The one so many places after it, if there is any.
    std::function<std::optional<PreviewSound>(int step)> beside = {};
};

/// A track of the table or another sound, to be played.
struct PreviewItem : KXAudioPlayerItem
{
    QPersistentModelIndex index; // follows the track wherever it is sorted to; invalid for other sounds
    std::optional<PreviewSound> sound;
    QUrl url;
    QString title;
    std::shared_ptr<const PreviewLevels> levels;

    QUrl audioFileURL() const override { return url; }
    std::function<bool(const QUrl &)> redirectRule() const override;
    float gain() const override;
};

/// The tracks in the order in which the table shows them, or in any; beside another sound, what it names. Main thread.
class PreviewPlaylist : public KXAudioPlayerPlaylist
{
public:
    /// The model outlives this.
    PreviewPlaylist(TrackTableModel *model, std::shared_ptr<const PreviewLevels> levels);

    /// nullptr outside the table.
    [[nodiscard]] std::shared_ptr<PreviewItem> itemAt(int row) const;
    [[nodiscard]] std::shared_ptr<PreviewItem> itemOf(const PreviewSound &sound) const;
    [[nodiscard]] bool isShuffled() const { return m_isShuffled; }
    /// What was played while shuffled is forgotten.
    void setShuffled(bool shuffled);

    KXAudioPlayerItemPointer audioPlayerItemAfter(const KXAudioPlayerItemPointer &item) override;
    KXAudioPlayerItemPointer audioPlayerItemBefore(const KXAudioPlayerItemPointer &item) override;

private:
    [[nodiscard]] KXAudioPlayerItemPointer beside(const PreviewItem &item, int step) const;
    [[nodiscard]] KXAudioPlayerItemPointer anyOther(const QPersistentModelIndex &index);
    [[nodiscard]] KXAudioPlayerItemPointer playedBefore(const QPersistentModelIndex &index);

    TrackTableModel *const m_model;
    const std::shared_ptr<const PreviewLevels> m_levels;
    bool m_isShuffled = false;
    QList<QPersistentModelIndex> m_played; // while shuffled
};
