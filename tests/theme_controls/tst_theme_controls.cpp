#include <cmath>

#include <QAbstractButton>
#include <QAbstractScrollArea>
#include <QAbstractSpinBox>
#include <QAccessible>
#include <QHash>
#include <QHeaderView>
#include <QImage>
#include <QLabel>
#include <QLineEdit>
#include <QMenu>
#include <QScrollBar>
#include <QShortcut>
#include <QSignalSpy>
#include <QStandardItemModel>
#include <QStyleFactory>
#include <QToolBar>
#include <QToolButton>
#include <QToolTip>
#include <QtTest/QTest>
#include <gtest/gtest.h>

#include <gallery/Pages.h>
#include <kestrixkit/audio/views/KXAudioTypeButton.h>
#include <kestrixkit/foundation/KXClock.h>
#include <kestrixkit/theme/KXDarkTheme.h>
#include <kestrixkit/theme/KXLightTheme.h>
#include <kestrixkit/theme/KXThemeManager.h>
#include <kestrixkit/theme/KXThemeStyleNames.h>
#include <kestrixkit/theme/controls/KXBadge.h>
#include <kestrixkit/theme/controls/KXButtonMatrixView.h>
#include <kestrixkit/theme/controls/KXPopoverFrame.h>
#include <kestrixkit/theme/controls/KXStarRating.h>
#include <kestrixkit/theme/controls/KXThemeableButton.h>
#include <kestrixkit/theme/controls/KXThemeableOutlineView.h>
#include <kestrixkit/theme/controls/KXThemeablePopUpButton.h>
#include <kestrixkit/theme/controls/KXThemeableSegmentedControl.h>
#include <kestrixkit/theme/controls/KXThemeableSplitView.h>
#include <kestrixkit/theme/controls/KXThemeableTextField.h>
#include <kestrixkit/util/views/KXPreferences.h>
#include <kestrixkit/util/views/KXTableView.h>
#include <support/KXTestLog.h>

#include "Contrast.h"

using namespace Qt::StringLiterals;

class ThemeControls : public ::testing::Test
{
protected:
    ThemeControls() { QApplication::setStyle(QStyleFactory::create(u"Fusion"_s)); }
    ~ThemeControls() override { manager.setTheme(nullptr); }

    void setStyle(const QString &name, const QVariantMap &style)
    {
        const auto theme = std::make_shared<KXTheme>();
        theme->setValueForKey(name, style);
        manager.setTheme(theme);
    }
    KXThemeManager &manager = KXThemeManager::sharedManager();
};

namespace {

/// Every colour of a theme with its red part alone.
class RedTheme : public KXStandardTheme
{
public:
    RedTheme()
        : KXStandardTheme(redder(KXDarkTheme().colours()))
    {
    }
    QBrush noisePattern() const override { return QBrush(); }

private:
    static KXThemeColours redder(KXThemeColours colours)
    {
        auto *const all = reinterpret_cast<QColor *>(&colours);
        for (size_t i = 0; i < sizeof colours / sizeof(QColor); ++i)
            all[i] = QColor(all[i].red(), 0, 0);
        return colours;
    }
};

QImage grab(QWidget *widget)
{
    QImage image(widget->size(), QImage::Format_RGB32);
    image.fill(Qt::black);
    widget->render(&image);
    return image;
}

}

TEST_F(ThemeControls, liveChangeLooksLikeAFreshStart)
{
    const std::shared_ptr<KXTheme> dark = std::make_shared<KXDarkTheme>(), light = std::make_shared<KXLightTheme>();
    for (const gallery::Page &page : gallery::pages()) {
        const auto show = [&](bool live) {
            manager.setTheme(live ? dark : light);
            const std::unique_ptr<QWidget> widget(page.make(gallery::english));
            widget->setAttribute(Qt::WA_DontShowOnScreen);
            widget->resize(widget->sizeHint());
            widget->show();
            QWidget *const top = widget.get();
            const QImage before = grab(top);
            manager.setTheme(light);
            widget->resize(widget->sizeHint());
            const QImage after = grab(top);
            EXPECT_EQ(before != after, live) << page.name.toStdString();
            return after;
        };
        EXPECT_EQ(show(true), show(false)) << page.name.toStdString();
    }
}

