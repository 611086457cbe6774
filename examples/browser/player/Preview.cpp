#include "player/Preview.h"

#include <QAbstractItemView>
#include <QAction>
#include <QActionGroup>
#include <QKeyEvent>
#include <QLabel>
#include <QMenu>
#include <QScopedValueRollback>

#include <kestrixkit/audio/KXAudioFile.h>
#include <kestrixkit/audio/KXAudioPlayerManager.h>
#include <kestrixkit/audio/KXBasicAudioPlayer.h>
#include <kestrixkit/audio/KXMultiTrackAudioPlayer.h>
#include <kestrixkit/audio/KXWaveformLibrary.h>

#include "table/TrackTableModel.h"
#include "window/BrowserStyle.h"
#include "window/MessageStrip.h"
#include "window/Settings.h"

using namespace Qt::StringLiterals;

namespace {

constexpr float previewVolume = 0.9F;
constexpr int previewClockMilliseconds = 250;
constexpr double previewLoudestSeconds = 10;

/// Whether a file has more tracks than two sides.
bool previewIsStems(const QUrl &url)
{
    KXAudioFile file;
    KXStreamFormat format;
    return url.isLocalFile() && file.open(url) == KXAudioFileNoError && file.dataFormat(&format) == KXAudioFileNoError
        && format.mChannelsPerFrame > 2;
}

} // namespace

/// What makes the player known to the rest of the application.
class Preview::Manager : public KXAudioPlayerManager
{
public:
    explicit Manager(const std::shared_ptr<KXAudioOutput> &output)
        : basic(std::make_shared<KXBasicAudioPlayer>(output))
        , stems(std::make_shared<KXMultiTrackAudioPlayer>(output))
    {
        setAudioPlayer(basic);
        for (KXAudioPlayer *each :
            { static_cast<KXAudioPlayer *>(basic.get()), static_cast<KXAudioPlayer *>(stems.get()) }) {
            each->setVolume(previewVolume);
            each->setContinuous(true);
        }
    }
    void use(bool asStems)
    {
        if (asStems)
            setAudioPlayer(stems);
        else
            setAudioPlayer(basic);
    }
    const std::shared_ptr<KXBasicAudioPlayer> basic;
    const std::shared_ptr<KXMultiTrackAudioPlayer> stems;
};

Preview::Preview(
    TrackTableModel *model, QAbstractItemView *view, std::shared_ptr<KXAudioOutput> output, QObject *parent)
    : QObject(parent)
    , m_model(model)
    , m_view(view)
    , m_output(output ? std::move(output) : std::make_shared<KXPortAudioOutput>())
    , m_manager(std::make_shared<Manager>(m_output))
    , m_levels(std::make_shared<PreviewLevels>())
    , m_playlist(std::make_shared<PreviewPlaylist>(model, m_levels))
    , m_label(new QLabel)
    , m_startsLoudest(Settings::startsLoudest())
{
    m_levels->areEqual = Settings::equalLoudness();
    if (auto *device = dynamic_cast<KXPortAudioOutput *>(m_output.get()))
        (void)device->setDevice(Settings::outputDevice()); // nothing is open yet: it cannot fail
    KXAudioPlayerManager::setSharedInstance(m_manager);
    m_label->setAccessibleDescription(tr("Preview"));
    m_label->setContentsMargins(BrowserStyle::margin, 0, BrowserStyle::margin, 0);
    m_clock.setInterval(previewClockMilliseconds);
    connect(&m_clock, &QTimer::timeout, this, &Preview::showState);
    for (KXAudioPlayer *each : { static_cast<KXAudioPlayer *>(m_manager->basic.get()),
             static_cast<KXAudioPlayer *>(m_manager->stems.get()) }) {
        each->setDelegate(this);
        connect(each, &KXAudioPlayer::stateChanged, this, [this, each] {
            if (each == &player())
                showState();
        });
        connect(each, &KXAudioPlayer::currentItemChanged, this, [this, each] {
            if (each == &player())
                followItem();
        });
    }
    connect(m_view, &QAbstractItemView::doubleClicked, this, [this](const QModelIndex &index) {
        if (index.column() != TrackTableModel::Rating) // whose stars are clicked
            playRow(index.row());
    });
    m_view->installEventFilter(this);
    m_output->setDeviceLostHandler([this](const QString &) {
        m_lostDevice = true;
        m_label->setText(tr("The sound device is gone: choose another one in the menu Play"));
    });
}

