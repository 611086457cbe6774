// Signs (icons, stars, knobs, arrows, outlines of fields, lines between segments) are seen on whatever lies behind
// them.

#include <QAbstractButton>
#include <QAbstractScrollArea>
#include <QApplication>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QImage>
#include <QLineEdit>
#include <QScrollBar>
#include <QStyleFactory>
#include <gtest/gtest.h>

#include <gallery/Pages.h>
#include <kestrixkit/source_list/KXSourceListView.h>
#include <kestrixkit/theme/KXDarkTheme.h>
#include <kestrixkit/theme/KXLightTheme.h>
#include <kestrixkit/theme/KXThemeManager.h>
#include <kestrixkit/theme/controls/KXStarRating.h>
#include <kestrixkit/theme/controls/KXThemeablePopUpButton.h>
#include <kestrixkit/theme/controls/KXThemeableSegmentedControl.h>
#include <kestrixkit/theme/controls/KXThemeableTextField.h>

#include "Contrast.h"

using namespace Qt::StringLiterals;

namespace {

constexpr double seen = 3;

/// What is to be seen somewhere: its commonest colour is behind the sign, and the sign is what stands out most.
struct Sign
{
    QString name;
    const QWidget *widget;
    QRect place; ///< in the widget
};

/// Arrows and images of rows, selected ones among them.
QList<Sign> signsOfRows(const KXThemeableOutlineView *view)
{
    constexpr int side = 16, space = 2;
    QList<Sign> signs;
    if (!view->model() || !view->selectionModel())
        return signs;
    const auto *const list = qobject_cast<const KXSourceListView *>(view);
    for (QModelIndex row = view->model()->index(0, 0, view->rootIndex()); row.isValid(); row = view->indexBelow(row)) {
        const QRect place = view->visualRect(row);
        if (!view->viewport()->rect().contains(place) || !(row.flags() & Qt::ItemIsEnabled))
            continue;
        const QString kind = view->selectionModel()->isSelected(row) ? u" of a selected row"_s : u" of a row"_s;
        const int arrow = view->indentation();
        if (view->model()->hasChildren(row) && arrow > 0 && place.left() >= arrow)
            signs.append({ u"arrow"_s + kind, view->viewport(),
                { place.left() - arrow, place.top() + 4, arrow, place.height() - 8 } });
        if (list && list->cellForRow(row).isEnabled && !list->cellForRow(row).image.isNull()
            && !list->cellForRow(row).isChecked)
            signs.append({ u"image"_s + kind, view->viewport(),
                { place.left() + space, place.center().y() + 1 - side / 2, side, side } });
    }
    return signs;
}

QList<Sign> signsOf(const QWidget *each)
{
    const QRect all = each->rect();
    if (const auto *const button = qobject_cast<const QAbstractButton *>(each)) {
        if (button->text().isEmpty() && !button->icon().isNull())
            return { { u"icon"_s, each, all.adjusted(3, 3, -3, -3) } }; // without its border
    } else if (qobject_cast<const KXStarRating *>(each)) {
        constexpr int star = 17;
        return { { u"first star"_s, each, { 4, 0, star, all.height() } },
            { u"last star"_s, each, { 4 + 4 * star, 0, star, all.height() } } };
    } else if (const auto *const control = qobject_cast<const KXThemeableSegmentedControl *>(each)) {
        QList<Sign> lines;
        for (int i = 1; i < control->segments().size(); ++i) {
            const int left = control->segmentRect(i).left();
            // Beside a selected one the colour tells where it begins.
            if (!control->segments()[i].selected && !control->segments()[i - 1].selected)
                lines.append({ u"line between segments"_s, each, { left - 3, all.center().y() - 2, 6, 4 } });
        }
        return lines;
    } else if (const auto *const field = qobject_cast<const KXThemeableTextField *>(each)) {
        if (!field->isLabel() && !field->hasFocus())
            return { { u"outline"_s, each, { 0, all.center().y() - 1, 4, 2 } } };
    } else if (qobject_cast<const KXThemeablePopUpButton *>(each)) {
        return { { u"arrow"_s, each, all.adjusted(all.width() - 18, 3, -3, -3) } };
    } else if (const auto *const bar = qobject_cast<const QScrollBar *>(each)) {
        if (bar->maximum() > bar->minimum())
            return { { u"knob"_s, each, all } };
    } else if (const auto *const rows = qobject_cast<const KXThemeableOutlineView *>(each)) {
        return signsOfRows(rows);
    }
    return {};
}

} // namespace

