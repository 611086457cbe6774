// Previewing from the table: the space bar, stepping on, the line, and no sound card.

#include <QAction>
#include <QLabel>
#include <QLineEdit>
#include <QMenu>
#include <QPushButton>
#include <QTest>

#include <kestrixkit/audio/KXAudioPlayerManager.h>
#include <kestrixkit/audio/KXHandCrankedAudioOutput.h>

#include <kestrixkit/audio/KXMultiTrackAudioPlayer.h>
#include <kestrixkit/audio/KXWaveformLibrary.h>
#include <kestrixkit/audio/views/KXAudioPlayerWaveformView.h>

#include <library/LibraryEditor.h>
#include <player/PlayerStrip.h>
#include <player/Preview.h>
#include <player/WaveformMaker.h>
#include <table/TrackTableModel.h>
#include <table/TrackTableView.h>
#include <window/BrowserStyle.h>

#include <support/AudioFiles.h>

#include "LibraryTest.h"
#include "MusicFiles.h"
#include "OwnDisplay.h"

using namespace Qt::StringLiterals;

constexpr int previewPatience = 60'000; // milliseconds

struct PreviewOutput : KXHandCrankedAudioOutput
{
    int prepareStatus = 0;
    Status prepare() override { return prepareStatus; }
    void lose()
    {
        stop();
        announceLost(u"unplugged"_s);
    }
};

class PreviewTest : public LibraryTest
{
protected:
    void SetUp() override
    {
        LibraryTest::SetUp();
        for (const char *name : { "a.flac", "b.flac", "c.flac", "d.flac" }) {
            const QString path = folder.filePath(QLatin1StringView(name));
            if (name[0] != 'c') // which is missing
                makeMusic(path.toStdString());
            add(QLatin1StringView(name))->setLocation(QUrl::fromLocalFile(path));
        }
        save();
        editor = std::make_unique<LibraryEditor>(context);
        model = std::make_unique<TrackTableModel>(context, editor.get());
        model->sort(TrackTableModel::Title);
        view = std::make_unique<TrackTableView>();
        view->setModel(model.get());
        preview = std::make_unique<Preview>(model.get(), view.get(), output);
        menu.reset(preview->makeMenu(nullptr));
        view->addActions(menu->actions());
        view->show();
        view->activateWindow();
        ASSERT_TRUE(QTest::qWaitForWindowActive(view.get()));
        view->setFocus();
        view->setCurrentIndex(model->index(0, 1));
    }
    void TearDown() override
    {
        preview->label()->deleteLater();
        preview.reset();
        view.reset();
        model.reset();
    }
    int rowOf(const QString &title)
    {
        int row = 0;
        while (row < model->rowCount() && model->index(row, TrackTableModel::Title).data().toString() != title)
            ++row;
        return row;
    }
    void press(Qt::Key key, Qt::KeyboardModifiers modifiers = {}) { QTest::keyClick(view.get(), key, modifiers); }
    /// Whether the line comes to start like this, while the output plays.
    bool says(const QString &start)
    {
        float left[512], right[512];
        return QTest::qWaitFor(
            [&] {
                output->crank(left, right, 512);
                return preview->label()->text().startsWith(start);
            },
            previewPatience);
    }

    std::shared_ptr<PreviewOutput> output = std::make_shared<PreviewOutput>();
    std::unique_ptr<LibraryEditor> editor;
    std::unique_ptr<TrackTableModel> model;
    std::unique_ptr<TrackTableView> view;
    std::unique_ptr<Preview> preview;
    std::unique_ptr<QMenu> menu;
};

