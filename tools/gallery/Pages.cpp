#include "Pages.h"

#include <QApplication>
#include <QBoxLayout>
#include <QGridLayout>
#include <QHoverEvent>
#include <QImage>
#include <QPainter>
#include <QStandardItemModel>

#include <kestrixkit/audio/views/KXAudioTypeButton.h>
#include <kestrixkit/theme/KXStandardTheme.h>
#include <kestrixkit/theme/KXThemeManager.h>
#include <kestrixkit/theme/KXThemeStyleNames.h>
#include <kestrixkit/theme/controls/KXBadge.h>
#include <kestrixkit/theme/controls/KXHyperlinkButton.h>
#include <kestrixkit/theme/controls/KXPopoverFrame.h>
#include <kestrixkit/theme/controls/KXSelectionBar.h>
#include <kestrixkit/theme/controls/KXStarRating.h>
#include <kestrixkit/theme/controls/KXThemeableButton.h>
#include <kestrixkit/theme/controls/KXThemeableOutlineView.h>
#include <kestrixkit/theme/controls/KXThemeablePopUpButton.h>
#include <kestrixkit/theme/controls/KXThemeableProgressIndicator.h>
#include <kestrixkit/theme/controls/KXThemeableScrollView.h>
#include <kestrixkit/theme/controls/KXThemeableSegmentedControl.h>
#include <kestrixkit/theme/controls/KXThemeableSpinningProgressIndicator.h>
#include <kestrixkit/theme/controls/KXThemeableSplitView.h>
#include <kestrixkit/theme/controls/KXThemeableTableHeaderCell.h>
#include <kestrixkit/theme/controls/KXThemeableTableView.h>
#include <kestrixkit/theme/controls/KXThemeableTextField.h>
#include <kestrixkit/theme/controls/KXThemeableView.h>

#include "SourceListPage.h"

using namespace Qt::StringLiterals;