// What is painted, wherever it stands: the commonest colour of a control is its background, and something in it has to
// stand out from that. Disabled controls are exempt.
TEST_F(ThemeControls, textsStandOutFromWhatIsBehindThem)
{
    for (const std::shared_ptr<KXTheme> &theme : { std::shared_ptr<KXTheme>(std::make_shared<KXDarkTheme>()),
             std::shared_ptr<KXTheme>(std::make_shared<KXLightTheme>()) }) {
        manager.setTheme(theme);
        int measured = 0;
        for (const gallery::Page &page : gallery::pages()) {
            if (page.name == "audio-types"_L1)
                continue; // fixed colours
            const std::unique_ptr<QWidget> widget(page.make(gallery::english));
            widget->setPalette(manager.valueForKeyPath(u"palette"_s).value<QPalette>());
            widget->setAttribute(Qt::WA_DontShowOnScreen);
            widget->resize(widget->sizeHint());
            widget->show();
            const QImage picture = grab(widget.get());
            for (const QWidget *each : widget->findChildren<QWidget *>()) {
                const auto *const button = qobject_cast<const QAbstractButton *>(each);
                const auto *const line = qobject_cast<const QLineEdit *>(each);
                const auto *const label = qobject_cast<const QLabel *>(each);
                const QString text = button ? button->text() : line ? line->text() : label ? label->text() : QString();
                if (text.isEmpty() || !each->isEnabled() || !each->isVisible() || each->visibleRegion().isEmpty())
                    continue;
                const QRect place = QRect(each->mapTo(widget.get(), QPoint()), each->size()) & picture.rect();
                EXPECT_GE(strongestContrast(picture, place), 4.5)
                    << page.name.toStdString() << ": “" << text.toStdString() << "”";
                ++measured;
            }
        }
        EXPECT_GT(measured, 50);
    }
}

TEST_F(ThemeControls, paintNothingThatTheThemeDoesNotSay)
{
    QFont plain = QApplication::font();
    plain.setStyleStrategy(QFont::NoSubpixelAntialias);
    QApplication::setFont(plain);
    manager.setTheme(std::make_shared<RedTheme>());
    for (const gallery::Page &page : gallery::pages()) {
        if (page.name == "audio-types"_L1 || page.name == "filter-dates"_L1)
            continue; // fixed colours and the light below them; date fields are painted by the toolkit
        const QImage image = gallery::picture(page, gallery::english, Qt::LeftToRight, 1);
        QStringList wrong;
        bool anyRed = false;
        for (int y = 0; y < image.height(); ++y) {
            for (int x = 0; x < image.width(); ++x) {
                const QColor pixel = image.pixelColor(x, y);
                anyRed = anyRed || pixel.red() > 200;
                // The toolkit's caret inverts what is beneath it.
                const bool isCaret = pixel.green() == 255 && pixel.blue() == 255 && pixel.red() < 250;
                if ((pixel.green() || pixel.blue()) && !isCaret && wrong.size() < 5)
                    wrong.append(u"%1,%2 %3"_s.arg(x).arg(y).arg(pixel.name()));
            }
        }
        EXPECT_TRUE(anyRed);
        EXPECT_TRUE(wrong.isEmpty()) << page.name.toStdString() << ": " << wrong.join(u"; "_s).toStdString();
    }
}

