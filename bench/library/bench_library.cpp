// The presets library with 10,000 presets in 500 folders, beside a plain tree view of the same rows.

#include <ctime>
#include <malloc.h>

#include <QApplication>
#include <QFile>
#include <QStyleFactory>
#include <QTreeView>

#include <kestrixkit/filter_ui/KXFilterSetPresetDetailsViewController.h>
#include <kestrixkit/filter_ui/KXFilterSetPresetsViewController.h>
#include <kestrixkit/filters/KXFilterSet.h>
#include <kestrixkit/filters/KXFilters.h>
#include <kestrixkit/foundation/KXUndoManager.h>
#include <kestrixkit/theme/KXDarkTheme.h>
#include <kestrixkit/theme/KXThemeManager.h>
#include <kestrixkit/theme/KXThemeStyleNames.h>

#include "BenchProgram.h"
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
    return BenchProgram::run(argc, argv, prepareLibrary);
}
