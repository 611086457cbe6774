#include <QApplication>
#include <QFile>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QTemporaryDir>
#include <QTranslator>
#include <gtest/gtest.h>

#include <kestrixkit/filter_ui/editors/KXFilterBar.h>
#include <kestrixkit/filter_ui/presets_bar/KXFilterSetPresetsBar.h>
#include <kestrixkit/foundation/KXBundle.h>
#include <kestrixkit/messages/views/KXMessageView.h>
#include <kestrixkit/navigation/KXInspectorOutlineView.h>
#include <kestrixkit/navigation/KXNavigationBar.h>
#include <kestrixkit/source_list/KXSourceListView.h>
#include <kestrixkit/toolkit/KXViewController.h>

#include "support/KXTestLog.h"
#include "support/KXTestPrint.h"

using namespace Qt::StringLiterals;

namespace {

class HostButton : public QPushButton
{
    Q_OBJECT
public:
    using QPushButton::QPushButton;
};

class LightsViewController : public KXViewController
{
    Q_OBJECT
public:
    using KXViewController::KXViewController;
    QStringList heard;
    QPointer<QPushButton> button;
    QPointer<QLineEdit> missing;

    void viewWillAppear() override { heard += u"will appear"_s; }
    void viewDidAppear() override
    {
        KXViewController::viewDidAppear();
        heard += u"did appear"_s;
    }
    void viewWillDisappear() override { heard += u"will disappear"_s; }
    void viewDidDisappear() override
    {
        KXViewController::viewDidDisappear();
        heard += u"did disappear"_s;
    }

protected:
    void viewDidLoad() override
    {
        heard += u"load"_s;
        button = outlet<QPushButton>(u"lampButton"_s);
        missing = outlet<QLineEdit>(u"lampButton"_s);
    }
};

class DimmedLightsViewController : public LightsViewController
{
    Q_OBJECT
};

class NowhereViewController : public KXViewController
{
    Q_OBJECT
};

/// Translates what belongs to the framework's context into capitals.
class Capitals : public QTranslator
{
public:
    QString translate(const char *context, const char *text, const char *, int) const override
    {
        return QByteArrayView(context) == "KestrixKit" ? QString::fromUtf8(text).toUpper() : QString();
    }
    bool isEmpty() const override { return false; }
};

QString form(const QString &widgets)
{
    return u"<?xml version=\"1.0\"?><ui version=\"4.0\"><class>Lights</class><widget class=\"QWidget\" name=\"lights\">"
           "%1</widget><customwidgets><customwidget><class>HostButton</class><extends>QPushButton</extends>"
           "</customwidget><customwidget><class>LostLabel</class><extends>QLabel</extends></customwidget>"
           "</customwidgets></ui>"_s.arg(widgets);
}

}

class InterfaceTest : public ::testing::Test
{
protected:
    InterfaceTest()
    {
        KXBundle::mainBundle().setResourceFolders({ folder.path() });
        QDir(folder.path()).mkdir(u"interfaces"_s);
        KXInterfaceLoader::shared().registerWidget<HostButton>();
    }
    ~InterfaceTest() override { KXBundle::mainBundle().setResourceFolders({}); }
    QString write(const QString &name, const QString &text)
    {
        const QString path = folder.filePath(u"interfaces/"_s + name);
        QFile file(path);
        EXPECT_TRUE(file.open(QIODevice::WriteOnly));
        file.write(text.toUtf8());
        return path;
    }
    QTemporaryDir folder;
};