Preview::~Preview()
{
    m_output->setDeviceLostHandler({});
    for (KXAudioPlayer *each : { static_cast<KXAudioPlayer *>(m_manager->basic.get()),
             static_cast<KXAudioPlayer *>(m_manager->stems.get()) }) {
        disconnect(each, nullptr, this, nullptr);
        each->setDelegate(nullptr);
        each->stop();
    }
    if (KXAudioPlayerManager::sharedInstance() == m_manager)
        KXAudioPlayerManager::setSharedInstance(nullptr);
}

KXAudioPlayer &Preview::player() const { return *m_manager->audioPlayer(); }

const PreviewItem *Preview::currentItem() const
{
    return static_cast<const PreviewItem *>(player().currentItem().get());
}

KXMultiTrackAudioPlayer *Preview::stems() const
{
    return m_manager->audioPlayer() == m_manager->stems ? m_manager->stems.get() : nullptr;
}

QModelIndex Preview::playingIndex() const
{
    const PreviewItem *item = currentItem();
    return item ? QModelIndex(item->index) : QModelIndex();
}

QString Preview::playingTitle() const
{
    const PreviewItem *item = currentItem();
    return item ? item->title : QString();
}

bool Preview::isShuffled() const { return m_playlist->isShuffled(); }

QUrl Preview::playingAddress() const
{
    const PreviewItem *item = currentItem();
    return item ? item->url : QUrl();
}

void Preview::setShuffled(bool shuffled)
{
    m_playlist->setShuffled(shuffled);
    Q_EMIT changed();
}

float Preview::volume() const { return player().volume(); }

void Preview::setVolume(float volume)
{
    m_manager->basic->setVolume(volume);
    m_manager->stems->setVolume(volume);
}

void Preview::setWaveforms(KXWaveformLibrary *waveforms)
{
    m_levels->waveforms = waveforms;
    waveforms->setMeasuresLoudness(m_levels->areEqual);
    connect(waveforms, &KXWaveformLibrary::ready, this, [this](const QUrl &file) {
        if (const PreviewItem *item = currentItem(); item && item->url == file)
            player().currentItemGainDidChange();
    });
}

bool Preview::isLevelled() const { return m_levels->areEqual; }

void Preview::setLevelled(bool levelled)
{
    m_levels->areEqual = levelled;
    Settings::setEqualLoudness(levelled);
    if (m_levels->waveforms)
        m_levels->waveforms->setMeasuresLoudness(levelled);
    player().currentItemGainDidChange();
}

void Preview::setStartsLoudest(bool loudest)
{
    m_startsLoudest = loudest;
    Settings::setStartsLoudest(loudest);
    Q_EMIT changed();
}

QList<KXAudioDevice> Preview::devices() const
{
    return dynamic_cast<KXPortAudioOutput *>(m_output.get()) ? KXPortAudioOutput::devices() : QList<KXAudioDevice>();
}

QString Preview::device() const
{
    const auto *output = dynamic_cast<KXPortAudioOutput *>(m_output.get());
    return output ? output->device() : QString();
}

void Preview::setDevice(const QString &identifier)
{
    auto *output = dynamic_cast<KXPortAudioOutput *>(m_output.get());
    if (!output)
        return;
    Settings::setOutputDevice(identifier);
    const bool goesOn = std::exchange(m_lostDevice, false);
    if (output->setDevice(identifier) != 0)
        m_label->setText(tr("This sound device cannot be opened"));
    else if (goesOn)
        player().resume();
}

void Preview::playNext() { m_manager->playNext(true); }

void Preview::playPrevious() { m_manager->playPrevious(true); }

