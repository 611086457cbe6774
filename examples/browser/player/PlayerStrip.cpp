#include "player/PlayerStrip.h"

#include <cmath>

#include <QBoxLayout>
#include <QLabel>
#include <QSlider>

#include <kestrixkit/audio/KXAudioCover.h>
#include <kestrixkit/audio/KXAudioPlayerManager.h>
#include <kestrixkit/audio/KXMultiTrackAudioPlayer.h>
#include <kestrixkit/audio/KXWaveformLibrary.h>
#include <kestrixkit/audio/views/KXAudioPlayerWaveformView.h>
#include <kestrixkit/foundation/KXMainQueue.h>
#include <kestrixkit/theme/KXThemeStyleNames.h>
#include <kestrixkit/theme/controls/KXThemeableButton.h>

#include "player/Preview.h"
#include "window/BrowserStyle.h"

using namespace Qt::StringLiterals;

namespace {

constexpr int stripHeight = 44;
constexpr int stripTitleWidth = 200;
constexpr int stripSliderWidth = 110;
constexpr int stripPerCent = 100; // steps of a gain or volume of 1

KXThemeableButton *stripButton(const QString &text, const QString &name, bool isCheckable = false)
{
    auto *button = new KXThemeableButton(text);
    button->setThemeStyleName(KXButtonStyles);
    button->setAccessibleName(name);
    button->setToolTip(name);
    button->setCheckable(isCheckable);
    button->setFocusPolicy(Qt::TabFocus);
    return button;
}

QSlider *stripSlider(const QString &name, int most)
{
    auto *slider = new QSlider(Qt::Horizontal);
    slider->setRange(0, most);
    slider->setFixedWidth(stripSliderWidth);
    slider->setAccessibleName(name);
    slider->setToolTip(name);
    return slider;
}

} // namespace

PlayerStrip::PlayerStrip(Preview *preview, KXWaveformLibrary *waveforms, QWidget *parent)
    : QWidget(parent)
    , m_preview(preview)
    , m_library(waveforms)
    , m_waveform(new KXAudioPlayerWaveformView)
    , m_cover(new QLabel)
    , m_title(new QLabel)
    , m_elapsed(new QLabel)
    , m_remaining(new QLabel)
    , m_shuffle(stripButton(tr("Shuffle"), tr("Play the list in any order"), true))
    , m_volume(stripSlider(tr("Volume"), stripPerCent))
{
    setAccessibleName(tr("Player"));
    auto *column = new QVBoxLayout(this);
    column->setContentsMargins(BrowserStyle::margin, 4, BrowserStyle::margin, 4);
    m_covers.setMaxConcurrentOperationCount(1);
    auto *row = new QHBoxLayout;
    column->addLayout(row);
    auto *previous = stripButton(u"|<"_s, tr("Previous track"));
    auto *toggle = stripButton(tr("Play"), tr("Preview or stop"));
    auto *next = stripButton(u">|"_s, tr("Next track"));
    connect(previous, &QPushButton::clicked, preview, &Preview::playPrevious);
    connect(toggle, &QPushButton::clicked, preview, [preview] {
        if (const auto manager = KXAudioPlayerManager::sharedInstance())
            manager->togglePlayback();
    });
    connect(next, &QPushButton::clicked, preview, &Preview::playNext);
    connect(m_shuffle, &QPushButton::clicked, preview, &Preview::setShuffled);
    m_cover->setFixedSize(stripHeight, stripHeight);
    m_cover->setAlignment(Qt::AlignCenter);
    m_cover->setAccessibleName(tr("Cover"));
    m_title->setTextFormat(Qt::PlainText);
    m_title->setFixedWidth(stripTitleWidth);
    m_waveform->setFixedHeight(stripHeight);
    m_elapsed->setAccessibleDescription(tr("Time"));
    m_remaining->setAccessibleDescription(tr("Time left"));
    m_volume->setValue(int(std::lround(preview->volume() * stripPerCent)));
    connect(m_volume, &QSlider::valueChanged, preview,
        [preview](int value) { preview->setVolume(float(value) / stripPerCent); });
    for (QWidget *each : std::initializer_list<QWidget *> { previous, toggle, next, m_cover, m_title, m_elapsed })
        row->addWidget(each);
    row->addWidget(m_waveform, 1);
    for (QWidget *each : std::initializer_list<QWidget *> { m_remaining, m_volume, m_shuffle })
        row->addWidget(each);
    m_stemRows = new QVBoxLayout;
    column->addLayout(m_stemRows);
    connect(preview, &Preview::changed, this, [this, toggle] {
        toggle->setText(m_preview->player().state() == KXAudioPlayerStatePlaying ? tr("Stop") : tr("Play"));
        m_shuffle->setChecked(m_preview->isShuffled());
        follow();
    });
    connect(waveforms, &KXWaveformLibrary::ready, this, [this](const QUrl &file) {
        if (file == m_file)
            showWaveform();
    });
    connect(m_waveform, &KXAudioPlayerWaveformView::sought, this, &PlayerStrip::showTimes);
    hide();
}

