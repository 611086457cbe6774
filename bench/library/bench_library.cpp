// The presets library with 10,000 presets in 500 folders, beside a plain tree view of the same rows; and the presets
// bar with 2,000 presets and folders at the top level, beside plain buttons and menus.

#include <ctime>
#include <malloc.h>

#include <QApplication>
#include <QFile>
#include <QStyleFactory>
#include <QTreeView>

#include <kestrixkit/filter_ui/KXFilterSetPresetDetailsViewController.h>
#include <kestrixkit/filter_ui/KXFilterSetPresetsViewController.h>
#include <kestrixkit/filter_ui/presets_bar/KXFilterSetPresetsBar.h>
#include <kestrixkit/filter_ui/presets_bar/KXFilterSetPresetsBarPresetButton.h>
#include <kestrixkit/filters/KXFilterSet.h>
#include <kestrixkit/filters/KXFilterSetPresetsManager.h>
#include <kestrixkit/filters/KXFilters.h>
#include <kestrixkit/foundation/KXUndoManager.h>
#include <kestrixkit/theme/KXDarkTheme.h>
#include <kestrixkit/theme/KXThemeManager.h>
#include <kestrixkit/theme/KXThemeStyleNames.h>
#include <kestrixkit/toolkit/KXMenu.h>

#include "BenchProgram.h"
#include "library/CrateBench.h"
#include "library/EditBench.h"
#include "library/MassBench.h"
#include "peer/plain_library.h"
#include "store/BenchLibrary.h"

using namespace Qt::StringLiterals;

namespace {

constexpr int presets = 10'000;
constexpr int folders = 500;
constexpr QLatin1StringView place { "bench" };

double cpuSeconds()
{
    timespec time {};
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &time);
    return double(time.tv_sec) + double(time.tv_nsec) * 1e-9;
}

QString libraryPath() { return BenchLibrary::emptyStorePath().chopped(8) + u"library-10k.db"_s; }

KXManagedObjectContext::Ref openLibrary(const QString &path)
{
    KXFilters::registerEntities();
    KXError error;
    const auto coordinator = KXPersistentStoreCoordinator::persistentStoreCoordinatorWithStoreURL(
        QUrl::fromLocalFile(path), KXFilters::managedObjectModel(), &error);
    if (!coordinator) {
        std::fprintf(stderr, "%s\n", qPrintable(error.localizedDescription()));
        std::exit(1);
    }
    const auto context = KXManagedObjectContext::contextWithPersistentStoreCoordinator(coordinator);
    context->setUndoManager(std::make_shared<KXUndoManager>());
    return context;
}

void prepareLibrary()
{
    if (QFile::exists(libraryPath()))
        return;
    const QString making = libraryPath() + u".making"_s;
    QFile::remove(making);
    {
        const auto context = openLibrary(making);
        const KXUndoRegistrationOff unrecorded(context->undoManager());
        for (int i = 0; i < folders; ++i) {
            const auto folder = KXFilterSetPreset::createInContext(*context);
            folder->setTitle(u"Folder %1"_s.arg(i));
            folder->setIsFolder(true);
            folder->setPosition(i);
            for (int j = 0; j < presets / folders; ++j) {
                const auto preset = KXFilterSetPreset::createInContext(*context);
                preset->setTitle(u"Preset %1 of folder %2"_s.arg(j).arg(i));
                preset->setPosition(j);
                preset->setParent(folder);
                preset->setFilterSet(KXFilterSet::createInContext(*context));
            }
        }
        if (!context->save())
            std::exit(1);
    }
    QFile::rename(making, libraryPath());
}

class Owner : public KXFilterSetPresetsViewControllerDelegate
{
public:
    bool isPresetAvailable(KXFilterSetPresetsViewController &, const KXRef<KXFilterSetPreset> &) override
    {
        return true;
    }
    std::unique_ptr<KXFilterSetPresetDetailsViewController> detailsViewControllerForPreset(
        KXFilterSetPresetsViewController &, const KXRef<KXFilterSetPreset> &) override
    {
        return nullptr;
    }
};

/// On screen and painted.
void shown(QWidget &view)
{
    view.resize(600, 900);
    view.show();
    QCoreApplication::processEvents();
}

