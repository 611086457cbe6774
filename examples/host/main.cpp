// A whole host in one file: imports tracks in the background and shows them in a live table, beside crates and presets
// with live counts, with undo, a preview and a theme. Usage: host STORE [CSV], with lines "title;artist;bpm;file".

#include <KestrixKit/UI>
#include <QtWidgets>

using namespace Qt::StringLiterals;

struct Track;
struct Crate : KXTreeObjectOf<Crate> // a row of a source list: a title is all that is left to say
{
    static constexpr QLatin1StringView entityName { "Crate" };
    KX_ATTRIBUTE(QString, title, setTitle)
    KX_TO_MANY(Track, tracks, Tracks)
};

struct Track : KXManagedObjectOf<Track>
{
    static constexpr QLatin1StringView entityName { "Track" };
    KX_ATTRIBUTE(QString, title, setTitle)
    KX_ATTRIBUTE(std::optional<QString>, artist, setArtist)
    KX_ATTRIBUTE(std::optional<double>, bpm, setBpm)
    KX_ATTRIBUTE(std::optional<QUrl>, file, setFile)
    KX_TO_ONE(Crate, crate, setCrate)
};

static KXManagedObjectModel::Ref makeModel()
{
    using Property = KXPropertyDescription;
    using Type = KXAttributeType;
    const auto track = KXEntityDescription(u"Track"_s)
                           .add(Property::attribute(Track::titleKey, Type::String).required().indexed())
                           .add(Property::attribute(Track::artistKey, Type::String))
                           .add(Property::attribute(Track::bpmKey, Type::Double).indexed())
                           .add(Property::attribute(Track::fileKey, Type::URI))
                           .add(Property::toOne(Track::crateKey, u"Crate"_s, Crate::tracksKey));
    const auto crate = Crate::treeDescription()
                           .add(Property::attribute(Crate::titleKey, Type::String))
                           .add(Property::toMany(Crate::tracksKey, u"Track"_s, Track::crateKey));
    return KXManagedObjectModel::make({ track, crate }, {}, { KXFilters::managedObjectModel() });
}

static void importTracks(const KXPersistentStoreCoordinator::Ref &coordinator, const QString &path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return qWarning("%s: %s", qPrintable(path), qPrintable(file.errorString()));
    const auto context = KXManagedObjectContext::contextWithPersistentStoreCoordinator(coordinator);
    for (int line = 1; !file.atEnd(); ++line) {
        const QStringList fields = QString::fromUtf8(file.readLine().trimmed()).split(u';');
        const auto track = Track::createInContext(*context);
        if (!track)
            return; // the log says why
        track->setTitle(fields.value(0));
        track->setArtist(fields.value(1));
        track->setBpm(fields.value(2).toDouble());
        track->setFile(QUrl::fromLocalFile(fields.value(3)));
        if (line % 1000 == 0 || file.atEnd())
            context->saveOnMainThread(); // the window shows what is saved as it comes
    }
}

struct Preview : KXAudioPlayerItem
{
    QUrl url;
    QUrl audioFileURL() const override { return url; }
};

struct HostWindow : QMainWindow, KXSourceListViewControllerDelegate
{
    explicit HostWindow(const KXManagedObjectContext::Ref &context)
        : tracks(context, u"Track"_s,
            { { .keyPath = Track::titleKey, .title = tr("Title"), .isEditable = true },
                { .keyPath = Track::artistKey, .title = tr("Artist"), .isEditable = true },
                { .keyPath = Track::bpmKey, .title = tr("BPM"), .alignment = Qt::AlignRight } },
            { { Track::titleKey } })
        , crateTree(context, { .entityName = u"Crate"_s, .sortDescriptors = { { Crate::positionKey } } })
        , presetTree(context, { .entityName = u"KXFilterSetPreset"_s, .sortDescriptors = { { u"position"_s } } })
        , counts(context, { .context = context, .entityName = u"Track"_s, .countsContextIdentifier = u"library"_s })
    {
        QToolBar *const bar = addToolBar(tr("Edit"));
        bar->addAction(context->undoManager()->createUndoAction(this));
        bar->addAction(context->undoManager()->createRedoAction(this));
        bar->addAction(tr("New Crate"), this, [context] {
            if (const auto crate = Crate::createInContext(*context))
                crate->setTitle(tr("Crate"));
            context->save();
        });
        table.setModel(&tracks);
        connect(&table, &QAbstractItemView::activated, this, [this](const QModelIndex &index) {
            const auto item = std::make_shared<Preview>();
            item->url = Track::cast(tracks.object(index.row()))->file().value_or(QUrl());
            player.playItem(item);
        });
        player.setVolume(0.8F);
        auto *const splitter = new QSplitter;
        for (const auto &[list, tree] : { std::pair(&crates, &crateTree), std::pair(&presets, &presetTree) }) {
            list->setTreeController(tree);
            list->setDelegate(this);
            list->setCountsContextIdentifier(u"library"_s);
            splitter->addWidget(list->view());
        }
        splitter->addWidget(&table);
        setCentralWidget(splitter);
    }
    KXLiveListModel tracks;
    KXTableView table;
    KXTreeController crateTree, presetTree;
    KXSourceListViewController crates, presets;
    KXLivePresetCounts counts;
    KXBasicAudioPlayer player;
    void itemWasSelected(KXSourceListViewController &, KXSourceListItem *item) override
    {
        if (const auto *const preset = dynamic_cast<KXFilterSetPreset *>(item); preset && preset->filterSet())
            tracks.setPredicate(preset->filterSet()->representedLocalPredicateWithKeyPath());
        else if (auto *const crate = dynamic_cast<Crate *>(item))
            tracks.setPredicate(KXPredicate::predicateWithFormat("crate == %@", crate));
        else
            tracks.setPredicate({});
    }
};

int main(int argc, char **argv)
{
    QApplication application(argc, argv);
    KXTheme::apply(application, std::make_shared<KXDarkTheme>());
    KXFilters::registerEntities();
    Track::registerEntity();
    Crate::registerEntity();
    KXError error;
    const auto coordinator = KXPersistentStoreCoordinator::persistentStoreCoordinatorByMigratingStoreURL(
        QUrl::fromLocalFile(application.arguments().value(1, u"host.db"_s)), makeModel(), &error);
    if (!coordinator)
        return qCritical("%s", qPrintable(error.localizedDescription())), 1;
    const auto context = KXManagedObjectContext::contextWithPersistentStoreCoordinator(coordinator);
    KXManagedObjectContext::setMainContext(context); // into which imports are merged
    if (KXFilterSetPreset::countOfInContext(*context) == 0) {
        const auto preset = KXFilterSetPreset::createInContext(*context);
        preset->setTitle(u"Peak time"_s);
        preset->setFilterSet(KXFilterSet::createInContext(*context));
        preset->filterSet()->addToFilters(KXRangeFilter::createWithKeyPath(Track::bpmKey, 124, 132, *context));
        context->save();
    }
    HostWindow window(context);
    window.show();
    KXOperationQueue imports;
    if (application.arguments().size() > 2)
        imports.addBlock([&] { importTracks(coordinator, application.arguments()[2]); });
    return QApplication::exec();
}