// Every pair of colours that a built-in theme puts on each other. Disabled text is exempt, and so are the colours of
// audio types and of message strips, which are those of the base theme.
TEST_F(ThemeControls, textOfBuiltInThemesIsReadable)
{
    for (const KXThemeColours &c : { KXDarkTheme().colours(), KXLightTheme().colours() }) {
        for (const QColor &back : { c.window, c.panel, c.row, c.alternateRow, c.field, c.control }) {
            EXPECT_GE(contrast(c.text, back), 4.5) << back.name().toStdString();
            EXPECT_GE(contrast(c.secondaryText, back), 4.5) << back.name().toStdString();
        }
        const std::pair<QColor, QColor> pairs[] { { c.text, c.controlPressed }, { c.selectedText, c.selection },
            { c.selectedText, c.inactiveSelection }, { c.accentText, c.accent }, { c.messageText, c.error },
            { c.messageText, c.info }, { c.accent, c.panel }, { c.accent, c.window } };
        for (const auto &[text, back] : pairs)
            EXPECT_GE(contrast(text, back), 4.5) << text.name().toStdString() << " on " << back.name().toStdString();
    }
    // The same styles with the same keys, so that nothing sticks when one takes the other's place.
    const KXDarkTheme dark;
    const KXLightTheme light;
    for (const QLatin1StringView name : { KXSourceListRowStyles, KXSourceListGroupRowStyles, KXSourceListBadgeStyles,
             KXSourceListSelectedBadgeStyles, KXFilterBadgeStyles, KXFilterSelectedBadgeStyles,
             KXFilterBarFilterLabelStyles, KXFilterBarFilterButtonStyles, KXPlaceholderStyles,
             KXFilterPresetsBarButtonStyles, KXFilterPresetsBarFolderButtonStyles, KXFilterPresetsManagerOnButtonStyles,
             KXFilterPresetsManagerOffButtonStyles, KXPropertyLabelStyles, KXPropertyEditButtonStyles,
             KXPropertyEditButtonActiveStyles, KXNavigationBarButtonStyles, KXNavigationBarButtonActiveStyles,
             KXButtonStyles, KXTableStyles }) {
        const QVariantMap style = dark.valueForKey(name).toMap();
        EXPECT_FALSE(style.isEmpty()) << name.data();
        EXPECT_EQ(style.keys(), light.valueForKey(name).toMap().keys()) << name.data();
    }
    for (const QLatin1StringView image :
        { KXFilterPresetsBarOverflowButtonImage, KXFilterPresetFolderIcon, KXFilterPresetIcon })
        EXPECT_FALSE(dark.valueForKeyPath(image).value<QIcon>().isNull()) << image.data();
}

TEST_F(ThemeControls, everyControlHasNameRoleValueAndKeyboard)
{
    manager.setTheme(std::make_shared<KXDarkTheme>());
    for (const gallery::Page &page : gallery::pages()) {
        const std::unique_ptr<QWidget> widget(page.make(gallery::english));
        widget->show();
        QApplication::setActiveWindow(widget.get());
        QSet<QWidget *> wanted;
        for (QWidget *child : widget->findChildren<QWidget *>()) {
            if (!child->isVisible() || !child->isEnabled() || !(child->focusPolicy() & Qt::TabFocus))
                continue;
            if (qobject_cast<QAbstractSpinBox *>(child->parentWidget()))
                continue; // its field: the box around it has name and focus
            wanted.insert(child);
            if (qobject_cast<QAbstractScrollArea *>(child) && child->accessibleName().isEmpty())
                continue; // a plain scroll area: what lies in it has the name
            const auto *const seen = QAccessible::queryAccessibleInterface(child);
            const std::string who = page.name.toStdString() + ": " + child->metaObject()->className();
            ASSERT_TRUE(seen) << who;
            EXPECT_FALSE(seen->text(QAccessible::Name).isEmpty()) << who;
            EXPECT_NE(seen->role(), QAccessible::NoRole) << who;
            EXPECT_TRUE(seen->role() != QAccessible::Client || qobject_cast<QSplitterHandle *>(child)) << who;
            const auto *const line = qobject_cast<QLineEdit *>(child);
            if ((line && !line->text().isEmpty()) || qobject_cast<KXStarRating *>(child)
                || qobject_cast<KXThemeableSegmentedControl *>(child)) {
                EXPECT_FALSE(seen->text(QAccessible::Value).isEmpty()) << who;
            }
        }
        // Tab visits each of them and comes round again.
        QSet<QWidget *> visited;
        for (qsizetype i = 0; i < 2 * wanted.size() + 2; ++i) {
            QTest::keyClick(QApplication::focusWidget() ? QApplication::focusWidget() : widget.get(), Qt::Key_Tab);
            visited.insert(QApplication::focusWidget());
        }
        for (const QWidget *child : wanted - visited)
            ADD_FAILURE() << page.name.toStdString() << ": Tab does not reach " << child->metaObject()->className();
    }
}

