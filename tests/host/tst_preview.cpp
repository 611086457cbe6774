// Previewing from the table: the space bar, stepping on, the line, and no sound card.

#include <QLabel>
#include <QMenu>
#include <QTest>

#include <kestrixkit/audio/KXAudioPlayerManager.h>
#include <kestrixkit/audio/KXHandCrankedAudioOutput.h>

#include <Preview.h>
#include <TrackTableModel.h>
#include <TrackTableView.h>

#include "LibraryTest.h"
#include "MusicFiles.h"

using namespace Qt::StringLiterals;

namespace {

constexpr int previewPatience = 60'000; // milliseconds

struct PreviewOutput : KXHandCrankedAudioOutput
{
    int prepareStatus = 0;
    Status prepare() override { return prepareStatus; }
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
        model = std::make_unique<TrackTableModel>(context);
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
    std::unique_ptr<TrackTableModel> model;
    std::unique_ptr<TrackTableView> view;
    std::unique_ptr<Preview> preview;
    std::unique_ptr<QMenu> menu;
};

} // namespace

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
