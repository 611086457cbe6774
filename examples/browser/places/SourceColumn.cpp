#include "places/SourceColumn.h"

#include <QAction>
#include <QBoxLayout>
#include <QCryptographicHash>
#include <QLabel>

#include <kestrixkit/foundation/KXClock.h>
#include <kestrixkit/foundation/KXLog.h>
#include <kestrixkit/store/KXPersistentStore.h>
#include <kestrixkit/theme/KXStandardTheme.h>
#include <kestrixkit/theme/KXThemeManager.h>
#include <kestrixkit/theme/KXThemeStyleNames.h>
#include <kestrixkit/theme/controls/KXThemeableButton.h>
#include <kestrixkit/theme/controls/KXThemeableTextField.h>
#include <kestrixkit/theme/controls/KXThemeableView.h>

#include "crates/CratesPane.h"
#include "filters/PresetCommands.h"
#include "filters/PresetMapper.h"
#include "filters/Presets.h"
#include "places/LibraryPlaces.h"
#include "places/SidebarRoom.h"
#include "window/BrowserStyle.h"
#include "window/FirstPicture.h"

using namespace Qt::StringLiterals;

namespace {

constexpr double countDelay = 0.1; // seconds after the first picture: the place of the last session is shown by then
constexpr qint64 largeLibrary = 100'000; // tracks
constexpr double pickDelay = 0.12; // seconds, in a large library
constexpr qsizetype mostShownTogether = 200;

// What is remembered of one library is not to be taken for another's.
QString suffixOf(const KXManagedObjectContext &context)
{
    const QByteArray file = context.persistentStoreCoordinator()->store()->URL().toEncoded();
    return QString::fromLatin1(QCryptographicHash::hash(file, QCryptographicHash::Sha1).toHex().left(8));
}

} // namespace

SourceColumn::SourceColumn(KXManagedObjectContext::Ref context, QWidget *parent)
    : KXThemeableSplitView(Qt::Vertical, parent)
    , m_context(std::move(context))
    , m_manager(std::make_shared<KXFilterSetPresetsManager>(m_context))
    , m_mapper(std::make_shared<PresetMapper>())
    , m_places(new LibraryPlaces(m_context, this))
    , m_autosaveSuffix(suffixOf(*m_context))
{
    setThemeStyleName(KXSplitViewStyles);
    m_themeChanges = KXNotificationCenter::defaultCenter().addObserver(
        KXThemeDidChangeNotification, &KXThemeManager::sharedManager(), [this](const KXNotification &) {
            m_icons.clear();
            m_crates->forgetIcons();
        });
    m_manager->registerFilterSetMapper(m_mapper, m_context);
    KXFilterSetPresetsManager::setSharedManager(m_manager);

    KXTreeRequest presets { QString(KXFilterSetPreset::entityName) };
    presets.sortDescriptors = { { u"position"_s } };
    m_placesTree = std::make_unique<KXTreeController>(m_context, LibraryPlaces::request(false));
    m_presetsTree = std::make_unique<KXTreeController>(m_context, presets);
    makeList(m_library, m_placesTree.get(), tr("Library"), u"browser.library."_s + m_autosaveSuffix);
    makeList(m_presets, m_presetsTree.get(), tr("Presets"), u"browser.presets."_s + m_autosaveSuffix);
    m_crates = new CratesPane(m_context, this);
    prepareList(m_crates->list(), tr("Crates"), u"browser.crates."_s + m_autosaveSuffix);
    m_library->setRootItem(m_places->place(LibraryPlaces::AllTracks));
    m_presets->setCountsContextIdentifier(QString(Presets::contextIdentifier));
    m_presets->sourceListView()->setPlaceholderText(
        tr("No presets yet.\nThe button above makes a folder; “Save as Preset” makes a preset of a genre."));

    m_commands = new PresetCommands(m_presets.get());
    m_saveAsPreset = new QAction(tr("&Save as Preset"), this);
    m_saveAsPreset->setShortcut(QKeySequence(Qt::CTRL | Qt::SHIFT | Qt::Key_P));
    m_saveAsPreset->setEnabled(false);
    connect(m_saveAsPreset, &QAction::triggered, this, &SourceColumn::savePlaceAsPreset);
    auto *const menu = new QMenu(m_library->sourceListView());
    menu->addAction(m_saveAsPreset);
    m_library->sourceListView()->setContextMenu(menu);

    addWidget(section(tr("Library"), m_library.get(), {}));
    addWidget(section(tr("Crates"), m_crates->list(), { m_crates->newCrate }));
    addWidget(section(tr("Presets"), m_presets.get(), { m_commands->newFolder }));
    setChildrenCollapsible(false);
    setStretchFactor(2, 1);
    m_room = new SidebarRoom(
        this, { m_library->sourceListView(), m_crates->list()->sourceListView(), m_presets->sourceListView() });
    connect(this, &QSplitter::splitterMoved, this, &SourceColumn::scrollToSelection);
}