TEST_F(ThemeControls, stylesSetDeclaredPropertiesAndNothingElse)
{
    KXThemeableButton button;
    KXThemeablePopUpButton popUp;
    KXTestLog log;
    const auto paths = [](const QVariantMap &style) { return style; };
    setStyle(u"styles"_s,
        paths({ { u"textColor"_s, QColor(1, 2, 3) }, { u"backgroundGradient"_s, QColor(4, 5, 6) },
            { u"noSuchKey"_s, 1 }, { u"cell.borderColor"_s, QColor(7, 8, 9) }, { u"no.such.path"_s, 1 },
            { u"toolTip"_s, u"a tip"_s }, { u"themeStyleName"_s, u"styles"_s } }));
    button.setThemeStyleName(u"styles"_s);
    EXPECT_EQ(button.cell()->property("textColor"), QColor(1, 2, 3));
    EXPECT_EQ(button.cell()->property("backgroundGradient").value<QBrush>(), QBrush(QColor(4, 5, 6)));
    EXPECT_EQ(button.cell()->property("borderColor"), QColor(7, 8, 9));
    EXPECT_EQ(button.toolTip(), u"a tip"_s);
    EXPECT_TRUE(button.dynamicPropertyNames().isEmpty() && button.cell()->dynamicPropertyNames().isEmpty());
    EXPECT_TRUE(log.lines().isEmpty()) << log.lines().join(u'\n').toStdString();

    setStyle(u"styles"_s,
        { { u"textColor"_s, u"no colour"_s }, { u"backgroundGradient"_s, 5 }, { u"icon"_s, u":/no/such/image.svg"_s },
            { u"titleFont"_s, QColor(1, 2, 3) } });
    popUp.setThemeStyleName(u"styles"_s);
    EXPECT_EQ(button.cell()->property("textColor"), QColor(1, 2, 3)); // what was there stays
    for (const QString &key : { u"textColor"_s, u"backgroundGradient"_s, u"icon"_s, u"titleFont"_s })
        EXPECT_TRUE(log.contains(u"Style styles: not a value for "_s + key)) << key.toStdString();
    EXPECT_TRUE(KXStandardTheme::icon(u":/no/such/image.svg"_s, Qt::red).isNull());
    EXPECT_TRUE(log.contains(u"Cannot read the image :/no/such/image.svg"_s));
}

TEST_F(ThemeControls, aFieldThatIsEditedTakesAnotherThemeAtOnce)
{
    setStyle(u"styles"_s, { { u"editingTextColor"_s, QColor(Qt::red) } });
    KXThemeableTextField field;
    field.setThemeStyleName(u"styles"_s);
    field.show();
    field.activateWindow();
    field.setFocus();
    ASSERT_TRUE(QTest::qWaitFor([&] { return field.hasFocus(); }));
    EXPECT_EQ(field.palette().color(QPalette::Text), QColor(Qt::red));
    setStyle(u"styles"_s, { { u"editingTextColor"_s, QColor(Qt::blue) } });
    EXPECT_EQ(field.palette().color(QPalette::Text), QColor(Qt::blue));
}

TEST_F(ThemeControls, outliveWhatAThemeSetsOff)
{
    // A style's value makes somebody destroy the control, in the midst of being applied.
    QPointer<KXThemeableButton> button = new KXThemeableButton;
    KXThemeableButton neighbour;
    QObject::connect(button, &QWidget::windowTitleChanged, button, [&] { delete button; });
    button->setThemeStyleName(u"styles"_s);
    neighbour.setThemeStyleName(u"styles"_s);
    setStyle(u"styles"_s, { { u"windowTitle"_s, u"gone"_s }, { u"zz"_s, 1 } });
    EXPECT_FALSE(button);
    EXPECT_EQ(neighbour.windowTitle(), u"gone"_s);

    // And one that makes new ones as it goes.
    std::vector<std::unique_ptr<KXStarRating>> made;
    const auto token = KXNotificationCenter::defaultCenter().addObserver(KXThemeDidChangeNotification, &manager,
        [&](const KXNotification &) { made.push_back(std::make_unique<KXStarRating>()); });
    manager.setTheme(std::make_shared<KXDarkTheme>());
    manager.setTheme(nullptr);
    EXPECT_EQ(made.size(), 2U);
}

TEST_F(ThemeControls, aFocusedButtonTakesTheSpaceBarFromItsWindow)
{
    QWidget window;
    KXThemeableButton button(u"Undo"_s, &window);
    QShortcut play(Qt::Key_Space, &window);
    QSignalSpy clicked(&button, &QPushButton::clicked), played(&play, &QShortcut::activated);
    window.show();
    window.activateWindow();
    ASSERT_TRUE(QTest::qWaitForWindowActive(&window));
    window.setFocusPolicy(Qt::StrongFocus);
    for (QWidget *widget : { static_cast<QWidget *>(&button), &window }) {
        widget->setFocus();
        QTest::keyClick(window.windowHandle(), Qt::Key_Space);
    }
    EXPECT_EQ(clicked.size(), 1);
    EXPECT_EQ(played.size(), 1);
}