TEST_F(PreviewTest, spacePlaysStopsAndStepsOn)
{
    EXPECT_EQ(preview->label()->text(), QString());
    press(Qt::Key_Space);
    ASSERT_TRUE(says(u"Playing a.flac  ·  0:00 / 0:00"_s));
    press(Qt::Key_Space);
    EXPECT_TRUE(preview->label()->text().startsWith(u"Stopped a.flac"_s));
    press(Qt::Key_Space);
    // Goes on by itself, with the selection, as far as there is something to be played.
    ASSERT_TRUE(says(u"Playing b.flac"_s));
    EXPECT_EQ(view->currentIndex(), model->index(1, 1));
    ASSERT_TRUE(says(u"c.flac cannot be played"_s));
    EXPECT_EQ(view->currentIndex().row(), 2);

    // The user writes into the row that plays: nothing is taken from under the fingers.
    view->showColumn(TrackTableModel::Comment);
    view->setCurrentIndex(model->index(0, TrackTableModel::Comment));
    press(Qt::Key_Space);
    ASSERT_TRUE(says(u"Playing a.flac"_s));
    view->edit(view->currentIndex());
    auto *const line = view->findChild<QLineEdit *>();
    ASSERT_TRUE(line);
    QTest::keyClicks(line, u"half"_s);
    ASSERT_TRUE(says(u"Playing b.flac"_s));
    QTest::keyClicks(QApplication::focusWidget(), u" and whole"_s);
    QTest::keyClick(QApplication::focusWidget(), Qt::Key_Return);
    QTest::qWait(0);
    EXPECT_EQ(model->track(0)->comment(), u"half and whole"_s);
    EXPECT_EQ(view->currentIndex().row(), 0);

    // The user has gone elsewhere: the selection stays. At the end of the table it ends.
    menu->actions().last()->setChecked(false);
    view->setCurrentIndex(model->index(1, 0));
    press(Qt::Key_Space);
    ASSERT_TRUE(says(u"Playing b.flac"_s));
    view->setCurrentIndex(model->index(0, 0));
    ASSERT_TRUE(says(u"Finished b.flac"_s));
    KXAudioPlayerManager::sharedInstance()->audioPlayer()->playItemFromPlaylist(nullptr, nullptr);
    EXPECT_EQ(view->currentIndex().row(), 0);
    view->setCurrentIndex(model->index(3, 0));
    menu->actions().last()->setChecked(true);
    press(Qt::Key_Space);
    ASSERT_TRUE(says(u"Finished d.flac"_s));
    press(Qt::Key_Left, Qt::ControlModifier);
    ASSERT_TRUE(says(u"c.flac cannot be played"_s));
}

TEST_F(PreviewTest, withoutASoundCardOneLineSaysSo)
{
    output->prepareStatus = -9985;
    press(Qt::Key_Space);
    EXPECT_EQ(preview->label()->text(), u"No sound card: tracks cannot be previewed"_s);
    press(Qt::Key_Right, Qt::ControlModifier);
    press(Qt::Key_Down);
    EXPECT_EQ(view->currentIndex().row(), 1);
    output->prepareStatus = 0; // plugged in
    press(Qt::Key_Space);
    EXPECT_TRUE(says(u"Playing b.flac"_s));
}

TEST_F(PreviewTest, doubleClicksAndReturnPlayFromTheStart)
{
    press(Qt::Key_Return);
    ASSERT_TRUE(says(u"Playing a.flac"_s));
    const QPoint second = view->visualRect(model->index(1, TrackTableModel::Artist)).center();
    QTest::mouseClick(view->viewport(), Qt::LeftButton, {}, second);
    QTest::mouseDClick(view->viewport(), Qt::LeftButton, {}, second);
    ASSERT_TRUE(says(u"Playing b.flac"_s));
    EXPECT_EQ(preview->playingIndex().row(), 1);
    const QPoint stars = view->visualRect(model->index(0, TrackTableModel::Rating)).center();
    QTest::mouseDClick(view->viewport(), Qt::LeftButton, {}, stars);
    EXPECT_EQ(preview->playingIndex().row(), 1);

    // In any order: another one each time, and back the way it came.
    preview->setShuffled(true);
    QList<int> rows { 1 };
    for (int i = 0; i < 8; ++i) {
        preview->playNext();
        const int row = preview->playingIndex().row();
        EXPECT_NE(row, rows.last());
        rows.append(row);
    }
    for (int i = 7; i >= 0; --i) {
        preview->player().stop();
        preview->player().playPrevious();
        EXPECT_EQ(preview->playingIndex().row(), rows[i]) << i;
    }
}