SourceColumn::~SourceColumn()
{
    commit();
    if (KXFilterSetPresetsManager::sharedManager() == m_manager)
        KXFilterSetPresetsManager::setSharedManager(nullptr);
}

void SourceColumn::makeList(std::unique_ptr<KXSourceListViewController> &list, KXTreeController *tree,
    const QString &name, const QString &autosaveName)
{
    list = std::make_unique<KXSourceListViewController>();
    list->setTreeController(tree);
    prepareList(list.get(), name, autosaveName);
}

QList<KXSourceListViewController *> SourceColumn::lists() const
{
    return { m_library.get(), m_crates->list(), m_presets.get() };
}

void SourceColumn::prepareList(KXSourceListViewController *list, const QString &name, const QString &autosaveName)
{
    list->setDelegate(this);
    list->setAutosaveName(autosaveName);
    KXSourceListView *const view = list->sourceListView();
    view->setAccessibleName(name);
    connect(view, &QAbstractItemView::activated, this, &SourceColumn::opened);
}

QWidget *SourceColumn::section(const QString &title, KXSourceListViewController *list, QList<QAction *> actions)
{
    auto *const pane = new KXThemeableView;
    auto *const rows = new QVBoxLayout(pane);
    rows->setContentsMargins(0, 0, 0, 0);
    rows->setSpacing(0);
    auto *const head = new QHBoxLayout;
    head->setContentsMargins(BrowserStyle::margin + 4, 6, 6, 2);
    auto *const label = new KXThemeableTextField(title.toUpper());
    label->setLabel(true);
    QFont font = label->font();
    font.setPointSizeF(font.pointSizeF() * 0.82);
    font.setBold(true);
    font.setLetterSpacing(QFont::AbsoluteSpacing, 0.6);
    label->setFont(font);
    label->setThemeStyleName(KXSecondaryLabelStyles);
    head->addWidget(label);
    head->addStretch();
    for (QAction *action : actions) {
        auto *const button = new KXThemeableButton(u"+"_s);
        button->setThemeStyleName(KXToolbarButtonStyles);
        button->setFixedSize(26, 22);
        QString name = action->text();
        button->setAccessibleName(name.remove(u'&'));
        button->setToolTip(name);
        connect(button, &QPushButton::clicked, action, &QAction::trigger);
        head->addWidget(button);
    }
    rows->addLayout(head);
    list->appearIn(pane);
    return pane;
}

KXThemeableSplitView *SourceColumn::beside(QWidget *view, QWidget *right)
{
    auto *const beside = new KXThemeableSplitView(Qt::Horizontal);
    beside->setThemeStyleName(KXSplitViewStyles);
    for (QWidget *pane : { static_cast<QWidget *>(this), view, right })
        beside->addWidget(pane);
    beside->setChildrenCollapsible(false);
    beside->setStretchFactor(1, 1);
    beside->setSizes({ 230, 1210, 260 });
    setMinimumWidth(150);
    return beside;
}

void SourceColumn::commit()
{
    for (KXSourceListViewController *list : lists()) {
        list->sourceListView()->commitEditing();
        list->saveState();
    }
}