TEST_F(ThemeControls, segmentsFollowKeysAndMouse)
{
    using Control = KXThemeableSegmentedControl;
    for (const bool mirrored : { false, true }) {
        Control control;
        control.setLayoutDirection(mirrored ? Qt::RightToLeft : Qt::LeftToRight);
        control.setLabels({ u"One"_s, u"Two"_s, u"Three"_s });
        control.setSegmentEnabled(1, false);
        control.setSelectedSegment(0);
        control.resize(control.sizeHint());
        control.show();
        QSignalSpy clicked(&control, &Control::clicked);
        const Qt::Key forward = mirrored ? Qt::Key_Left : Qt::Key_Right;
        QTest::keyClick(&control, forward);
        EXPECT_EQ(control.selectedSegment(), 2); // over the disabled one
        QTest::keyClick(&control, forward);
        EXPECT_EQ(control.selectedSegment(), 2);
        QTest::keyClick(&control, Qt::Key_Home);
        EXPECT_EQ(control.selectedSegment(), 0);
        QTest::mouseClick(&control, Qt::LeftButton, {}, control.segmentRect(1).center());
        EXPECT_EQ(control.selectedSegment(), 0);
        QTest::mouseClick(&control, Qt::LeftButton, {}, control.segmentRect(2).center());
        EXPECT_EQ(control.selectedSegment(), 2);
        EXPECT_EQ(clicked.size(), 3);
        EXPECT_EQ(control.segmentRect(0).united(control.segmentRect(2)), control.rect());

        auto *const seen = QAccessible::queryAccessibleInterface(&control);
        ASSERT_EQ(seen->childCount(), 3);
        EXPECT_EQ(seen->text(QAccessible::Value), u"Three"_s);
        EXPECT_EQ(seen->child(0)->role(), QAccessible::RadioButton);
        EXPECT_TRUE(seen->child(1)->state().disabled && seen->child(2)->state().checked);
        seen->child(0)->actionInterface()->doAction(QAccessibleActionInterface::pressAction());
        EXPECT_EQ(control.selectedSegment(), 0);
        auto *const last = seen->child(2);
        control.setLabels({ u"Alone"_s });
        EXPECT_FALSE(last->isValid());
        EXPECT_TRUE(last->text(QAccessible::Name).isEmpty());
    }
}

TEST_F(ThemeControls, starsAreSetEveryWay)
{
    KXStarRating stars;
    stars.resize(stars.sizeHint());
    const auto click = [&](int star) { QTest::mouseClick(&stars, Qt::LeftButton, {}, QPoint(4 + 17 * star - 10, 10)); };
    const std::pair<std::function<void()>, int> steps[] { { [&] { click(3); }, 3 }, { [&] { click(3); }, 0 },
        { [&] { click(5); }, 5 }, { [&] { QTest::keyClick(&stars, Qt::Key_Right); }, 5 },
        { [&] { QTest::keyClick(&stars, Qt::Key_Left); }, 4 }, { [&] { QTest::keyClick(&stars, Qt::Key_2); }, 2 },
        { [&] { QTest::keyClick(&stars, Qt::Key_6); }, 2 }, { [&] { stars.setRating(-3); }, 0 },
        { [&] { QAccessible::queryAccessibleInterface(&stars)->valueInterface()->setCurrentValue(4); }, 4 } };
    for (size_t i = 0; i < std::size(steps); ++i) {
        steps[i].first();
        EXPECT_EQ(stars.rating(), steps[i].second) << i;
    }
    EXPECT_EQ(KXStarRating::starsAt({ 95, 5 }, { 0, 0, 100, 20 }, Qt::RightToLeft), 1);
}

static QAccessibleInterface *described(QObject *object) { return QAccessible::queryAccessibleInterface(object); }

