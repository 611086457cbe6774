// The views of the toolkit: a list, a tree of stored objects, a menu, an alert.

#include <QBoxLayout>
#include <QMessageBox>
#include <QTemporaryDir>

#include <kestrixkit/context/KXManagedObjectOf.h>
#include <kestrixkit/theme/KXThemeStyleNames.h>
#include <kestrixkit/theme/controls/KXThemeableOutlineView.h>
#include <kestrixkit/theme/controls/KXThemeableView.h>
#include <kestrixkit/toolkit/KXAlert.h>
#include <kestrixkit/toolkit/KXListController.h>
#include <kestrixkit/toolkit/KXMenu.h>
#include <kestrixkit/toolkit/KXTreeController.h>

#include "Pages.h"

using namespace Qt::StringLiterals;

namespace gallery {

namespace {

class Shelf : public KXManagedObjectOf<Shelf>
{
public:
    static constexpr QLatin1StringView entityName { "Shelf" };
    KX_ATTRIBUTE(QString, title, setTitle)
    KX_ATTRIBUTE(qint64, position, setPosition)
    KX_TO_ONE(Shelf, parent, setParent)
    KX_TO_MANY(Shelf, children, Children)
};

/// A store of shelves in a folder that goes with the page.
class Shelves : public QObject
{
public:
    Shelves(const Texts &text, QObject *parent)
        : QObject(parent)
    {
        using Property = KXPropertyDescription;
        Shelf::registerEntity();
        const auto model = KXManagedObjectModel::make(
            { KXEntityDescription(u"Shelf"_s)
                    .add(Property::attribute(u"title"_s, KXAttributeType::String))
                    .add(Property::attribute(u"position"_s, KXAttributeType::Integer64).withDefault(0))
                    .add(Property::toOne(u"parent"_s, u"Shelf"_s, u"children"_s))
                    .add(Property::toMany(u"children"_s, u"Shelf"_s, u"parent"_s)) });
        m_context = KXManagedObjectContext::contextWithPersistentStoreCoordinator(
            KXPersistentStoreCoordinator::persistentStoreCoordinatorWithStoreURL(
                QUrl::fromLocalFile(m_folder.filePath(u"shelves.db"_s)), model));
        const auto add = [&](const char *title, qint64 position, const KXRef<Shelf> &parentShelf = {}) {
            const auto shelf = Shelf::createInContext(*m_context);
            shelf->setTitle(text(title));
            shelf->setPosition(position);
            shelf->setParent(parentShelf);
            return shelf;
        };
        const auto crates = add("Crates", 0);
        add("Warm up", 0, crates);
        add("Peak time", 1, add("Saturday night", 1, crates));
        add("Playlists", 1);
        KXTreeRequest request { .entityName = u"Shelf"_s };
        request.sortDescriptors = { { u"position"_s } };
        m_tree = std::make_unique<KXTreeController>(m_context, request);
    }
    KXTreeController *tree() { return m_tree.get(); }

private:
    QTemporaryDir m_folder;
    KXManagedObjectContext::Ref m_context;
    std::unique_ptr<KXTreeController> m_tree;
};

KXThemeableOutlineView *outline(const QString &name, QAbstractItemModel *model, QItemSelectionModel *selection)
{
    auto *view = new KXThemeableOutlineView;
    view->setAccessibleName(name);
    view->setThemeStyleName(KXOutlineStyles);
    view->rowView()->setThemeStyleName(KXSourceListRowStyles);
    view->groupRowView()->setThemeStyleName(KXSourceListGroupRowStyles);
    view->setModel(model);
    view->setSelectionModel(selection);
    view->setFixedSize(260, 150);
    return view;
}

} // namespace

QWidget *toolkitPage(const Texts &text)
{
    auto *page = new KXThemeableView;
    auto *columns = new QHBoxLayout(page);
    columns->setContentsMargins(16, 16, 16, 16);
    columns->setSpacing(16);
    auto *first = new QVBoxLayout;
    auto *second = new QVBoxLayout;
    columns->addLayout(first);
    columns->addLayout(second);

    auto *list = new KXListController(page);
    list->setArrangedObjects({ text("Added today"), text("Added this week"), text("Never played"), text("Unrated") });
    auto *rows = outline(text("List"), list, list->selectionModel());
    rows->setRootIsDecorated(false);
    list->setSelectedRows({ 1, 2 });
    first->addWidget(rows);

    auto *shelves = new Shelves(text, page);
    auto *tree = outline(text("Tree"), shelves->tree(), shelves->tree()->selectionModel());
    tree->expandAll();
    shelves->tree()->setSelectionIndexPath({ 0, 1 });
    tree->setProperty(focusProperty, true);
    first->addWidget(tree);

    auto *menu = new KXMenu(text("Track"), page);
    menu->setWindowFlags(Qt::Widget);
    menu->setAccessibleName(text("Track"));
    menu->addItem(text("Play"), page, [] {})->setShortcut(Qt::Key_Space);
    menu->addItem(text("Rename Genre…"), page, [] {});
    menu->addSeparator();
    QAction *rated = menu->addItem(text("Show rating"), page, [] {});
    rated->setCheckable(true);
    rated->setChecked(true);
    menu->addItem(
        text("Undo"), page, [] {}, [] { return false; });
    menu->validate();
    menu->setActiveAction(menu->actions().at(1));
    menu->setFixedSize(menu->sizeHint());
    second->addWidget(menu);

    KXAlert alert(text("Delete the preset “Deep house”?"), KXAlertStyle::Warning);
    alert.setInformativeText(text("Its filters go with it. This cannot be undone once the library is saved."))
        .setButtons({ text("Delete"), text("Cancel") })
        .setShowsSuppressionButton(true);
    QMessageBox *box = alert.makeBox(page);
    box->setWindowFlags(Qt::Widget);
    box->setAutoFillBackground(true);
    second->addWidget(box);
    return page;
}

} // namespace gallery