struct Ours
{
    explicit Ours(const KXManagedObjectContext::Ref &context)
        : library(context)
    {
        library.setDelegate(&owner);
        library.setCountsContextIdentifier(place);
        QWidget *const view = library.view();
        library.sourceListViewController()->sourceListView()->expandAll();
        shown(*view);
    }
    [[nodiscard]] bool isRight()
    {
        const QAbstractItemModel *model = library.sourceListTreeController();
        const QModelIndex last = model->index(folders - 1, 0);
        return model->rowCount() == folders && model->rowCount(last) == presets / folders
            && library.sourceListViewController()->sourceListView()->isExpanded(last);
    }
    Owner owner;
    KXFilterSetPresetsViewController library;
};

struct Peer
{
    explicit Peer(plain::PresetRows &rows)
    {
        const auto &manager = KXThemeManager::sharedManager();
        rows.fill(model, manager.valueForKeyPath(KXFilterPresetFolderIcon).value<QIcon>(),
            manager.valueForKeyPath(KXFilterPresetIcon).value<QIcon>());
        view.setHeaderHidden(true);
        view.setUniformRowHeights(true);
        view.setModel(&model);
        view.expandAll();
        shown(view);
    }
    QStandardItemModel model;
    QTreeView view;
};

void showOurs(benchmark::State &state)
{
    const auto context = openLibrary(libraryPath());
    malloc_trim(0);
    const double start = cpuSeconds();
    Ours ours(context);
    const double seconds = cpuSeconds() - start;
    if (!ours.isRight())
        return state.SkipWithError("wrong tree");
    BenchProgram::report(state, seconds * 1e3);
}

void showPeer(benchmark::State &state)
{
    plain::PresetRows rows(libraryPath());
    malloc_trim(0);
    const double start = cpuSeconds();
    Peer peer(rows);
    const double seconds = cpuSeconds() - start;
    if (peer.model.rowCount() != folders || rows.presets().size() != presets)
        return state.SkipWithError("wrong tree");
    BenchProgram::report(state, seconds * 1e3);
}

void countsOurs(benchmark::State &state)
{
    const auto context = openLibrary(libraryPath());
    Ours ours(context);
    QList<KXRef<KXFilterSetPreset>> all;
    for (const KXTreeNode *node : ours.library.sourceListTreeController()->flattenedNodes()) {
        if (const auto preset = KXFilterSetPreset::cast(node->representedObject()); !preset->isFolder())
            all.append(preset);
    }
    malloc_trim(0);
    const double start = cpuSeconds();
    for (qsizetype i = 0; i < all.size(); ++i)
        all[i]->setCount(i % 2000, QString(place));
    QCoreApplication::processEvents();
    const double seconds = cpuSeconds() - start;
    const auto &tree = *ours.library.sourceListTreeController();
    const KXSourceListCell cell
        = ours.library.sourceListViewController()->sourceListView()->cellForRow(tree.index(7, 0, tree.index(1, 0)));
    if (all.size() != presets || cell.count != 27)
        return state.SkipWithError("wrong counts");
    BenchProgram::report(state, seconds * 1e3);
}

void countsPeer(benchmark::State &state)
{
    plain::PresetRows rows(libraryPath());
    const Peer peer(rows);
    malloc_trim(0);
    const double start = cpuSeconds();
    for (qsizetype i = 0; i < rows.presets().size(); ++i)
        rows.presets()[i]->setText(QString::number(i % 2000));
    QCoreApplication::processEvents();
    const double seconds = cpuSeconds() - start;
    BenchProgram::report(state, seconds * 1e3);
}

// The bar: laid out and painted, the menu of what does not fit opened once, and that of each folder in view.

constexpr int barPresets = 2'000; // every twentieth a folder of ten
constexpr int barFolderEvery = 20;
constexpr QSize barSize(1200, 30);

QString barPath() { return BenchLibrary::emptyStorePath().chopped(8) + u"bar-2k.db"_s; }

void prepareBar()
{
    if (QFile::exists(barPath()))
        return;
    const QString making = barPath() + u".making"_s;
    QFile::remove(making);
    {
        const auto context = openLibrary(making);
        const KXUndoRegistrationOff unrecorded(context->undoManager());
        const auto add = [&](const QString &title, qint64 position, const KXRef<KXFilterSetPreset> &parent) {
            const auto preset = KXFilterSetPreset::createInContext(*context);
            preset->setTitle(title);
            preset->setPosition(position);
            preset->setParent(parent);
            return preset;
        };
        for (int i = 0; i < barPresets; ++i) {
            const auto preset = add(u"Preset %1"_s.arg(i), i, {});
            preset->setIsFolder(i % barFolderEvery == 2);
            for (int j = 0; preset->isFolder() && j < 10; ++j)
                add(u"Preset %1 of %2"_s.arg(j).arg(i), j, preset)
                    ->setFilterSet(KXFilterSet::createInContext(*context));
            if (!preset->isFolder())
                preset->setFilterSet(KXFilterSet::createInContext(*context));
        }
        if (!context->save())
            std::exit(1);
    }
    QFile::rename(making, barPath());
}