TEST_F(ThemeControls, assistiveTechnologyFindsEditors)
{
    QStandardItemModel model(3, 2);
    model.setHorizontalHeaderLabels({ u"Title"_s, u"Comment"_s });
    KXTableView table;
    table.setModel(&model);
    KXThemeableOutlineView outline;
    outline.setModel(&model);
    for (QAbstractItemView *view : QList<QAbstractItemView *> { &table, &outline }) {
        view->show();
        auto *const rows = described(view);
        ASSERT_TRUE(rows && rows->tableInterface());
        const int cells = rows->childCount();
        const QModelIndex cell = model.index(1, 0);
        EXPECT_EQ(rows->indexOfChild(rows->tableInterface()->cellAt(1, 0)) >= 0, true);
        view->edit(cell);
        QWidget *const editor = view->indexWidget(cell);
        ASSERT_TRUE(editor);
        // Down from the view to the editor and up again.
        ASSERT_EQ(rows->childCount(), cells + 1);
        auto *const place = rows->child(cells);
        ASSERT_TRUE(place && place->childCount() == 1);
        EXPECT_EQ(place->child(0)->object(), editor);
        EXPECT_EQ(place->child(0)->role(), QAccessible::EditableText);
        EXPECT_EQ(place->child(0)->parent(), place);
        EXPECT_EQ(place->parent(), rows);
        EXPECT_EQ(rows->indexOfChild(place), cells);
        if (view == &table) {
            EXPECT_EQ(place->child(0)->text(QAccessible::Name), u"Title"_s);
        }
        model.removeRow(1); // with the editor
        EXPECT_TRUE(QTest::qWaitFor([&] { return rows->childCount() <= cells; }));
        model.insertRow(1);
    }
}