TEST_F(InterfaceTest, viewsComeFromTheFileNamedAfterTheClass)
{
    const QString path = write(u"Lights.ui"_s,
        form(u"<layout class=\"QVBoxLayout\" name=\"column\"><item><widget class=\"HostButton\" name=\"lampButton\">"
             "<property name=\"text\"><string>Lamp</string></property></widget></item></layout>"_s));
    Capitals capitals;
    {
        KXTestLog log;
        DimmedLightsViewController controller; // has no file of its own
        QCoreApplication::installTranslator(&capitals);
        QWidget window;
        controller.appearIn(&window, QMargins(1, 1, 1, 1));
        controller.appearIn(&window);
        ASSERT_TRUE(qobject_cast<HostButton *>(controller.button));
        EXPECT_EQ(controller.button->text(), u"LAMP"_s);
        QCoreApplication::removeTranslator(&capitals);
        QCoreApplication::sendPostedEvents();
        EXPECT_EQ(controller.button->text(), u"Lamp"_s);
        EXPECT_FALSE(controller.missing);
        EXPECT_TRUE(log.contains(u"no QLineEdit \"lampButton\" in the interface file "_s + path))
            << log.lines().join(u'\n').toStdString();
        controller.disappear();
        controller.disappear();
        EXPECT_EQ(controller.heard.join(u", "_s), u"load, will appear, did appear, will disappear, did disappear"_s);
    }
    // A window takes the view of a controller that outlives it along; another one is loaded.
    LightsViewController controller;
    {
        QWidget window;
        controller.appearIn(&window);
    }
    EXPECT_FALSE(controller.isViewLoaded());
    EXPECT_TRUE(controller.view());
    EXPECT_TRUE(controller.button);
    EXPECT_FALSE(controller.hasAppeared());
}

TEST_F(InterfaceTest, whatIsWrongIsNamed)
{
    struct Case
    {
        const char *what;
        QString text;
        QString line; ///< in the log, beside the path
        bool loads;
    };
    write(u"bad.png"_s, u"no picture"_s);
    const QString picture
        = u"<widget class=\"QLabel\" name=\"kept\"><property name=\"pixmap\"><pixmap>%1</pixmap></property>"
          "</widget><widget class=\"QLabel\" name=\"lost\"><property name=\"text\">"
          "<string>text.png</string></property></widget>"_s;
    const Case cases[] {
        { "malformed", u"<ui version=\"4.0\"><class>A</class><widget class=\"QWidget\" name=\"a\">"_s,
            u"malformed in line 1"_s, false },
        { "no XML", u"lights"_s, u"malformed"_s, false },
        { "empty", {}, u"malformed"_s, false },
        { "another format", u"<html><body/></html>"_s, u"has no widget"_s, false },
        { "unknown class",
            form(u"<widget class=\"KXNothing\" name=\"lost\"/><widget class=\"QLabel\" name=\"kept\"/>"_s),
            u"Unknown class \"KXNothing\" of the widget \"lost\""_s, true },
        { "unknown class with a base",
            form(u"<widget class=\"LostLabel\" name=\"lost\"/><widget class=\"QLabel\" name=\"kept\"/>"_s),
            u"Unknown class \"LostLabel\" of the widget \"lost\""_s, true },
        { "missing image", form(picture.arg(u"lamp.svg"_s)), u"image \"lamp.svg\""_s, true },
        { "malformed image", form(picture.arg(u"bad.png"_s)), u"image \"bad.png\""_s, true },
    };
    for (const Case &one : cases) {
        SCOPED_TRACE(one.what);
        const QString path = write(u"Bad.ui"_s, one.text);
        KXTestLog log;
        const std::unique_ptr<QWidget> view(KXInterfaceLoader::shared().load(path));
        EXPECT_EQ(bool(view), one.loads);
        const QStringList lines = log.lines().filter(one.line).filter(path);
        EXPECT_EQ(lines.size(), 1) << log.lines().join(u'\n').toStdString();
        if (one.loads) {
            EXPECT_TRUE(view->findChild<QLabel *>(u"kept"_s));
            EXPECT_TRUE(view->findChild<QWidget *>(u"lost"_s));
        }
    }
    KXTestLog log;
    EXPECT_FALSE(KXInterfaceLoader::shared().load(folder.filePath(u"none.ui"_s)));
    EXPECT_TRUE(log.contains(u"none.ui"_s));
    NowhereViewController controller;
    EXPECT_TRUE(controller.view());
    EXPECT_TRUE(log.contains(u"\"Nowhere\""_s));
}