void PlayerStrip::follow()
{
    const KXAudioPlayerItemPointer item = m_preview->player().currentItem();
    if (m_item.lock() != item) {
        m_item = item;
        m_file = item ? item->audioFileURL() : QUrl();
        m_title->setText(m_title->fontMetrics().elidedText(m_preview->playingTitle(), Qt::ElideRight, stripTitleWidth));
        m_waveform->setPlayerItem(item);
        showWaveform();
        showCover();
    }
    if (const auto *player = m_preview->stems(); m_stems.size() != (player && item ? player->numberOfStems() : 0))
        buildStems();
    showStems();
    showTimes();
    setVisible(item != nullptr);
}

void PlayerStrip::showWaveform() { m_waveform->setPyramid(m_library->pyramid(m_file)); }

/// Read beside the main thread: a file may lie on a slow disk.
void PlayerStrip::showCover()
{
    m_cover->hide();
    if (m_file.isEmpty())
        return;
    const qreal ratio = devicePixelRatioF();
    m_covers.cancelAllOperations(); // those of tracks that were skipped
    m_covers.addBlock([this, file = m_file, ratio] {
        QImage image = KXAudioCover::imageOfFile(file, QSizeF(stripHeight * ratio, stripHeight * ratio).toSize());
        image.setDevicePixelRatio(ratio);
        KXMainQueue::async(this, [this, file, image] {
            if (m_file != file || image.isNull())
                return;
            m_cover->setPixmap(QPixmap::fromImage(image));
            m_cover->show();
        });
    });
}

void PlayerStrip::showTimes()
{
    const double now = m_preview->player().currentTime(), all = m_preview->player().duration();
    m_elapsed->setText(BrowserStyle::timeText(now));
    // Whole seconds of both, so that the two add up to what is shown elsewhere.
    m_remaining->setText(u"-"_s + BrowserStyle::timeText(std::max(0.0, std::floor(all) - std::floor(now))));
}

void PlayerStrip::buildStems()
{
    for (const StemRow &each : std::as_const(m_stems))
        each.row->deleteLater();
    m_stems.clear();
    KXMultiTrackAudioPlayer *const player = m_preview->stems();
    const qint64 count = player && player->currentItem() ? player->numberOfStems() : 0;
    if (player)
        connect(player, &KXMultiTrackAudioPlayer::stemsChanged, this, &PlayerStrip::showStems, Qt::UniqueConnection);
    for (qint64 stem = 0; stem < count; ++stem) {
        const QString name = tr("Stem %1").arg(stem + 1);
        StemRow made { new QWidget, stripButton(tr("Mute"), tr("Mute %1").arg(name), true),
            stripButton(tr("Solo"), tr("Solo %1").arg(name), true),
            stripSlider(tr("Gain of %1").arg(name), 2 * stripPerCent) };
        auto *row = new QHBoxLayout(made.row);
        row->setContentsMargins(0, 0, 0, 0);
        for (QWidget *each : std::initializer_list<QWidget *> { new QLabel(name), made.mute, made.solo, made.gain })
            row->addWidget(each);
        row->addStretch(1);
        connect(made.mute, &QPushButton::clicked, player, [player, stem](bool on) { player->setStemMuted(stem, on); });
        connect(made.solo, &QPushButton::clicked, player, [player, stem](bool on) { player->setStemSoloed(stem, on); });
        connect(made.gain, &QSlider::sliderMoved, player,
            [player, stem](int value) { player->setStemGain(stem, float(value) / stripPerCent); });
        connect(made.gain, &QSlider::actionTriggered, player, [player, stem, slider = made.gain](int) {
            player->setStemGain(stem, float(slider->sliderPosition()) / stripPerCent);
        });
        m_stemRows->addWidget(made.row);
        m_stems.append(made);
    }
}

/// Also what the waveform is of.
void PlayerStrip::showStems()
{
    const KXMultiTrackAudioPlayer *player = m_preview->stems();
    if (!player)
        return;
    for (qsizetype stem = 0; stem < m_stems.size(); ++stem) {
        const StemRow &row = m_stems[stem];
        row.mute->setChecked(player->isStemMuted(stem));
        row.solo->setChecked(player->isStemSoloed(stem));
        if (!row.gain->isSliderDown())
            row.gain->setValue(int(std::lround(player->stemGain(stem) * stripPerCent)));
    }
    const std::vector<float> gains = player->audibleStemGains();
    const bool areNearly = player->mutesPartsOfStems();
    if (m_waveform->stemGains() != gains || m_waveform->stemGainsAreNearly() != areNearly)
        m_waveform->setStemGains(gains, areNearly);
}
