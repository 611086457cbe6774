#pragma once

#include <functional>
#include <memory>
#include <optional>

#include <QModelIndex>
#include <QObject>
#include <QPointer>
#include <QTimer>

#include <kestrixkit/audio/KXAudioOutput.h>
#include <kestrixkit/audio/KXAudioPlayer.h>
#include <kestrixkit/audio/KXPortAudioOutput.h>
#include <kestrixkit/audio/KXWaveformLibrary.h>

#include "player/PreviewPlaylist.h"

class KXAudioPlayerManager;
class KXMultiTrackAudioPlayer;
class QAbstractItemView;
class QAction;
class QLabel;
class QMenu;
class TrackTableModel;

/// Plays the selected track on the space bar, by Return or a double-click, and the ones below it, or any others, when
/// it is continuous. One line tells what it plays and where it is; without a sound card it says so, and nothing else is
/// different. Files of more than two channels are played as stems. What no table of tracks has is played, too: sounds.
class Preview : public QObject, private KXAudioPlayerDelegate
{
    Q_OBJECT
public:
    using Sound = PreviewSound;

    /// The tracks of the model, selected in the view. Plays through the output, or the default device.
    Preview(TrackTableModel *model, QAbstractItemView *view, std::shared_ptr<KXAudioOutput> output = {},
        QObject *parent = nullptr);
    ~Preview() override;

    /// The commands, as a menu for the parent's menu bar.
    [[nodiscard]] QMenu *makeMenu(QWidget *parent);
    /// The line.
    [[nodiscard]] QLabel *label() const { return m_label; }

    /// Plays the selected track; stops it, or goes on with it, when it is the one that was played last.
    void toggle();
    /// Plays the track in this row from its start, whatever is played now.
    void playRow(int row);
    void playSound(const Sound &sound);
    /// While another list is shown in the table's place: what is selected there, which toggle() plays. Empty: the table
    /// is shown again.
    void setSelectedSound(std::function<std::optional<Sound>()> selected) { m_selectedSound = std::move(selected); }
    void playNext();
    void playPrevious();

    /// Where the loudest part of a track, and its loudness, are looked up. Without it playing starts at the beginning,
    /// and tracks sound as they are.
    void setWaveforms(KXWaveformLibrary *waveforms);
    /// Whether all tracks sound equally loud, as soon as it is known how loud they are. Remembered.
    [[nodiscard]] bool isLevelled() const;
    void setLevelled(bool levelled);
    /// Whether tracks begin at their loudest part. Remembered.
    [[nodiscard]] bool startsLoudest() const { return m_startsLoudest; }
    void setStartsLoudest(bool loudest);
    /// What the sound can go to; empty where there is nothing. Takes a moment the first time.
    [[nodiscard]] QList<KXAudioDevice> devices() const;
    /// The identifier of what it goes to; empty: the system's own. Remembered.
    [[nodiscard]] QString device() const;
    /// Plays there from now on; goes on where a device was lost. Tells in the line where it cannot be opened.
    void setDevice(const QString &identifier);
    [[nodiscard]] bool isShuffled() const;
    void setShuffled(bool shuffled);
    [[nodiscard]] float volume() const;
    void setVolume(float volume);

    [[nodiscard]] KXAudioPlayer &player() const;
    /// The player while it plays stems; null while it plays anything else.
    [[nodiscard]] KXMultiTrackAudioPlayer *stems() const;
    /// What is played or was last; invalid where there was nothing, or it left the table.
    [[nodiscard]] QModelIndex playingIndex() const;
    [[nodiscard]] QString playingTitle() const;
    /// Of the file or the stream; empty where there was nothing.
    [[nodiscard]] QUrl playingAddress() const;

Q_SIGNALS:
    /// The item, its state or its time has changed.
    void changed();

protected:
    bool eventFilter(QObject *watched, QEvent *event) override;

private:
    class Manager;

    [[nodiscard]] const PreviewItem *currentItem() const;
    bool shouldPlayNextItem(KXAudioPlayer &player, const KXAudioPlayerItemPointer &item) override;
    bool shouldPlayPreviousItem(KXAudioPlayer &player, const KXAudioPlayerItemPointer &item) override;
    bool plays(KXAudioPlayer &player, const KXAudioPlayerItemPointer &item);
    void play(const KXAudioPlayerItemPointer &item);
    void toggleSelectedSound();
    void start(const std::shared_ptr<PreviewItem> &item);
    void fillDeviceMenu(QMenu *menu);
    void followItem();
    void showState();
    void cue();

    TrackTableModel *const m_model;
    QAbstractItemView *const m_view;
    const std::shared_ptr<KXAudioOutput> m_output;
    const std::shared_ptr<Manager> m_manager;
    const std::shared_ptr<PreviewLevels> m_levels;
    const std::shared_ptr<PreviewPlaylist> m_playlist;
    QLabel *m_label; // the parent's of whatever it is put into
    QTimer m_clock; // while it plays
    bool m_startsLoudest;
    bool m_lostDevice = false; // while it played
    bool m_isGivenUp = false; // by the user, before it was opened
    std::function<std::optional<Sound>()> m_selectedSound;
    std::weak_ptr<KXAudioPlayerItem> m_cued; // the item that has been led to its loudest part, if it was to be
    std::shared_ptr<PreviewItem> m_followed; // the item that the selection is on
};