class Signs : public ::testing::Test
{
protected:
    Signs() { QApplication::setStyle(QStyleFactory::create(u"Fusion"_s)); }
    ~Signs() override { manager.setTheme(nullptr); }
    KXThemeManager &manager = KXThemeManager::sharedManager();
};

TEST_F(Signs, standOutFromWhatIsBehindThem)
{
    for (const std::shared_ptr<KXTheme> &theme : { std::shared_ptr<KXTheme>(std::make_shared<KXDarkTheme>()),
             std::shared_ptr<KXTheme>(std::make_shared<KXLightTheme>()) }) {
        manager.setTheme(theme);
        QHash<QString, int> measured;
        for (const gallery::Page &page : gallery::pages()) {
            const std::unique_ptr<QWidget> widget(page.make(gallery::english));
            widget->setPalette(manager.valueForKeyPath(u"palette"_s).value<QPalette>());
            widget->setAttribute(Qt::WA_DontShowOnScreen);
            widget->resize(widget->sizeHint());
            widget->show();
            QImage picture(widget->size(), QImage::Format_RGB32);
            picture.fill(Qt::black);
            widget->render(&picture);
            for (const QWidget *each : widget->findChildren<QWidget *>()) {
                const bool isCovered = !qobject_cast<const QAbstractScrollArea *>(each)
                    && each->visibleRegion().boundingRect() != each->rect();
                const bool isToolkits = qobject_cast<const QLineEdit *>(each->parentWidget()); // which fades it in
                if (!each->isEnabled() || !each->isVisible() || isCovered || isToolkits)
                    continue;
                for (const Sign &sign : signsOf(each)) {
                    const QRect place
                        = sign.place.translated(sign.widget->mapTo(widget.get(), QPoint())) & picture.rect();
                    if (place.size() != sign.place.size())
                        continue; // scrolled out of the page
                    EXPECT_GE(strongestContrast(picture, place), seen)
                        << page.name.toStdString() << ": " << sign.name.toStdString() << " of "
                        << each->accessibleName().toStdString() << " (" << each->metaObject()->className() << ")";
                    ++measured[sign.name];
                }
            }
        }
        for (const QString &name :
            { u"icon"_s, u"first star"_s, u"last star"_s, u"line between segments"_s, u"outline"_s, u"arrow"_s,
                u"knob"_s, u"arrow of a row"_s, u"image of a row"_s, u"image of a selected row"_s })
            EXPECT_GT(measured[name], 0) << name.toStdString();
    }
}

// One hand: drawn on the same grid, with lines alone, in one colour that the theme replaces.
TEST_F(Signs, areOneSetOfIcons)
{
    int icons = 0;
    for (const QFileInfo &info : QDir(u":/kestrixkit/icons"_s).entryInfoList()) {
        QFile file(info.filePath());
        ASSERT_TRUE(file.open(QIODevice::ReadOnly));
        const QString text = QString::fromUtf8(file.readAll());
        EXPECT_TRUE(text.contains(u"viewBox=\"0 0 16 16\""_s)) << info.fileName().toStdString();
        for (const QString &part : text.split(u'"')) {
            EXPECT_TRUE(!part.startsWith(u'#') || part == u"#000"_s) << info.fileName().toStdString();
        }
        ++icons;
    }
    EXPECT_GT(icons, 20);
}
