#include "library/CrateBench.h"

#include <ctime>
#include <malloc.h>

#include <QFile>

#include <kestrixkit/foundation/KXUndoManager.h>

#include <crates/CrateEditor.h>

#include "BenchProgram.h"
#include "peer/plain_crates.h"
#include "store/BenchLibrary.h"

using namespace Qt::StringLiterals;

namespace {

constexpr int crateTracks = 300'000; // of the library
constexpr int crateFilled = 100'000;
constexpr int crateDropped = 10'000;

double crateCpuSeconds()
{
    timespec time {};
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &time);
    return double(time.tv_sec) + double(time.tv_nsec) * 1e-9;
}

KXManagedObjectContext::Ref openCrates(const QString &path)
{
    Library::registerEntities();
    KXError error;
    const auto coordinator = Library::open(path, &error);
    if (!coordinator) {
        std::fprintf(stderr, "%s\n", qPrintable(error.localizedDescription()));
        std::exit(1);
    }
    const auto context = KXManagedObjectContext::contextWithPersistentStoreCoordinator(coordinator);
    context->setUndoManager(std::make_shared<KXUndoManager>());
    return context;
}

KXRef<Crate> theCrate(KXManagedObjectContext &context)
{
    return Crate::findFirstUsingPredicate(KXPredicate::predicateWithFormat("name == %@", u"Full"_s), context);
}

/// Every twentieth of the dropped ones is in the crate already.
std::vector<qint64> droppedKeys(const std::vector<qint64> &all)
{
    std::vector<qint64> keys;
    for (int i = 0; i < crateDropped; ++i)
        keys.push_back(i % 20 == 0 ? all[size_t(i)] : all[size_t(crateFilled + i * 7 % (crateTracks - crateFilled))]);
    return keys;
}

/// In the order of their keys.
std::vector<qint64> allTracks(KXManagedObjectContext &context)
{
    std::vector<qint64> keys = context.fetchAllForEntity(QString(Track::entityName)).keys();
    std::sort(keys.begin(), keys.end());
    return keys;
}

void crateAddOurs(benchmark::State &state)
{
    const auto context = openCrates(BenchLibrary::scratchCopy(CrateBench::path()));
    const KXRef<Crate> crate = theCrate(*context);
    CrateEditor editor(context);
    const std::vector<qint64> dropped = droppedKeys(allTracks(*context));
    malloc_trim(0);
    const double start = crateCpuSeconds();
    const qsizetype came = editor.add(crate, dropped);
    const double seconds = crateCpuSeconds() - start;
    if (came != crateDropped * 19 / 20 || editor.membership().count(crate->objectID()) != crateFilled + came)
        return state.SkipWithError("wrong crate");
    BenchProgram::report(state, seconds * 1e3);
}

void crateAddPeer(benchmark::State &state)
{
    const QString path = BenchLibrary::scratchCopy(CrateBench::path());
    std::vector<qint64> dropped;
    qint64 crate = 0;
    {
        const auto context = openCrates(path);
        dropped = droppedKeys(allTracks(*context));
        crate = theCrate(*context)->objectID().key();
    }
    plain::Crates crates(path);
    malloc_trim(0);
    const double start = crateCpuSeconds();
    const size_t came = crates.add(crate, dropped);
    const double seconds = crateCpuSeconds() - start;
    if (came != crateDropped * 19 / 20 || crates.count(crate) != crateFilled + qint64(came))
        return state.SkipWithError("wrong crate");
    BenchProgram::report(state, seconds * 1e3);
}

}

QString CrateBench::path() { return BenchLibrary::emptyStorePath().chopped(8) + u"crates-300k.db"_s; }

void CrateBench::add()
{
    BenchProgram::add("library.crate-add/ours", crateAddOurs);
    BenchProgram::add("library.crate-add/peer", crateAddPeer);
}

void CrateBench::prepare()
{
    if (QFile::exists(path()))
        return;
    const QString making = path() + u".making"_s;
    QFile::remove(making);
    {
        const auto context = openCrates(making);
        const KXUndoRegistrationOff unrecorded(context->undoManager());
        BenchLibrary::Source source;
        for (int i = 0; i < crateTracks; ++i) {
            const PlainTrack plain = source.next();
            const auto track = Track::createInContext(*context);
            track->setLocation(QUrl(u"file:///music/%1.flac"_s.arg(i)));
            track->setFileSize(i);
            track->setFileModified(i);
            track->setTitle(plain.title);
            track->setArtistText(plain.artist);
            track->setAlbumText(plain.album);
            track->setBpm(plain.bpm);
            track->setAdded(QDateTime(QDate(2024, 1, 1), QTime(0, 0), Qt::UTC).addSecs(i));
            if (i % 20'000 == 19'999 && !context->save())
                std::exit(1);
        }
        const std::vector<qint64> all = allTracks(*context);
        CrateEditor editor(context);
        if (!editor.make(Crate::Kind::Plain, {}, u"Full"_s, std::span(all).first(crateFilled)))
            std::exit(1);
    }
    QFile::rename(making, path());
}
