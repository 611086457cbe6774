#pragma once

#include <memory>

#include <QObject>
#include <QTimer>

#include <kestrixkit/audio/KXAudioOutput.h>

class KXAudioPlayer;
class KXAudioPlayerManager;
class QAbstractItemView;
class QAction;
class QLabel;
class QMenu;
class TrackTableModel;

/// Plays the selected track on the space bar, and the ones below it when it is continuous. One line tells what it plays
/// and where it is; without a sound card it says so, and nothing else is different.
class Preview : public QObject
{
    Q_OBJECT
public:
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

private:
    struct Item;
    struct Playlist;
    class Manager;

    [[nodiscard]] KXAudioPlayer &player() const;
    [[nodiscard]] const Item *currentItem() const;
    void followItem();
    void showState();

    TrackTableModel *const m_model;
    QAbstractItemView *const m_view;
    const std::shared_ptr<KXAudioOutput> m_output;
    const std::shared_ptr<Manager> m_manager;
    const std::shared_ptr<Playlist> m_playlist;
    QLabel *m_label; // the parent's of whatever it is put into
    QTimer m_clock; // while it plays
    std::shared_ptr<Item> m_followed; // the item that the selection is on
};