/// A track of four stems plays, under the strip.
class PreviewStripTest : public PreviewTest
{
protected:
    void SetUp() override
    {
        PreviewTest::SetUp();
        path = writeSound(makeSound(8000 * 20, 8, 8000), { "stems", "wav", "wav", "pcm_s16le" }, folder.path());
        add(u"0 stems"_s)->setLocation(QUrl::fromLocalFile(path));
        save();
        ASSERT_TRUE(QTest::qWaitFor([&] { return model->rowCount() == 5; }, previewPatience));
        waveforms = std::make_unique<KXWaveformLibrary>(folder.filePath(u"library.waves"_s));
        view->setWaveforms(waveforms.get());
        strip = std::make_unique<PlayerStrip>(preview.get(), waveforms.get());
        strip->resize(1000, 200);
        EXPECT_TRUE(strip->isHidden());
        preview->playRow(rowOf(u"0 stems"_s));
        ASSERT_TRUE(says(u"Playing 0 stems"_s));
        stems = preview->stems();
        ASSERT_TRUE(stems);
        EXPECT_FALSE(strip->isHidden());
    }
    void TearDown() override
    {
        strip.reset();
        PreviewTest::TearDown();
        waveforms.reset();
    }
    QPushButton *button(const QString &name)
    {
        for (QPushButton *each : strip->findChildren<QPushButton *>()) {
            if (each->accessibleName() == name)
                return each;
        }
        return nullptr;
    }
    QImage picture() { return strip->waveform()->grab().toImage(); }

    QString path;
    std::unique_ptr<KXWaveformLibrary> waveforms;
    std::unique_ptr<PlayerStrip> strip;
    KXMultiTrackAudioPlayer *stems = nullptr;
};

TEST_F(PreviewStripTest, aClickInTheWaveformGoesThere)
{
    QTest::mouseClick(strip->waveform(), Qt::LeftButton, {}, strip->waveform()->rect().center());
    EXPECT_NEAR(stems->currentTime(), 10, 0.2);
    const auto shows = [&](const QString &text) {
        const auto labels = strip->findChildren<QLabel *>();
        return std::any_of(labels.begin(), labels.end(), [&](QLabel *each) { return each->text() == text; });
    };
    EXPECT_TRUE(shows(BrowserStyle::timeText(stems->currentTime()))); // at once
}

TEST_F(PreviewStripTest, mutesAndSolosStems)
{
    KXAudioPlayerWaveformView *const waveform = strip->waveform();
    ASSERT_TRUE(QTest::qWaitFor([&] { return waveforms->overview(QUrl::fromLocalFile(path)); }, previewPatience));
    const QImage all = picture();
    for (const QString &name : { u"Mute Stem 1"_s, u"Solo Stem 4"_s })
        ASSERT_TRUE(button(name)) << name.toStdString();
    EXPECT_FALSE(button(u"Mute Stem 5"_s));
    button(u"Mute Stem 1"_s)->click();
    EXPECT_TRUE(stems->isStemMuted(0));
    EXPECT_EQ(waveform->stemGains(), (std::vector<float> { 0, 1, 1, 1 }));
    EXPECT_NE(picture(), all); // in the next frame
    EXPECT_FALSE(waveform->isEstimate());
    stems->muteChannel(2); // by somebody else, one side of the second stem
    (void)picture();
    EXPECT_TRUE(waveform->isEstimate());
    stems->unmuteChannel(2);
    (void)picture();
    EXPECT_FALSE(waveform->isEstimate());
    stems->setStemGain(1, 0.5F);
    (void)picture();
    EXPECT_TRUE(waveform->isEstimate());
    Q_EMIT preview->changed(); // as it does four times a second: what is being decoded goes on
    EXPECT_TRUE(QTest::qWaitFor([&] { return !waveform->isEstimate(); }, previewPatience));
    stems->setStemGain(1, 1);
    button(u"Solo Stem 4"_s)->click();
    EXPECT_EQ(waveform->stemGains(), (std::vector<float> { 0, 0, 0, 1 }));
    stems->setStemSoloed(3, false); // by somebody else
    EXPECT_FALSE(button(u"Solo Stem 4"_s)->isChecked());
}

TEST_F(PreviewStripTest, tracksWithoutStemsHaveAPlayerOfTheirOwn)
{
    button(u"Solo Stem 4"_s)->click();
    preview->playRow(rowOf(u"a.flac"_s));
    ASSERT_TRUE(says(u"Playing a.flac"_s));
    EXPECT_FALSE(preview->stems());
    EXPECT_EQ(stems->state(), KXAudioPlayerStateStopped);
    QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    EXPECT_FALSE(button(u"Mute Stem 1"_s));
    preview->playRow(rowOf(u"0 stems"_s));
    ASSERT_TRUE(says(u"Playing 0 stems"_s));
    EXPECT_EQ(stems->audibleStemGains(), (std::vector<float> { 1, 1, 1, 1 }));
}