namespace gallery {

namespace {

/// Rows of a name and widgets. Its background is the theme's window.
class Board : public KXThemeableView
{
public:
    Board()
    {
        m_grid = new QGridLayout(this);
        m_grid->setContentsMargins(16, 16, 16, 16);
        m_grid->setSpacing(10);
        m_grid->setColumnStretch(12, 1);
    }
    void row(const QString &name, const QList<QWidget *> &widgets)
    {
        auto *label = new KXThemeableTextField(name);
        label->setLabel(true);
        label->setThemeStyleName(KXSecondaryLabelStyles);
        const int row = m_grid->rowCount();
        m_grid->addWidget(label, row, 0, Qt::AlignLeading | Qt::AlignVCenter);
        for (int i = 0; i < widgets.size(); ++i)
            m_grid->addWidget(widgets[i], row, i + 1, Qt::AlignLeading | Qt::AlignVCenter);
    }
    void wide(QWidget *widget) { m_grid->addWidget(widget, m_grid->rowCount(), 0, 1, 13); }

private:
    QGridLayout *m_grid;
};

enum State { Normal, Hovered, Pressed, Selected, Disabled, Focused, States };

template <typename Widget> Widget *inState(Widget *widget, int state)
{
    if constexpr (requires { widget->setDown(true); }) {
        if (state == Pressed)
            widget->setDown(true);
        if (state == Selected) {
            widget->setCheckable(true);
            widget->setChecked(true);
        }
    }
    widget->setAttribute(Qt::WA_UnderMouse, state == Hovered);
    widget->setEnabled(state != Disabled);
    widget->setProperty(focusProperty, state == Focused);
    return widget;
}

QIcon folderIcon() { return QIcon(u":/kestrixkit/icons/filter_set_folder.svg"_s); }

QWidget *buttonsPage(const Texts &text)
{
    auto *board = new Board;
    const auto row = [&](const char *name, QLatin1StringView style, const char *title, bool image) {
        QList<QWidget *> widgets;
        for (int state = 0; state < States; ++state) {
            auto *button = inState(new KXThemeableButton, state);
            button->setText(title ? text(title) : QString());
            if (!title)
                button->setAccessibleName(text("Folder"));
            if (image)
                button->setIcon(folderIcon());
            button->setThemeStyleName(style);
            widgets.append(button);
        }
        board->row(text(name), widgets);
    };
    row("Button", KXButtonStyles, "&Save", false);
    row("Button with image", KXButtonStyles, "Folder", true);
    row("Default button", KXDefaultButtonStyles, "Import", false);
    row("Toolbar", KXToolbarButtonStyles, "Library", true);
    row("Image alone", KXToolbarButtonStyles, nullptr, true);
    row("Presets bar", KXFilterPresetsBarButtonStyles, "House", false);
    row("Navigation bar", KXNavigationBarButtonActiveStyles, "Details", false);
    QList<QWidget *> links;
    for (int state = 0; state < States; ++state)
        links.append(inState(new KXHyperlinkButton(text("Show all")), state));
    board->row(text("Link"), links);
    QList<QWidget *> popUps;
    for (int state = 0; state < States; ++state) {
        auto *popUp = inState(new KXThemeablePopUpButton, state);
        popUp->addItem(folderIcon(), text("Deep house"));
        popUp->setAccessibleName(text("Genre"));
        popUp->setThemeStyleName(KXPopUpButtonStyles);
        popUps.append(popUp);
    }
    board->row(text("Pop-up button"), popUps);
    return board;
}

QWidget *valuesPage(const Texts &text)
{
    auto *board = new Board;
    QList<QWidget *> segmented;
    for (const int state : { Normal, Hovered, Pressed, Disabled, Focused }) {
        auto *control = inState(new KXThemeableSegmentedControl, state);
        control->setLabels({ text("All"), text("Stems"), text("Loops") });
        control->setSelectedSegment(state == Disabled || state == Focused ? 1 : 0);
        control->setSegmentEnabled(2, state != Focused);
        control->setProperty(pointerProperty, state == Hovered ? 1 : state == Pressed ? 2 : 0);
        control->setAccessibleName(text("Kind"));
        control->setThemeStyleName(KXSegmentedControlStyles);
        segmented.append(control);
    }
    board->row(text("Segments"), segmented);
    QList<QWidget *> fields;
    for (const int state : { Normal, Hovered, Disabled, Focused, Pressed }) {
        auto *field = inState(new KXThemeableTextField(state == Pressed ? QString() : text("Night drive")), state);
        field->setPlaceholderText(text("Search"));
        field->setAccessibleName(text("Title"));
        field->setThemeStyleName(KXTextFieldStyles);
        fields.append(field);
    }
    board->row(text("Text field"), fields);
    QList<QWidget *> labels;
    for (const int state : { Normal, Disabled }) {
        auto *label = inState(new KXThemeableTextField(text("Added this week")), state);
        label->setLabel(true);
        label->setThemeStyleName(KXLabelStyles);
        labels.append(label);
    }
    board->row(text("Label"), labels);
    QList<QWidget *> stars;
    for (const int state : { Normal, Hovered, Disabled, Focused }) {
        auto *rating = inState(new KXStarRating, state);
        rating->setRating(state == Normal ? 0 : 3);
        rating->setAccessibleName(text("Rating"));
        rating->setThemeStyleName(KXStarRatingStyles);
        stars.append(rating);
    }
    board->row(text("Stars"), stars);
    QList<QWidget *> badges;
    for (const int count : { 1, 42, 999, 1000 }) {
        auto *badge = new KXBadge;
        badge->setCount(count);
        badge->setAccessibleName(text("Tracks"));
        badge->setThemeStyleName(count == 999 ? QString(KXFilterSelectedBadgeStyles) : QString(KXFilterBadgeStyles));
        badges.append(badge);
    }
    board->row(text("Badge"), badges);
    QList<QWidget *> bars;
    for (const int value : { 0, 2, 60, 100, -1 }) {
        auto *bar = new KXThemeableProgressIndicator;
        bar->setRange(0, value < 0 ? 0 : 100);
        bar->setValue(value);
        bar->setEnabled(value != 100);
        bar->setAccessibleName(text("Progress"));
        bar->setThemeStyleName(KXProgressIndicatorStyles);
        bars.append(bar);
    }
    board->row(text("Progress"), bars);
    auto *spinner = new KXThemeableSpinningProgressIndicator;
    spinner->setProperty("displayedWhenStopped", true);
    spinner->setAccessibleName(text("Loading"));
    spinner->setThemeStyleName(KXSpinningProgressIndicatorStyles);
    board->row(text("Spinner"), { spinner });
    return board;
}

QWidget *audioTypesPage(const Texts &text)
{
    auto *board = new Board;
    QList<QWidget *> types;
    for (int type = 0; type <= 7; ++type) {
        auto *button = new KXAudioTypeButton;
        button->setAudioTypeValue(type);
        button->setEnabled(type != 3);
        button->setProperty(focusProperty, type == 5);
        types.append(button);
    }
    board->row(text("Audio types"), types);
    return board;
}

QStandardItemModel *tracks(const Texts &text, QObject *parent)
{
    auto *model = new QStandardItemModel(parent);
    model->setHorizontalHeaderLabels({ text("Title"), text("Artist"), text("Tempo") });
    for (const char *title : { "Night drive", "Low tide", "Second sun", "Paper city", "Slow orbit" })
        model->appendRow(
            { new QStandardItem(text(title)), new QStandardItem(text("Example artist")), new QStandardItem(u"124"_s) });
    model->item(3)->setEnabled(false);
    return model;
}

QWidget *listsPage(const Texts &text)
{
    auto *board = new Board;
    auto *bar = new KXSelectionBar;
    auto *inBar = new QHBoxLayout(bar);
    auto *label = new KXThemeableTextField(text("2 tracks selected"));
    label->setLabel(true);
    label->setThemeStyleName(KXLabelStyles);
    inBar->addWidget(label);
    inBar->addStretch();
    inBar->addWidget(new KXHyperlinkButton(text("Clear")));
    board->wide(bar);

    auto *split = new KXThemeableSplitView;
    split->setThemeStyleName(KXSplitViewStyles);
    split->setFixedHeight(220);
    auto *outline = new KXThemeableOutlineView;
    outline->setAccessibleName(text("Sources"));
    outline->setThemeStyleName(KXOutlineStyles);
    outline->rowView()->setThemeStyleName(KXSourceListRowStyles);
    outline->groupRowView()->setThemeStyleName(KXSourceListGroupRowStyles);
    auto *sources = new QStandardItemModel(outline);
    auto *group = new QStandardItem(text("Presets"));
    group->setData(true, KXThemeableOutlineView::GroupRole);
    for (const char *name : { "House", "Techno", "Unrated" })
        group->appendRow(new QStandardItem(text(name)));
    sources->appendRow(group);
    sources->appendRow(new QStandardItem(text("Library")));
    outline->setModel(sources);
    outline->expandAll();
    outline->setCurrentIndex(sources->index(0, 0).model()->index(1, 0, sources->index(0, 0)));
    split->addWidget(outline);

    auto *table = new KXThemeableTableView;
    table->setAccessibleName(text("Tracks"));
    table->setThemeStyleName(KXTableStyles);
    auto *header = new KXThemeableTableHeaderView(Qt::Horizontal);
    header->setAccessibleName(text("Columns"));
    header->setThemeStyleName(KXTableHeaderStyles);
    table->setHorizontalHeader(header);
    table->setModel(tracks(text, table));
    table->setSortingEnabled(true);
    table->sortByColumn(0, Qt::AscendingOrder);
    table->setColumnWidth(0, 170);
    table->setColumnWidth(1, 170);
    table->selectRow(1);
    table->setProperty(focusProperty, true);
    split->addWidget(table);
    split->setSizes({ 180, 470 });
    board->wide(split);

    auto *scroll = new KXThemeableScrollView;
    scroll->setThemeStyleName(KXScrollViewStyles);
    scroll->setScrollerStyleName(KXScrollerStyles);
    scroll->setFixedHeight(90);
    auto *content = new KXThemeableView;
    content->setFixedSize(1200, 300);
    scroll->setWidget(content);
    board->wide(scroll);
    board->setFixedWidth(700);
    return board;
}

QWidget *popoversPage(const Texts &text)
{
    auto *board = new Board;
    for (const Qt::Edge edge : { Qt::TopEdge, Qt::BottomEdge, Qt::LeftEdge, Qt::RightEdge }) {
        auto *frame = new KXPopoverFrame;
        frame->setThemeStyleName(KXPopoverStyles);
        frame->setFixedSize(300, 76);
        frame->setArrow(edge, edge == Qt::TopEdge ? 0 : edge == Qt::BottomEdge ? 1000 : 38);
        auto *layout = new QHBoxLayout(frame);
        auto *label = new KXThemeableTextField(text("Name of the preset"));
        label->setLabel(true);
        label->setThemeStyleName(KXLabelStyles);
        auto *button = new KXThemeableButton(text("Save"));
        button->setThemeStyleName(KXDefaultButtonStyles);
        layout->addWidget(label);
        layout->addWidget(button);
        board->wide(frame);
    }
    return board;
}

}

const QList<Page> &pages()
{
    static const QList<Page> all {
        { u"buttons"_s, buttonsPage },
        { u"values"_s, valuesPage },
        { u"audio-types"_s, audioTypesPage },
        { u"waveform"_s, waveformPage },
        { u"lists"_s, listsPage },
        { u"popovers"_s, popoversPage },
        { u"messages"_s, messagesPage },
        { u"preferences"_s, preferencesPage },
        { u"toolkit"_s, toolkitPage },
        { u"table"_s, tablePage },
        { u"source-list"_s, sourceListPage },
        { u"presets"_s, presetsPage },
        { u"filters"_s, filtersPage },
        { u"filter-dates"_s, filterDatesPage },
        { u"filter-editors"_s, filterEditorsPage },
        { u"search"_s, searchPage },
        { u"navigation"_s, navigationPage },
    };
    return all;
}

QString english(const char *text) { return QString::fromUtf8(text); }

QString stretched(const char *text)
{
    QString longer;
    for (const QChar c : QString::fromUtf8(text)) {
        constexpr QStringView plain = u"aeiouAEIOUcn", accented = u"àéîöüÀÉÎÖÜçñ";
        const qsizetype at = plain.indexOf(c);
        longer.append(at < 0 ? c : accented[at]);
        if (at >= 0 && at < 5)
            longer.append(accented[at]);
    }
    return u'[' + longer + u']';
}

QImage picture(const Page &page, const Texts &text, Qt::LayoutDirection direction, qreal scale)
{
    const std::unique_ptr<QWidget> widget(page.make(text));
    widget->setLayoutDirection(direction);
    const auto &manager = KXThemeManager::sharedManager();
    if (const auto palette = manager.valueForKeyPath(u"palette"_s); palette.isValid())
        widget->setPalette(palette.value<QPalette>());
    widget->setAttribute(Qt::WA_DontShowOnScreen);
    widget->resize(widget->sizeHint()); // adjustSize() would stop at a part of the screen
    widget->show();
    QImage image(widget->size() * scale, QImage::Format_RGB32);
    image.setDevicePixelRatio(scale);
    image.fill(widget->palette().color(QPalette::Window));
    QApplication::setActiveWindow(widget.get());
    if (QWidget *focused = QApplication::focusWidget())
        focused->clearFocus();
    for (QWidget *child : widget->findChildren<QWidget *>()) {
        const int pointer = child->property(pointerProperty).toInt();
        const QPointF middle = QRectF(child->rect()).center();
        if (pointer == 0)
            continue;
        child->setAttribute(Qt::WA_UnderMouse);
        QHoverEvent hover(QEvent::HoverEnter, middle, middle, middle);
        QApplication::sendEvent(child, &hover);
        if (pointer == 2) {
            QMouseEvent press(QEvent::MouseButtonPress, middle, child->mapToGlobal(middle), Qt::LeftButton,
                Qt::LeftButton, Qt::NoModifier);
            QApplication::sendEvent(child, &press);
        }
    }
    const auto draw = [&](QWidget *what) {
        QPainter painter(&image);
        painter.translate(what->mapTo(widget.get(), QPoint()));
        what->render(&painter, QPoint(), QRegion(), QWidget::DrawWindowBackground | QWidget::DrawChildren);
    };
    draw(widget.get());
    for (QWidget *child : widget->findChildren<QWidget *>()) {
        if (!child->property(focusProperty).toBool())
            continue;
        child->setFocus();
        draw(child);
        child->clearFocus();
    }
    return image;
}

}