TEST_F(ThemeControls, assistiveTechnologyMovesDividers)
{
    KXThemeableSplitView split;
    for (int i = 0; i < 3; ++i)
        split.addWidget(new QWidget);
    split.resize(305, 50);
    split.show();
    auto *const divider = described(split.handle(2));
    EXPECT_EQ(divider->role(), QAccessible::Splitter);
    const int at = divider->valueInterface()->currentValue().toInt();
    divider->valueInterface()->setCurrentValue(at + 20);
    EXPECT_EQ(divider->valueInterface()->currentValue().toInt(), at + 20);
    divider->valueInterface()->setCurrentValue(100'000);
    EXPECT_EQ(divider->valueInterface()->currentValue().toInt(), at + 20);
}

TEST_F(ThemeControls, assistiveTechnologyIsToldOfLabelsDialogsAndWhatABarHides)
{
    KXThemeableTextField title(u"LIBRARY"_s);
    title.setLabel(true);
    EXPECT_EQ(described(&title)->role(), QAccessible::StaticText);
    EXPECT_EQ(described(&title)->text(QAccessible::Name), u"LIBRARY"_s);
    KXPopoverFrame frame(nullptr, Qt::Tool | Qt::FramelessWindowHint);
    KXPreferences preferences;
    for (QWidget *dialog : QList<QWidget *> { &frame, preferences.window() })
        EXPECT_EQ(described(dialog)->role(), QAccessible::Dialog);

    QToolBar bar;
    for (int i = 0; i < 20; ++i)
        bar.addAction(u"Action"_s);
    bar.resize(100, 30);
    bar.show();
    auto *const more = bar.findChild<QToolButton *>(u"qt_toolbar_ext_button"_s);
    ASSERT_TRUE(more);
    EXPECT_FALSE(described(more)->text(QAccessible::Name).isEmpty());
}

TEST_F(ThemeControls, buttonsOfAMatrixGrowWithTheirTitles)
{
    KXButtonMatrixView matrix;
    const auto widthOf = [&](const QString &title) {
        matrix.setItems({ { title, 0 }, { u"Key"_s, 1 } }, 2);
        matrix.setButtonSize({ 100, 20 });
        EXPECT_EQ(matrix.buttons()[0]->width(), matrix.buttons()[1]->width());
        return matrix.buttons()[0]->width();
    };
    EXPECT_EQ(widthOf(u"Tempo"_s), 100);
    const int width = widthOf(u"Passende Tonarten"_s);
    EXPECT_GT(width, matrix.fontMetrics().horizontalAdvance(u"Passende Tonarten"_s));
    EXPECT_EQ(widthOf(QString(200, u'W')), 150);
}

TEST_F(ThemeControls, badgesDividersPopoversAndTypes)
{
    for (const auto &[count, text] : std::initializer_list<std::pair<qint64, QString>> {
             { -1, {} }, { 0, {} }, { 1, u"1"_s }, { 999, u"999"_s }, { 1000, u"999+"_s } }) {
        EXPECT_EQ(KXBadgeCell::textForCount(count), text);
        EXPECT_EQ(KXBadgeCell::image(count, Qt::green, Qt::white, 2).height(), text.isEmpty() ? 0 : 28);
    }
    KXClock::setLocale(QLocale(u"de"_s));
    KXBadgeCell::setTextFormat(&KXBadgeCell::shortText);
    for (const auto &[count, text] : std::initializer_list<std::pair<qint64, QString>> { { 0, {} }, { 999, u"999"_s },
             { 1000, u"1,0k"_s }, { 1299, u"1,2k"_s }, { 9999, u"9,9k"_s }, { 10'000, u"10k"_s },
             { 999'999, u"999k"_s }, { 1'000'000, u"1,0M"_s }, { 36'000'000, u"36M"_s } })
        EXPECT_EQ(KXBadgeCell::textForCount(count), text) << count;
    KXBadgeCell::setTextFormat({});
    KXClock::setLocale(std::nullopt);
    EXPECT_EQ(KXBadgeCell::textForCount(1299), u"999+"_s);

    KXThemeableSplitView split;
    split.addWidget(new QWidget);
    split.addWidget(new QWidget);
    split.resize(205, 50);
    split.show();
    const QList<int> before = split.sizes();
    QTest::keyClick(split.handle(1), Qt::Key_Right);
    EXPECT_EQ(split.sizes()[0], before[0] + 10);

    KXPopoverFrame frame;
    frame.resize(200, 100);
    for (const auto &[edge, at, tip] : std::initializer_list<std::tuple<Qt::Edge, int, QPoint>> {
             { Qt::TopEdge, 60, { 60, 0 } }, { Qt::TopEdge, -50, { 18, 0 } }, { Qt::BottomEdge, 900, { 182, 100 } },
             { Qt::LeftEdge, 40, { 0, 40 } }, { Qt::RightEdge, 40, { 200, 40 } } }) {
        frame.setArrow(edge, at);
        EXPECT_EQ(frame.tip(), tip);
    }

    KXAudioTypeButton button;
    button.setAudioTypeValue(4);
    EXPECT_FALSE(button.cell().typeColour().isValid()); // no theme
    manager.setTheme(std::make_shared<KXTheme>());
    EXPECT_EQ(button.cell().typeColour(), manager.theme()->audioTypeButtonLoopColour());
    button.resize(button.sizeHint());
    const auto hasColour = [&] { // at the plate's left end, where no letter is
        const QRgb at = button.grab().toImage().pixel(4, button.height() / 2);
        return at == button.cell().typeColour().rgb();
    };
    EXPECT_TRUE(hasColour());
    button.setEnabled(false); // what it shows is no less true
    EXPECT_TRUE(hasColour());
    button.setEnabled(true);
    button.setAudioTypeValue(7);
    EXPECT_FALSE(button.cell().typeColour().isValid());
    QWidget *const shown = &button;
    grab(shown); // a badge all the same
}

// What is themed nowhere is dressed as well, in the one theme and in the other.
TEST_F(ThemeControls, oneCallDressesTheWholeApplication)
{
    const QPalette before = QApplication::palette();
    QApplication::setStyle(QStyleFactory::create(u"Windows"_s));
    const auto brightness = [](QWidget &widget) {
        widget.resize(120, 60);
        return qGray(widget.grab().toImage().scaled(1, 1, Qt::IgnoreAspectRatio, Qt::SmoothTransformation).pixel(0, 0));
    };
    for (const bool isDark : { true, false, true }) {
        const auto theme = isDark ? std::static_pointer_cast<KXTheme>(std::make_shared<KXDarkTheme>())
                                  : std::make_shared<KXLightTheme>();
        KXTheme::apply(*qApp, theme);
        EXPECT_EQ(manager.theme(), theme);
        QMenu menu; // widgets that are there already are told by the main loop, which does not run here
        menu.addAction(u"Open"_s);
        QScrollBar scrollBar(Qt::Vertical);
        QStandardItemModel columns(0, 2);
        QHeaderView header(Qt::Horizontal);
        header.setModel(&columns);
        QLineEdit field;
        for (QWidget *widget : std::initializer_list<QWidget *> { &menu, &scrollBar, &header, &field })
            EXPECT_EQ(brightness(*widget) < 128, isDark) << widget->metaObject()->className();
        EXPECT_EQ(qGray(QToolTip::palette().color(QPalette::ToolTipBase).rgb()) < 128, isDark);
    }
    KXTheme::apply(*qApp, nullptr);
    EXPECT_FALSE(manager.theme());
    QApplication::setPalette(before);
    QToolTip::setPalette(before);
}