// The designer has plug-ins for the web engine and others on this machine; none may come along.
TEST_F(InterfaceTest, noDesignerPluginIsLoaded)
{
    const QStringList before = QCoreApplication::libraryPaths();
    const QString path = write(u"Web.ui"_s, form(u"<widget class=\"QWebEngineView\" name=\"web\"/>"_s));
    KXTestLog log;
    const std::unique_ptr<QWidget> view(KXInterfaceLoader::shared().load(path));
    EXPECT_TRUE(log.contains(u"QWebEngineView"_s));
    EXPECT_EQ(QCoreApplication::libraryPaths(), before);
    QFile maps(u"/proc/self/maps"_s);
    ASSERT_TRUE(maps.open(QIODevice::ReadOnly));
    const QByteArray loaded = maps.readAll();
    EXPECT_TRUE(loaded.contains("libQt6Widgets"));
    EXPECT_FALSE(loaded.contains("WebEngine"));
    EXPECT_FALSE(loaded.contains("/designer/"));
}

TEST_F(InterfaceTest, themedControlsAreKnown)
{
    QString widgets;
    const QStringList classes { u"KXBadge"_s, u"KXHyperlinkButton"_s, u"KXPopoverFrame"_s, u"KXSelectionBar"_s,
        u"KXStarRating"_s, u"KXThemeableButton"_s, u"KXThemeableControl"_s, u"KXThemeableOutlineView"_s,
        u"KXThemeablePopUpButton"_s, u"KXThemeableProgressIndicator"_s, u"KXThemeableScrollView"_s,
        u"KXThemeableScroller"_s, u"KXThemeableSegmentedControl"_s, u"KXThemeableSpinningProgressIndicator"_s,
        u"KXThemeableSplitView"_s, u"KXThemeableTableView"_s, u"KXThemeableTextField"_s, u"KXThemeableView"_s };
    for (const QString &name : classes)
        widgets += u"<widget class=\"%1\" name=\"the%1\"><property name=\"themeStyleName\"><string>some</string>"
                   "</property></widget>"_s.arg(name);
    KXTestLog log;
    const std::unique_ptr<QWidget> view(KXInterfaceLoader::shared().load(write(u"Controls.ui"_s, form(widgets))));
    for (const QString &name : classes) {
        const auto *made = view->findChild<QWidget *>(u"the"_s + name);
        ASSERT_TRUE(made) << name.toStdString();
        EXPECT_EQ(QString::fromLatin1(made->metaObject()->className()), name);
        EXPECT_EQ(made->property("themeStyleName"), u"some"_s);
    }
    EXPECT_EQ(log.lines(), QStringList());
}

// Each interface file of the framework: whatever is wrong with one is logged.
TEST_F(InterfaceTest, everyFileLoads)
{
    KXInterfaceLoader::shared().registerWidget<KXMessageView>(); // as their controllers do
    KXInterfaceLoader::shared().registerWidget<KXSourceListView>();
    KXInterfaceLoader::shared().registerWidget<KXFilterBar>();
    KXInterfaceLoader::shared().registerWidget<KXInspectorOutlineView>();
    KXInterfaceLoader::shared().registerWidget<KXNavigationBar>();
    KXInterfaceLoader::shared().registerWidget<KXFilterSetPresetsBar>();
    for (const QString &path : KXBundle::frameworkBundle().resourcePaths(u"ui"_s, u"interfaces"_s)) {
        KXTestLog log;
        const std::unique_ptr<QWidget> view(KXInterfaceLoader::shared().load(path));
        EXPECT_TRUE(view) << path.toStdString();
        EXPECT_EQ(log.lines(), QStringList()) << path.toStdString();
    }
}

#include "tst_interfaces.moc"