bool Preview::eventFilter(QObject *watched, QEvent *event)
{
    if (watched != m_view || event->type() != QEvent::KeyPress)
        return false;
    const auto *key = static_cast<QKeyEvent *>(event);
    const bool isReturn = key->key() == Qt::Key_Return || key->key() == Qt::Key_Enter;
    if (!isReturn || (key->modifiers() & ~Qt::KeypadModifier) || !m_view->currentIndex().isValid())
        return false;
    playRow(m_view->currentIndex().row());
    return true;
}

// Which of the two plays an item is only known when it comes.

bool Preview::shouldPlayNextItem(KXAudioPlayer &player, const KXAudioPlayerItemPointer &item)
{
    return plays(player, item);
}

bool Preview::shouldPlayPreviousItem(KXAudioPlayer &player, const KXAudioPlayerItemPointer &item)
{
    return plays(player, item);
}

bool Preview::plays(KXAudioPlayer &asked, const KXAudioPlayerItemPointer &item)
{
    if (!item || previewIsStems(item->audioFileURL()) == (&asked == m_manager->stems.get()))
        return true;
    play(item);
    return false;
}

void Preview::play(const KXAudioPlayerItemPointer &item)
{
    m_lostDevice = false;
    KXAudioPlayer &former = player();
    m_manager->use(previewIsStems(item->audioFileURL()));
    if (&former != &player())
        former.stop();
    player().playItemFromPlaylist(item, m_playlist);
}

void Preview::fillDeviceMenu(QMenu *menu)
{
    menu->clear();
    const QList<KXAudioDevice> all = devices();
    if (all.isEmpty()) {
        menu->addAction(tr("No sound card"))->setEnabled(false);
        return;
    }
    auto *group = new QActionGroup(menu);
    const auto add = [&](const QString &name, const QString &identifier) {
        QAction *action = menu->addAction(name);
        action->setCheckable(true);
        action->setChecked(device() == identifier);
        group->addAction(action);
        connect(action, &QAction::triggered, this, [this, identifier] { setDevice(identifier); });
    };
    add(tr("The System's Own"), {});
    for (const KXAudioDevice &each : all)
        add(each.identifier, each.identifier);
}

/// Once for each item, as soon as it plays.
void Preview::cue()
{
    const auto item = player().currentItem();
    if (!item || m_cued.lock() == item)
        return;
    m_cued = item;
    KXWaveformLibrary *waveforms = m_startsLoudest ? m_levels->waveforms.data() : nullptr;
    if (const auto waveform = waveforms ? waveforms->pyramid(item->audioFileURL()) : nullptr)
        player().setTime(waveform->loudestTime(previewLoudestSeconds));
}

QMenu *Preview::makeMenu(QWidget *parent)
{
    auto *menu = new QMenu(tr("&Play"), parent);
    menu->setAccessibleName(tr("Play"));
    menu->addAction(tr("&Preview or Stop"), this, &Preview::toggle)->setShortcut(Qt::Key_Space);
    menu->addAction(tr("&Next Track"), this, &Preview::playNext)->setShortcut(Qt::CTRL | Qt::Key_Right);
    menu->addAction(tr("P&revious Track"), this, &Preview::playPrevious)->setShortcut(Qt::CTRL | Qt::Key_Left);
    menu->addSeparator();
    QMenu *devices = menu->addMenu(tr("&Output"));
    devices->setAccessibleName(tr("Output"));
    connect(devices, &QMenu::aboutToShow, this, [this, devices] { fillDeviceMenu(devices); });
    QAction *loudest = menu->addAction(tr("Start at the &Loudest Part"));
    loudest->setCheckable(true);
    loudest->setChecked(m_startsLoudest);
    connect(loudest, &QAction::toggled, this, &Preview::setStartsLoudest);
    connect(this, &Preview::changed, loudest, [this, loudest] { loudest->setChecked(m_startsLoudest); });
    QAction *shuffled = menu->addAction(tr("&Shuffle"));
    shuffled->setCheckable(true);
    connect(shuffled, &QAction::toggled, this, &Preview::setShuffled);
    connect(this, &Preview::changed, shuffled, [this, shuffled] { shuffled->setChecked(isShuffled()); });
    QAction *continuous = menu->addAction(tr("&Continue with the Next One"));
    continuous->setCheckable(true);
    continuous->setChecked(player().isContinuous());
    connect(continuous, &QAction::toggled, this, [this](bool on) {
        m_manager->basic->setContinuous(on);
        m_manager->stems->setContinuous(on);
    });
    return menu;
}