TEST_F(PreviewStripTest, theRowHasItsWaveformAndAMarkOnceTheWindowSaysSo)
{
    const int row = rowOf(u"0 stems"_s);
    ASSERT_TRUE(QTest::qWaitFor([&] { return waveforms->overview(QUrl::fromLocalFile(path)); }, previewPatience));
    const QRect cell = view->visualRect(model->index(row, TrackTableModel::Title));
    const QImage unmarked = view->viewport()->grab(cell).toImage();
    view->setPlayingIndex(preview->playingIndex());
    EXPECT_NE(view->viewport()->grab(cell).toImage(), unmarked);
    view->scrollTo(model->index(row, TrackTableModel::Waveform));
    const QRect wave = view->visualRect(model->index(row, TrackTableModel::Waveform));
    const QImage drawn = view->viewport()->grab(wave).toImage();
    bool isDrawn = false;
    for (int x = 1; x < drawn.width() && !isDrawn; ++x)
        isDrawn = drawn.pixel(x, drawn.height() / 2) != drawn.pixel(0, drawn.height() / 2);
    EXPECT_TRUE(isDrawn);
}

TEST_F(PreviewTest, theStripShowsTheCoverAndLevelsAreHeard)
{
    KXWaveformLibrary waveforms(folder.filePath(u"library.waves"_s));
    const auto strip = std::make_unique<PlayerStrip>(preview.get(), &waveforms);
    preview->setWaveforms(&waveforms);
    QImage red(10, 10, QImage::Format_RGB32);
    red.fill(Qt::red);
    ASSERT_TRUE(red.save(folder.filePath(u"cover.png"_s)));
    add(u"0 long"_s)
        ->setLocation(QUrl::fromLocalFile(
            writeSound(makeSound(44'100 * 3), { "long", "wav", "wav", "pcm_s16le" }, folder.path())));
    save();
    ASSERT_TRUE(QTest::qWaitFor([&] { return model->rowCount() == 5; }, previewPatience));
    preview->setLevelled(true);
    preview->playRow(rowOf(u"0 long"_s));
    ASSERT_TRUE(says(u"Playing 0 long"_s));
    const auto *cover = [&] {
        const auto labels = strip->findChildren<QLabel *>();
        return *std::find_if(
            labels.begin(), labels.end(), [](QLabel *each) { return each->accessibleName() == u"Cover"_s; });
    }();
    ASSERT_TRUE(QTest::qWaitFor([&] { return cover->isVisibleTo(strip.get()); }, previewPatience));
    EXPECT_EQ(cover->pixmap().toImage().pixelColor(5, 5), QColor(Qt::red));
    const auto gain = [&] { return preview->player().currentItem()->gain(); };
    EXPECT_TRUE(QTest::qWaitFor([&] { return gain() != 1; }, previewPatience)) << "once it is measured";
    preview->setLevelled(false);
    EXPECT_EQ(gain(), 1);
    ASSERT_TRUE(QFile::remove(folder.filePath(u"cover.png"_s)));
    preview->playRow(rowOf(u"a.flac"_s));
    ASSERT_TRUE(says(u"Playing a.flac"_s));
    EXPECT_TRUE(QTest::qWaitFor([&] { return !cover->isVisibleTo(strip.get()); }, previewPatience));
}

TEST_F(PreviewTest, DISABLED_onThisDisplay)
{
    const AudioSamples sound = makeSound(8000 * 40, 8, 8000);
    const QString path = writeSound(sound, { "stems", "wav", "wav", "pcm_s16le" }, folder.path());
    add(u"0 stems"_s)->setLocation(QUrl::fromLocalFile(path));
    save();
    ASSERT_TRUE(QTest::qWaitFor([&] { return model->rowCount() == 5; }, previewPatience));
    KXWaveformLibrary waveforms(folder.filePath(u"library.waves"_s));
    const auto strip = std::make_unique<PlayerStrip>(preview.get(), &waveforms);
    strip->setGeometry(100, 500, 1100, 260);
    preview->setVolume(1);
    preview->playRow(rowOf(u"0 stems"_s));
    ASSERT_TRUE(says(u"Playing 0 stems"_s));
    ASSERT_TRUE(QTest::qWaitForWindowExposed(strip.get()));
    KXAudioPlayerWaveformView *waveform = strip->waveform();
    ASSERT_TRUE(
        QTest::qWaitFor([&] { return waveforms.pyramid(QUrl::fromLocalFile(path)) != nullptr; }, previewPatience));
    const auto clickAt = [](const QWidget &widget, QPoint point) {
        const QPoint place = widget.mapToGlobal(point);
        QProcess hand;
        startWithFork(hand);
        hand.start(u"xdotool"_s,
            { u"mousemove"_s, QString::number(place.x()), QString::number(place.y()), u"click"_s, u"1"_s });
        ASSERT_TRUE(QTest::qWaitFor([&] { return hand.state() == QProcess::NotRunning; }, previewPatience));
    };
    KXMultiTrackAudioPlayer *stems = preview->stems();
    clickAt(*waveform, waveform->rect().center());
    ASSERT_TRUE(QTest::qWaitFor([&] { return stems->currentTime() > 19; }, previewPatience)) << "no click came";
    ASSERT_TRUE(QTest::qWaitFor([&] { return !stems->isSeeking(); }, previewPatience));
    EXPECT_NEAR(waveform->layer().playerHeadLayer().position.x(), waveform->width() / 2, 3) << "the head is there";
    const auto frame = size_t(std::llround(stems->currentTime() * 8000));
    float left[256], right[256];
    int heard = 0;
    ASSERT_TRUE(QTest::qWaitFor([&] { return (heard = output->crank(left, right, 256)) > 0; }, previewPatience));
    const auto &channels = sound.channels;
    EXPECT_NEAR(left[0], channels[0][frame] + channels[2][frame] + channels[4][frame] + channels[6][frame], 1e-3)
        << "and so is the sound";
    const QImage all = waveform->grab().toImage();
    QPushButton *mute = nullptr;
    for (QPushButton *each : strip->findChildren<QPushButton *>())
        mute = each->accessibleName() == u"Mute Stem 1"_s ? each : mute;
    clickAt(*mute, mute->rect().center());
    ASSERT_TRUE(QTest::qWaitFor([&] { return stems->isStemMuted(0); }, previewPatience));
    EXPECT_NE(waveform->grab().toImage(), all) << "the waveform follows in the next frame";
}

TEST(PreviewPointer, clicksLeadThePlayer) { runOnOwnDisplay(u"PreviewTest.DISABLED_onThisDisplay"_s); }

TEST_F(PreviewTest, aLostDeviceIsTold)
{
    press(Qt::Key_Return);
    ASSERT_TRUE(says(u"Playing a.flac"_s));
    output->lose();
    EXPECT_TRUE(preview->label()->text().startsWith(u"The sound device is gone"_s));
    EXPECT_EQ(preview->player().state(), KXAudioPlayerStateStopped);
}

TEST_F(PreviewTest, waveformsOfAListAreMadeAndPaused)
{
    KXWaveformLibrary waveforms(folder.filePath(u"library.waves"_s));
    for (int i = 0; i < 40; ++i) // none of which is there
        add(u"x %1"_s.arg(i));
    save();
    ASSERT_TRUE(QTest::qWaitFor([&] { return model->rowCount() == 44; }, previewPatience));
    WaveformMaker maker(model.get(), &waveforms);
    int made = 0;
    const auto connection = QObject::connect(&waveforms, &KXWaveformLibrary::progressed, [&] {
        if (++made == 10)
            maker.action()->setChecked(false);
    });
    maker.action()->setChecked(true);
    ASSERT_TRUE(QTest::qWaitFor([&] { return made >= 10; }, previewPatience));
    EXPECT_TRUE(waveforms.isPaused());
    // Files that are not there are soon done with, perhaps all of them by now.
    EXPECT_TRUE(maker.action()->text().contains(u"of 44"_s) || waveforms.pendingCount() == 0);
    QObject::disconnect(connection);
    maker.action()->setChecked(true);
    ASSERT_TRUE(QTest::qWaitFor([&] { return !maker.action()->isChecked(); }, previewPatience));
    EXPECT_EQ(waveforms.pendingCount(), 0);
    EXPECT_FALSE(maker.action()->text().contains(u"44"_s));
}