// Counting

void SourceColumn::showEvent(QShowEvent *event)
{
    KXThemeableSplitView::showEvent(event);
    FirstPicture::then(m_presets->sourceListView()->viewport(), [this] {
        if (!m_counts)
            m_countSoon.start(countDelay, [this] { musicDidChange(); });
    });
}

void SourceColumn::startCounting()
{
    m_countSoon.cancel();
    if (m_counts)
        return;
    m_counts = std::make_unique<KXLivePresetCounts>(m_context, Presets::place(m_context, m_mapper));
    m_counts->countFolders(); // a track that is in several presets of a folder is one track
    m_places->countWith(m_counts->liveCounts());
    Q_EMIT countingDidBegin(m_counts->liveCounts());
}

void SourceColumn::finishCounting()
{
    if (m_counts)
        m_counts->update();
    m_places->finishCounting();
    m_crates->finishCounting();
}

void SourceColumn::firstMusicCame()
{
    m_places->setHasStartingPresets();
    m_library->expandItem(m_places->place(LibraryPlaces::Genres).get());
}

void SourceColumn::musicDidChange()
{
    KXError error;
    m_places->followGenres();
    if (!m_places->hasStartingPresets() && m_context->countForEntity(QString(Track::entityName)) > 0) {
        if (Presets::install(*m_context, &error))
            firstMusicCame();
        else
            KXLogWarning(browser, "No presets: %@", error.localizedDescription());
    }
    startCounting();
    // What has come just now was added after the moment that counts are of. Unless there is very much of it, what is
    // told when music has come is told with all badges there.
    m_counts->liveCounts().advance();
    m_places->updateCounts();
    m_crates->startCounting();
}

// What rows show, and what they stand for

bool SourceColumn::isAvailable(const KXRef<KXFilterSetPreset> &preset) const
{
    return preset->isFolder() || m_manager->isPresetAvailable(preset, m_context);
}

void SourceColumn::willDisplayCellView(KXSourceListViewController &, KXSourceListCell &cell, KXSourceListItem *item)
{
    if (const auto *const place = dynamic_cast<KXViewState *>(item); place && !place->parent())
        cell.image = iconOf(place->tag());
    if (const auto *const crate = dynamic_cast<Crate *>(item))
        cell.image = m_crates->iconOf(*crate);
    auto *const preset = dynamic_cast<KXFilterSetPreset *>(item);
    if (!preset)
        return;
    cell.isEditable = preset->isOverwritable();
    cell.isEnabled = isAvailable(KXRef<KXFilterSetPreset>(preset));
    if (!cell.isEnabled)
        cell.toolTip
            = tr("%1 is not available: it looks for something that this library does not know").arg(cell.title);
}

QIcon SourceColumn::iconOf(qint64 tag)
{
    QIcon &icon = m_icons[tag];
    if (icon.isNull()) {
        const QString file = tag == LibraryPlaces::AllTracks ? u":/kestrixkit/icons/library.svg"_s
            : tag == LibraryPlaces::RecentlyAdded            ? u":/kestrixkit/icons/recent.svg"_s
            : tag == LibraryPlaces::Duplicates               ? u":/browser/icons/duplicates.svg"_s
            : tag == LibraryPlaces::Shop                     ? u":/browser/icons/shop.svg"_s
                                                             : u":/kestrixkit/icons/genre.svg"_s;
        icon = KXStandardTheme::icon(file, BrowserStyle::secondaryText());
    }
    return icon;
}

void SourceColumn::itemWasSelected(KXSourceListViewController &list, KXSourceListItem *item)
{
    // One of the lists says what is shown.
    for (KXSourceListViewController *other : lists()) {
        if (item && other != &list)
            other->setSelectionIndexPath({});
    }
    pickLater();
}

