// Navigation: breadcrumbs with and without room, layers at rest and peeking, the inspector's sections.

#include <QBoxLayout>
#include <QLabel>

#include <kestrixkit/navigation/KXInspectorOutlineView.h>
#include <kestrixkit/navigation/KXInspectorViewController.h>
#include <kestrixkit/navigation/KXLayeredNavigationController.h>
#include <kestrixkit/navigation/KXNavigationController.h>
#include <kestrixkit/theme/KXThemeStyleNames.h>
#include <kestrixkit/theme/controls/KXThemeableButton.h>
#include <kestrixkit/theme/controls/KXThemeableTextField.h>
#include <kestrixkit/theme/controls/KXThemeableView.h>

#include "Pages.h"

using namespace Qt::StringLiterals;

namespace gallery {

namespace {

class PlaceViewController : public KXViewController
{
    Q_OBJECT
public:
    PlaceViewController(const QString &title, QObject *parent)
        : KXViewController(parent)
    {
        setTitle(title);
    }

protected:
    void loadView() override
    {
        auto *const place = new KXThemeableView;
        auto *const rows = new QVBoxLayout(place);
        auto *const label = new KXThemeableTextField(title());
        label->setLabel(true);
        label->setThemeStyleName(KXLabelStyles);
        rows->addWidget(label);
        rows->addStretch();
        setView(place);
    }
};

QWidget *frame(KXViewController *controller, QSize size)
{
    auto *const around = new KXThemeableView;
    around->setThemeStyleName(KXToolbarStyles);
    around->setFixedSize(size);
    controller->appearIn(around);
    return around;
}

QWidget *crumbs(QWidget *page, const Texts &text, int width)
{
    auto *const navigation = new KXNavigationController(nullptr, page);
    for (const char *title : { "All Tracks", "Leftfield", "Rhythm & Stealth", "Sounds Like Afrika Shox" })
        navigation->pushViewController(new PlaceViewController(text(title), navigation), false);
    navigation->navigationBar()->allButtons().constFirst()->setProperty(focusProperty, true);
    navigation->navigationBar()->allButtons().constLast()->setProperty(pointerProperty, 1);
    return frame(navigation, { width, 90 });
}

QWidget *layers(QWidget *page, const Texts &text, bool peeks)
{
    auto *const navigation = new KXLayeredNavigationController(nullptr, page);
    QWidget *const around = frame(navigation, { 560, 150 });
    navigation->view()->resize(560, 150);
    int number = 0;
    for (const char *title : { "All Tracks", "Leftfield", "Leftism" }) {
        auto *const place = new PlaceViewController(text(title), navigation);
        auto *const item = KXLayeredNavigationItem::layeredNavigationItem(place);
        QIcon image(u":/kestrixkit/icons/library.svg"_s);
        image.setIsMask(true);
        item->setImage(image);
        item->setProcessing(++number == 3);
        if (peeks && number == 2)
            item->setNextItemDistance(220);
        navigation->pushViewController(place, false);
    }
    navigation->layoutLayers();
    KXLayeredView::layeredView(navigation->viewControllers().constFirst())
        ->layeredHeaderView()
        ->setProperty(focusProperty, true);
    return around;
}

QWidget *inspector(QWidget *page, const Texts &text)
{
    auto *const controller = new KXInspectorViewController(page);
    QList<KXViewController *> sections;
    for (const char *title : { "Cover", "Track", "Where It Is Used", "File" }) {
        auto *const section = new PlaceViewController(text(title), controller);
        KXInspectorViewItem::inspectorViewItem(section)->setShowHeader(!sections.isEmpty());
        section->view()->setFixedHeight(54);
        sections.append(section);
    }
    controller->setViewControllers(sections);
    QWidget *const around = frame(controller, { 260, 300 });
    controller->setExpanded(sections.at(1), true);
    controller->outlineView()->doItemsLayout();
    return around;
}

}

QWidget *navigationPage(const Texts &text)
{
    auto *const page = new KXThemeableView;
    auto *const columns = new QHBoxLayout(page);
    columns->setContentsMargins(16, 16, 16, 16);
    columns->setSpacing(16);
    auto *const rows = new QVBoxLayout;
    rows->setSpacing(12);
    rows->addWidget(crumbs(page, text, 560));
    rows->addWidget(crumbs(page, text, 300));
    rows->addWidget(layers(page, text, false));
    rows->addWidget(layers(page, text, true));
    columns->addLayout(rows);
    columns->addWidget(inspector(page, text), 0, Qt::AlignTop);
    return page;
}

}

#include "NavigationPage.moc"
