// What the browser says of errors, and the choices that it remembers.

#include <QCheckBox>
#include <QComboBox>
#include <QFile>
#include <QMenuBar>
#include <QPushButton>
#include <QSignalSpy>
#include <QTest>

#include <kestrixkit/foundation/KXBundle.h>
#include <kestrixkit/foundation/KXUserDefaults.h>
#include <kestrixkit/messages/KXMessageCenter.h>
#include <kestrixkit/messages/views/KXMessageCenterDetailsViewController.h>
#include <kestrixkit/toolkit/KXAnimationGroup.h>
#include <kestrixkit/util/views/KXPreferences.h>
#include <support/ChildProcess.h>
#include <support/KXTestPrint.h>
#include <support/KXTestRandom.h>

#include <player/Preview.h>
#include <window/Analytics.h>
#include <window/BrowserStyle.h>
#include <window/BrowserWindow.h>
#include <window/MessageStrip.h>
#include <window/PreferencePanes.h>
#include <window/Settings.h>

#include "LibraryTest.h"
#include "MusicFiles.h"

using namespace Qt::StringLiterals;

class BrowserMessagesTest : public LibraryTest
{
protected:
    BrowserMessagesTest() { center.clearMessages(center.messages()); }
    ~BrowserMessagesTest() override
    {
        center.clearMessages(center.messages());
        Settings::setDarkTheme(true);
        for (const auto key : { Settings::musicFolderKey, Settings::darkThemeKey, Settings::analyticsKey })
            defaults.remove(key);
    }
    KXMessageCenter &center = KXMessageCenter::sharedInstance();
    KXUserDefaults &defaults = KXUserDefaults::standard();
};