void Preview::toggle()
{
    if (m_selectedSound)
        return toggleSelectedSound();
    const int row = m_view->currentIndex().row();
    const PreviewItem *item = currentItem();
    if (item && item->index.isValid() && item->index.row() == row
        && (player().state() == KXAudioPlayerStatePlaying || player().duration() > 0)) {
        m_manager->togglePlayback();
        return;
    }
    playRow(row);
}

/// A server takes its time: what is not open yet is given up, not waited for.
void Preview::toggleSelectedSound()
{
    const bool isAtWork
        = player().state() == KXAudioPlayerStatePlaying || player().state() == KXAudioPlayerStateLoading;
    const std::optional<Sound> selected = m_selectedSound();
    const bool isSame = selected && playingAddress() == selected->address;
    if (selected && !isSame) {
        playSound(*selected);
    } else if (isAtWork && player().duration() <= 0) {
        const QScopedValueRollback guard(m_isGivenUp, true);
        player().stop();
    } else if (isAtWork || (isSame && player().duration() > 0)) {
        m_manager->togglePlayback();
    } else if (selected) {
        playSound(*selected);
    }
}

void Preview::playRow(int row) { start(m_playlist->itemAt(row)); }

void Preview::playSound(const Sound &sound) { start(m_playlist->itemOf(sound)); }

void Preview::start(const std::shared_ptr<PreviewItem> &item)
{
    if (!item)
        return;
    if (m_output->prepare() != 0) {
        m_label->setText(tr("No sound card: tracks cannot be previewed"));
        return;
    }
    m_followed = item;
    play(item);
}

/// Where the player goes on by itself the selection goes along, unless the user has left the track or writes something
/// into its row: the editor would close, and the rest of what is typed would be commands.
void Preview::followItem()
{
    const auto item = std::static_pointer_cast<PreviewItem>(player().currentItem());
    const QModelIndex current = m_view->currentIndex();
    const bool isFollowing = m_followed && m_followed->index.isValid() && m_followed->index.row() == current.row()
        && !m_view->indexWidget(current);
    if (isFollowing && item && item->index.isValid())
        m_view->setCurrentIndex(item->index.sibling(item->index.row(), current.column()));
    m_followed = item;
    Q_EMIT changed();
}

void Preview::showState()
{
    const PreviewItem *item = currentItem();
    const bool isPlaying = player().state() == KXAudioPlayerStatePlaying;
    if (isPlaying != m_clock.isActive())
        isPlaying ? m_clock.start() : m_clock.stop();
    if (isPlaying)
        cue();
    Q_EMIT changed();
    if (!item)
        return;
    const QString time
        = u"%1 / %2"_s.arg(BrowserStyle::timeText(player().currentTime()), BrowserStyle::timeText(player().duration()));
    switch (player().state()) {
    case KXAudioPlayerStateIdle:
        m_label->clear();
        break;
    case KXAudioPlayerStateLoading:
        m_label->setText(tr("Opening %1…").arg(item->title));
        break;
    case KXAudioPlayerStatePlaying:
        m_label->setText(tr("Playing %1  ·  %2").arg(item->title, time));
        break;
    case KXAudioPlayerStateStopped:
        m_label->setText(m_isGivenUp      ? QString()
                : player().duration() > 0 ? tr("Stopped %1  ·  %2").arg(item->title, time)
                                          : tr("%1 cannot be played").arg(item->title));
        if (player().duration() <= 0 && !m_isGivenUp)
            MessageStrip::postUnplayable(item->title, item->url);
        break;
    case KXAudioPlayerStateFinished:
        m_label->setText(tr("Finished %1").arg(item->title));
    }
}