/// In the next turn, as this is called while the tree follows a change. Fetching from a large library takes a moment:
/// it waits until the arrow key that is held down is let go.
void SourceColumn::pickLater()
{
    const KXRef<KXViewState> all = m_places->place(LibraryPlaces::AllTracks);
    m_pickSoon.start(all && all->count() > largeLibrary ? pickDelay : 0, [this] { pick(); });
}

QUrl SourceColumn::urlOf(qint64 tag) const
{
    const KXRef<KXViewState> place = m_places->place(LibraryPlaces::Tag(tag));
    return place ? place->objectID().URIRepresentation() : QUrl();
}

QUrl SourceColumn::allTracksURL() const { return urlOf(LibraryPlaces::AllTracks); }

QUrl SourceColumn::shopURL() const { return urlOf(LibraryPlaces::Shop); }

void SourceColumn::setHasShop(bool has)
{
    if (has)
        m_places->makeShop();
    m_placesTree->setRequest(m_context, LibraryPlaces::request(has));
}

QList<QUrl> SourceColumn::selectedPlaces() const
{
    QList<QUrl> places;
    for (const KXSourceListViewController *list : lists()) {
        for (const KXRef<KXManagedObject> &object : list->treeController()->selectedObjects())
            places.append(object->objectID().URIRepresentation());
    }
    return places;
}

std::pair<KXSourceListViewController *, QList<KXRef<KXManagedObject>>> SourceColumn::listOfPlaces(
    const QList<QUrl> &places) const
{
    const QList<KXRef<KXManagedObject>> objects = m_context->objectInstancesFromURIRepresentations(places);
    for (KXSourceListViewController *list : lists()) {
        QList<KXRef<KXManagedObject>> there;
        for (const KXRef<KXManagedObject> &object : objects) {
            if (object && !object->isDeleted() && list->treeController()->treeNodeForObject(object.get()))
                there.append(object);
        }
        if (!there.isEmpty())
            return { list, there };
    }
    return {};
}

bool SourceColumn::selectPlaces(const QList<QUrl> &places)
{
    const auto [list, objects] = listOfPlaces(places);
    if (objects.isEmpty())
        return false;
    for (KXSourceListViewController *other : lists()) {
        if (other != list)
            other->setSelectionIndexPath({});
    }
    list->treeController()->setSelectedObjects(objects);
    scrollToSelection();
    pick(); // what is told of the selection later on picks the same again
    return true;
}

QList<QUrl> SourceColumn::openRows() const
{
    QList<QUrl> rows;
    for (KXSourceListViewController *list : lists()) {
        const KXTreeController &tree = *list->treeController();
        for (const KXTreeNode *node : tree.flattenedNodes()) {
            if (!node->isLeaf() && list->sourceListView()->isExpanded(tree.indexForNode(node)))
                rows.append(node->representedObject()->objectID().URIRepresentation());
        }
    }
    return rows;
}

void SourceColumn::setOpenRows(const QList<QUrl> &rows)
{
    for (KXSourceListViewController *list : lists()) {
        const KXTreeController &tree = *list->treeController();
        for (const KXTreeNode *node : tree.flattenedNodes()) {
            if (!node->isLeaf())
                list->sourceListView()->setExpanded(
                    tree.indexForNode(node), rows.contains(node->representedObject()->objectID().URIRepresentation()));
        }
    }
}

/// What lies in something closed is opened.
void SourceColumn::scrollToSelection()
{
    for (KXSourceListViewController *list : lists()) {
        const KXTreeController &tree = *list->treeController();
        if (const KXRef<KXManagedObject> first = tree.selectedObjects().value(0))
            list->sourceListView()->scrollTo(tree.indexForNode(tree.treeNodeForObject(first.get())));
    }
}