TEST_F(BrowserMessagesTest, filesThatCannotBeReadAreListed)
{
    QTemporaryDir music;
    makeMusic(music.filePath(u"good.wav"_s).toStdString(), {}, AudioFormat::Wav);
    for (const char *name : { "<b>bold.mp3", "a&b.flac", "c.wav" }) {
        QFile file(music.filePath(QLatin1StringView(name)));
        ASSERT_TRUE(file.open(QIODevice::WriteOnly));
        file.write("no music");
    }
    BrowserWindow window(coordinator);
    window.show();
    auto *const strip = window.findChild<KXMessageView *>();
    ASSERT_TRUE(strip);
    EXPECT_FALSE(strip->isVisible());
    QSignalSpy finished(&window, &BrowserWindow::importFinished);
    window.importMusic([&](QString *) { return music.path().toStdString(); });
    ASSERT_TRUE(finished.wait(60'000));
    EXPECT_TRUE(strip->isVisible());
    EXPECT_EQ(strip->message(), u"3 files could not be read"_s);
    const QString info = center.newestMessage()->info();
    EXPECT_TRUE(info.contains(u"<li>&lt;b&gt;bold.mp3: "_s) && info.contains(u"<li>a&amp;b.flac: "_s))
        << info.toStdString();

    MessageStrip::postUnplayable(u"Night <i>drive"_s, QUrl::fromLocalFile(music.filePath(u"gone <i>.wav"_s)));
    EXPECT_EQ(strip->message(), u"Night <i>drive cannot be played (2)"_s);
    EXPECT_TRUE(center.newestMessage()->info().endsWith(u"/gone &lt;i&gt;.wav<br>The file is not there."_s));
    QTest::mouseClick(strip->hideButton(), Qt::LeftButton);
    EXPECT_FALSE(strip->isVisible());
    EXPECT_EQ(center.messageCount(), 0);

    // All is well, and an import that was cancelled: nothing to say.
    MessageStrip::postImport({});
    ImportResult cancelled { .cancelled = true };
    cancelled.skipped.push_back({ u"x"_s, u"y"_s });
    MessageStrip::postImport(cancelled);
    EXPECT_EQ(center.messageCount(), 0);
}

TEST_F(BrowserMessagesTest, choicesAreInForceAtOnceAndRemembered)
{
    KXAnimationGroup::setAnimationsEnabled(false);
    EXPECT_TRUE(Settings::darkTheme() && Settings::musicFolder().empty() && !Settings::analyticsConsent());
    // What another program left there, or a folder that is gone, is as good as nothing.
    defaults.setValue(Settings::darkThemeKey, u"false"_s);
    defaults.setValue(Settings::analyticsKey, 1);
    defaults.setValue(Settings::musicFolderKey, 7);
    EXPECT_TRUE(Settings::darkTheme() && Settings::musicFolder().empty() && !Settings::analyticsConsent());
    Settings::setMusicFolder("/no/such\xff");
    EXPECT_EQ(defaults.dataForKey(Settings::musicFolderKey), QByteArray("/no/such\xff"));
    EXPECT_TRUE(Settings::musicFolder().empty());

    BrowserWindow window(coordinator);
    QTemporaryDir music;
    std::string imported;
    PreferencePanes::show([&](const std::string &chosen) { imported = chosen; }, window.preview());
    KXPreferences &preferences = KXPreferences::sharedPreferences();
    ASSERT_EQ(preferences.viewControllers().size(), Analytics::isAvailable() ? 4 : 3);
    auto *const general = qobject_cast<GeneralPane *>(preferences.viewControllers()[0]);
    general->setFolder(QFile::encodeName(music.path()).toStdString());
    EXPECT_EQ(imported, music.path().toStdString());
    EXPECT_EQ(Settings::musicFolder(), music.path().toStdString());

    // The pop-up button, the action in the menu and the theme follow each other.
    auto *const theme = preferences.window()->findChild<QComboBox *>();
    QAction *light = nullptr;
    for (QAction *action : window.findChildren<QAction *>()) {
        if (action->text() == u"&Light Theme"_s)
            light = action;
    }
    ASSERT_TRUE(theme && light && !light->isChecked());
    theme->setFocus();
    QTest::keyClick(theme, Qt::Key_Down);
    EXPECT_TRUE(light->isChecked() && !BrowserStyle::isDark() && !Settings::darkTheme());
    light->trigger();
    EXPECT_EQ(theme->currentIndex(), 0);
    EXPECT_TRUE(BrowserStyle::isDark() && Settings::darkTheme());

    // Sound: what the preview does, the pane shows, and the next browser knows.
    preferences.setSelectedViewController(preferences.viewControllers()[1]);
    QCheckBox *equal = nullptr, *loudest = nullptr;
    for (QCheckBox *box : preferences.window()->findChildren<QCheckBox *>())
        (box->text().contains(u"loudest"_s) ? loudest : equal) = box;
    ASSERT_TRUE(equal && loudest);
    EXPECT_FALSE(equal->isChecked() || loudest->isChecked());
    equal->click();
    loudest->click();
    EXPECT_TRUE(window.preview()->isLevelled() && window.preview()->startsLoudest());
    EXPECT_TRUE(Settings::equalLoudness() && Settings::startsLoudest());
    Settings::setOutputDevice(u"a device of long ago"_s);
    BrowserWindow later(coordinator);
    EXPECT_TRUE(later.preview()->isLevelled() && later.preview()->startsLoudest());
    EXPECT_EQ(later.preview()->device(), u"a device of long ago"_s);
    PreferencePanes::show({}, later.preview());
    auto *const device = preferences.viewControllers()[1]->view()->findChild<QComboBox *>();
    EXPECT_EQ(device->currentText(), u"a device of long ago (not there)"_s);
    preferences.window()->close();
    KXAnimationGroup::setAnimationsEnabled(true);
}

// Killed while it writes, the browser finds the choice that it had finished writing, or the one after.
TEST_F(BrowserMessagesTest, choicesSurviveBeingKilled)
{
    KXTestRandom random;
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    for (int round = 0; round < KXTestRandom::scaled(30); ++round) {
        QTemporaryDir config;
        environment.insert(u"KX_SETTINGS_CHILD"_s, config.path());
        ChildProcess child("SettingsChild.*", environment);
        QByteArray output;
        for (const int enough = random.between(200, 900); output.size() < enough;)
            output += child.read();
        ASSERT_TRUE(child.kill()) << output.toStdString();
        for (QByteArray more; !(more = child.read()).isEmpty();)
            output += more;
        int written = -1;
        for (const QByteArray &line : output.left(output.lastIndexOf('\n') + 1).split('\n')) {
            bool isNumber = false;
            if (const int number = line.toInt(&isNumber); isNumber)
                written = number;
        }
        KXUserDefaults defaults(config.filePath(u"settings-child/defaults.cbor"_s));
        const int found = defaults.dataForKey(Settings::musicFolderKey).value_or("-1").toInt();
        EXPECT_GE(found, written);
        EXPECT_LE(found, written + 1);
        EXPECT_TRUE(found < 0 || defaults.boolForKey(Settings::darkThemeKey).has_value()) << "which is written before";
    }
}

TEST(SettingsChild, DISABLED_writes)
{
    qputenv("XDG_CONFIG_HOME", qgetenv("KX_SETTINGS_CHILD"));
    KXBundle::mainBundle().setIdentifier(u"settings-child"_s);
    for (int i = 0;; ++i) {
        KXUserDefaults::standard().setValue(Settings::darkThemeKey, i % 2 == 0);
        Settings::setMusicFolder(std::to_string(i));
        const QByteArray line = QByteArray::number(i) + '\n';
        if (write(STDOUT_FILENO, line.constData(), size_t(line.size())) <= 0)
            return;
    }
}
