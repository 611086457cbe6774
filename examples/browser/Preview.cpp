#include "Preview.h"

#include <QAbstractItemView>
#include <QAction>
#include <QLabel>
#include <QMenu>
#include <QPersistentModelIndex>

#include <kestrixkit/audio/KXAudioPlayerManager.h>
#include <kestrixkit/audio/KXBasicAudioPlayer.h>
#include <kestrixkit/audio/KXPortAudioOutput.h>

#include "BrowserStyle.h"
#include "MessageStrip.h"
#include "TrackTableModel.h"

using namespace Qt::StringLiterals;

namespace {

constexpr float previewVolume = 0.9F;
constexpr int previewClockMilliseconds = 250;
constexpr int previewLongestTitle = 40;

QString previewMinutes(double seconds)
{
    const int whole = int(seconds);
    return u"%1:%2"_s.arg(whole / 60).arg(whole % 60, 2, 10, QLatin1Char('0'));
}

} // namespace

struct Preview::Item : KXAudioPlayerItem
{
    QPersistentModelIndex index; // follows the track wherever it is sorted to
    QUrl url;
    QString title;

    QUrl audioFileURL() const override { return url; }
};

/// The tracks in the order in which the table shows them.
struct Preview::Playlist : KXAudioPlayerPlaylist
{
    explicit Playlist(TrackTableModel *tracks)
        : model(tracks)
    {
    }
    KXAudioPlayerItemPointer audioPlayerItemAfter(const KXAudioPlayerItemPointer &item) override
    {
        return beside(item, 1);
    }
    KXAudioPlayerItemPointer audioPlayerItemBefore(const KXAudioPlayerItemPointer &item) override
    {
        return beside(item, -1);
    }

    std::shared_ptr<Item> itemAt(int row) const
    {
        const KXRef<Track> track = model->track(row);
        if (!track)
            return nullptr;
        auto item = std::make_shared<Item>();
        item->index = model->index(row, 0);
        item->url = track->location();
        item->title = track->title().isEmpty() ? item->url.fileName() : track->title();
        if (item->title.size() > previewLongestTitle)
            item->title = item->title.left(previewLongestTitle - 1) + u'…';
        return item;
    }
    KXAudioPlayerItemPointer beside(const KXAudioPlayerItemPointer &item, int step) const
    {
        const QPersistentModelIndex &index = static_cast<const Item &>(*item).index;
        return index.isValid() ? itemAt(index.row() + step) : nullptr;
    }
    TrackTableModel *const model;
};

/// What makes the player known to the rest of the application.
class Preview::Manager : public KXAudioPlayerManager
{
public:
    explicit Manager(const std::shared_ptr<KXAudioOutput> &output)
    {
        setAudioPlayer(std::make_shared<KXBasicAudioPlayer>(output));
        audioPlayer()->setVolume(previewVolume);
        audioPlayer()->setContinuous(true);
    }
};

Preview::Preview(
    TrackTableModel *model, QAbstractItemView *view, std::shared_ptr<KXAudioOutput> output, QObject *parent)
    : QObject(parent)
    , m_model(model)
    , m_view(view)
    , m_output(output ? std::move(output) : std::make_shared<KXPortAudioOutput>())
    , m_manager(std::make_shared<Manager>(m_output))
    , m_playlist(std::make_shared<Playlist>(model))
    , m_label(new QLabel)
{
    KXAudioPlayerManager::setSharedInstance(m_manager);
    m_label->setAccessibleDescription(tr("Preview"));
    m_label->setContentsMargins(BrowserStyle::margin, 0, BrowserStyle::margin, 0);
    m_clock.setInterval(previewClockMilliseconds);
    connect(&m_clock, &QTimer::timeout, this, &Preview::showState);
    connect(&player(), &KXAudioPlayer::stateChanged, this, &Preview::showState);
    connect(&player(), &KXAudioPlayer::currentItemChanged, this, &Preview::followItem);
}

Preview::~Preview()
{
    disconnect(&player(), nullptr, this, nullptr);
    player().stop();
    if (KXAudioPlayerManager::sharedInstance() == m_manager)
        KXAudioPlayerManager::setSharedInstance(nullptr);
}

KXAudioPlayer &Preview::player() const { return *m_manager->audioPlayer(); }

const Preview::Item *Preview::currentItem() const { return static_cast<const Item *>(player().currentItem().get()); }

QMenu *Preview::makeMenu(QWidget *parent)
{
    auto *menu = new QMenu(tr("&Play"), parent);
    menu->setAccessibleName(tr("Play"));
    menu->addAction(tr("&Preview or Stop"), this, &Preview::toggle)->setShortcut(Qt::Key_Space);
    menu->addAction(tr("&Next Track"), this, [this] { m_manager->playNext(true); })
        ->setShortcut(Qt::CTRL | Qt::Key_Right);
    menu->addAction(tr("P&revious Track"), this, [this] { m_manager->playPrevious(true); })
        ->setShortcut(Qt::CTRL | Qt::Key_Left);
    menu->addSeparator();
    QAction *continuous = menu->addAction(tr("&Continue with the Next One"));
    continuous->setCheckable(true);
    continuous->setChecked(player().isContinuous());
    connect(continuous, &QAction::toggled, this, [this](bool on) { player().setContinuous(on); });
    return menu;
}

void Preview::toggle()
{
    const int row = m_view->currentIndex().row();
    const Item *item = currentItem();
    if (item && item->index.isValid() && item->index.row() == row
        && (player().state() == KXAudioPlayerStatePlaying || player().duration() > 0)) {
        m_manager->togglePlayback();
        return;
    }
    const std::shared_ptr<Item> selected = m_playlist->itemAt(row);
    if (!selected)
        return;
    if (m_output->prepare() != 0) {
        m_label->setText(tr("No sound card: tracks cannot be previewed"));
        return;
    }
    m_followed = selected;
    player().playItemFromPlaylist(selected, m_playlist);
}

/// Where the player goes on by itself the selection goes along, unless the user has left the track.
void Preview::followItem()
{
    const auto item = std::static_pointer_cast<Item>(player().currentItem());
    const bool isFollowing
        = m_followed && m_followed->index.isValid() && m_followed->index.row() == m_view->currentIndex().row();
    if (isFollowing && item && item->index.isValid())
        m_view->setCurrentIndex(item->index.sibling(item->index.row(), m_view->currentIndex().column()));
    m_followed = item;
}

void Preview::showState()
{
    const Item *item = currentItem();
    const bool isPlaying = player().state() == KXAudioPlayerStatePlaying;
    if (isPlaying != m_clock.isActive())
        isPlaying ? m_clock.start() : m_clock.stop();
    if (!item)
        return;
    const QString time = u"%1 / %2"_s.arg(previewMinutes(player().currentTime()), previewMinutes(player().duration()));
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
        m_label->setText(player().duration() > 0 ? tr("Stopped %1  ·  %2").arg(item->title, time)
                                                 : tr("%1 cannot be played").arg(item->title));
        if (player().duration() <= 0)
            MessageStrip::postUnplayable(item->title, item->url);
        break;
    case KXAudioPlayerStateFinished:
        m_label->setText(tr("Finished %1").arg(item->title));
    }
}