void SourceColumn::pick()
{
    m_pickSoon.cancel();
    KXPredicate predicate;
    QString title, emptyText = tr("No music in the library yet");
    const auto presets = KXFilterSetPresetEditing::selectedPresets(*m_presetsTree);
    const auto *const place = dynamic_cast<KXViewState *>(m_library->selectedItem());
    m_saveAsPreset->setEnabled(place && (place->parent() || place->tag() == LibraryPlaces::RecentlyAdded));
    Q_EMIT orderWillBe(m_crates->order());
    if (!presets.isEmpty()) {
        pickPresets(presets);
        return;
    }
    if (!m_crates->selected().isEmpty()) {
        Q_EMIT picked(m_crates->predicate(), m_crates->title(), m_crates->emptyText());
        return;
    }
    if (place) {
        predicate = m_places->predicate(*place);
        title = place->title();
        if (predicate)
            emptyText = tr("No music here");
    }
    Q_EMIT picked(predicate, title, emptyText);
}

QUrl SourceColumn::placeURL() const
{
    const auto presets = KXFilterSetPresetEditing::selectedPresets(*m_presetsTree);
    if (presets.size() > 1)
        return QUrl(u"browser:several-presets"_s);
    if (!presets.isEmpty())
        return presets.first()->objectID().URIRepresentation();
    if (const auto crates = m_crates->selected(); !crates.isEmpty())
        return crates.size() > 1 ? QUrl(u"browser:several-crates"_s) : crates.first()->objectID().URIRepresentation();
    const auto *const place = dynamic_cast<KXViewState *>(m_library->selectedItem());
    return place ? place->objectID().URIRepresentation() : QUrl();
}

namespace {

void addPresetsBelow(const KXTreeController &tree, const KXTreeNode *node, QList<KXRef<KXFilterSetPreset>> &presets)
{
    const auto preset = node ? KXFilterSetPreset::cast(node->representedObject()) : KXRef<KXFilterSetPreset>();
    if (preset && !preset->isFolder() && !presets.contains(preset))
        presets.append(preset);
    for (const KXTreeNode *child : node ? node->childNodes() : QList<const KXTreeNode *>())
        addPresetsBelow(tree, child, presets);
}

} // namespace

void SourceColumn::pickPresets(const QList<KXRef<KXFilterSetPreset>> &presets)
{
    QList<KXRef<KXFilterSetPreset>> shown;
    for (const auto &preset : presets)
        addPresetsBelow(*m_presetsTree, m_presetsTree->treeNodeForObject(preset.get()), shown);
    const QString title = presets.size() == 1
        ? Presets::path(*presets.first())
        : tr("%1 Presets", nullptr, int(presets.size())).arg(KXClock::locale().toString(presets.size()));
    QString emptyText = tr("No music in this preset");
    QList<KXPredicate> parts;
    for (const auto &preset : std::as_const(shown)) {
        if (isAvailable(preset))
            parts.append(predicateOf(preset));
        else if (shown.size() == 1)
            emptyText = tr("%1 is not available:\nit looks for something that this library does not know")
                            .arg(preset->title());
    }
    if (shown.isEmpty())
        emptyText = tr("This folder is empty.\nDrag presets onto it to keep them here.");
    if (parts.size() > mostShownTogether) {
        emptyText = tr("These are too many presets to show together.\nPick a few of them.");
        parts.clear();
    }
    const KXPredicate predicate = parts.isEmpty() ? KXPredicate::falsePredicate()
        : parts.size() == 1                       ? parts.first()
                                                  : KXPredicate::orPredicate(parts);
    Q_EMIT picked(predicate, title, emptyText);
}

KXPredicate SourceColumn::predicateOf(const KXRef<KXFilterSetPreset> &preset) const
{
    // As it is counted, so that the badge says how many there will be.
    const QString identifier = KXLivePresetCounts::identifierOf(*preset);
    if (!m_counts || !m_counts->count(*preset))
        return Presets::predicate(preset->filterSet());
    return KXPredicate::andPredicate({ Presets::base(), m_counts->liveCounts().predicate(identifier) });
}

void SourceColumn::savePlaceAsPreset()
{
    const auto *const place = dynamic_cast<KXViewState *>(m_library->selectedItem());
    if (!place)
        return;
    const KXRef<KXFilterSetPreset> preset = Presets::makeOfPlace(*m_context, m_places->genre(*place), place->title());
    if (preset)
        m_presets->selectForEditing(preset.get());
}