void openOnce(QMenu &menu)
{
    menu.popup(QPoint(10, 40));
    QCoreApplication::processEvents();
    menu.hide();
}

class AnySet : public KXFilterSetMapper
{
public:
    bool canMapFilterSet(const KXRef<KXFilterSet> &set) const override { return bool(set); }
    KXRef<KXFilterSet> createInstanceByMappingFilterSet(
        const KXRef<KXFilterSet> &, KXManagedObjectContext &) const override
    {
        return {};
    }
};

void barOurs(benchmark::State &state)
{
    const auto context = openLibrary(barPath());
    malloc_trim(0);
    const double start = cpuSeconds();
    const auto manager = std::make_shared<KXFilterSetPresetsManager>(context);
    manager->registerFilterSetMapper(std::make_shared<AnySet>(), context);
    KXFilterSetPresetsManager::setSharedManager(manager);
    KXFilterSetPresetsBar bar;
    bar.resize(barSize);
    bar.setCountsContextIdentifier(place);
    bar.setContext(context);
    bar.show();
    QCoreApplication::processEvents();
    openOnce(*bar.overflowMenu());
    int folders = 0;
    for (const auto *button : bar.presetButtons()) {
        if (const auto *folder = qobject_cast<const KXFilterSetPresetsBarPresetFolderButton *>(button)) {
            openOnce(*folder->presetsMenu());
            folders += folder->presetsMenu()->actions().size() == 10;
        }
    }
    const double seconds = cpuSeconds() - start;
    const bool isRight = bar.presets().size() == barPresets && folders > 0
        && bar.overflowMenu()->actions().size() == barPresets - bar.shownCount();
    KXFilterSetPresetsManager::setSharedManager(nullptr);
    if (!isRight)
        return state.SkipWithError("wrong bar");
    BenchProgram::report(state, seconds * 1e3);
}

void barPeer(benchmark::State &state)
{
    plain::PresetRows rows(barPath());
    malloc_trim(0);
    const double start = cpuSeconds();
    const auto &themes = KXThemeManager::sharedManager();
    plain::PresetButtons bar(rows, themes.valueForKeyPath(KXFilterPresetFolderIcon).value<QIcon>(),
        themes.valueForKeyPath(KXFilterPresetIcon).value<QIcon>());
    bar.resize(barSize);
    bar.show();
    QCoreApplication::processEvents();
    openOnce(bar.overflow());
    int folders = 0;
    for (const QToolButton *button : bar.buttons()) {
        if (button->isVisible() && button->menu()) {
            openOnce(*button->menu());
            folders += button->menu()->actions().size() == 10;
        }
    }
    const double seconds = cpuSeconds() - start;
    if (bar.buttons().size() != barPresets || folders == 0 || bar.overflow().actions().size() < barPresets - 100)
        return state.SkipWithError("wrong bar");
    BenchProgram::report(state, seconds * 1e3);
}

void prepare()
{
    prepareLibrary();
    prepareBar();
    CrateBench::prepare();
}

}

int main(int argc, char **argv)
{
    qputenv("QT_QPA_PLATFORM", "offscreen");
    QApplication application(argc, argv);
    QApplication::setStyle(QStyleFactory::create(u"Fusion"_s));
    KXThemeManager::sharedManager().setTheme(std::make_shared<KXDarkTheme>());
    BenchProgram::add("library.show/ours", showOurs);
    BenchProgram::add("library.show/peer", showPeer);
    BenchProgram::add("library.counts/ours", countsOurs);
    BenchProgram::add("library.counts/peer", countsPeer);
    BenchProgram::add("library.bar-show/ours", barOurs);
    BenchProgram::add("library.bar-show/peer", barPeer);
    CrateBench::add();
    EditBench::add();
    MassBench::add();
    return BenchProgram::run(argc, argv, prepare);
}
