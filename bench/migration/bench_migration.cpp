// Migrating a store of a million tracks, beside the same work in plain SQL, and the memory that it takes.

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <malloc.h>

#include <QFile>

#include "BenchProgram.h"
#include "peer/plain_migration.h"
#include "store/BenchLibrary.h"

using namespace Qt::StringLiterals;

namespace {

/// The bench library's model with two columns renamed and one more.
KXManagedObjectModel::Ref newModel()
{
    KXEntityDescription track(u"Track"_s);
    const auto before = BenchLibrary::model(true);
    for (const KXPropertyDescription &old : before->entity(u"Track"_s)->properties()) {
        QString name = old.name();
        name = name == "genre"_L1 ? u"style"_s : name == "plays"_L1 ? u"playCount"_s : name;
        auto property = KXPropertyDescription::attribute(name, old.type());
        if (old.isIndexed())
            property.indexed();
        track.add(property.renamedFrom(old.name()));
    }
    track.add(KXPropertyDescription::attribute(u"mood"_s, KXAttributeType::String).withDefault(u"calm"_s));
    return KXManagedObjectModel::make({ track });
}

/// CPU time of the process: one thread works.
double cpuSeconds()
{
    timespec time {};
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &time);
    return double(time.tv_sec) + double(time.tv_nsec) * 1e-9;
}

/// A line of /proc/self/status, in MiB.
double statusMiB(const char *key)
{
    QFile file(u"/proc/self/status"_s);
    if (!file.open(QIODevice::ReadOnly))
        std::exit(1);
    for (const QByteArray &line : file.readAll().split('\n')) {
        if (line.startsWith(key))
            return line.mid(qsizetype(std::strlen(key))).trimmed().split(' ').first().toDouble() / 1024;
    }
    return 0;
}

void migrateOurs(const QString &path)
{
    KXError error;
    if (!KXPersistentStoreCoordinator::migrateURL(
            QUrl::fromLocalFile(path), BenchLibrary::model(true), newModel(), &error)) {
        std::fprintf(stderr, "%s\n", qPrintable(error.localizedDescription()));
        std::exit(1);
    }
}

template <typename Work> void timed(benchmark::State &state, Work &&work)
{
    const QString path = BenchLibrary::scratchCopy(BenchLibrary::storePath(true));
    const double start = cpuSeconds();
    work(path);
    BenchProgram::report(state, (cpuSeconds() - start) * 1e3);
}

void timeOurs(benchmark::State &state)
{
    timed(state, [](const QString &path) { migrateOurs(path); });
}

void timePeer(benchmark::State &state)
{
    timed(state, [](const QString &path) { plain::migrate(path, path + ".new"_L1); });
}

void memoryOurs(benchmark::State &state)
{
    const QString path = BenchLibrary::scratchCopy(BenchLibrary::storePath(true));
    malloc_trim(0);
    QFile references(u"/proc/self/clear_refs"_s);
    if (!references.open(QIODevice::WriteOnly) || references.write("5") != 1) // the peak is counted from here
        return state.SkipWithError("no peak of memory");
    references.close();
    const double before = statusMiB("VmRSS:");
    migrateOurs(path);
    BenchProgram::report(state, statusMiB("VmHWM:") - before);
}

}

int main(int argc, char **argv)
{
    BenchProgram::add("migration.time/ours", timeOurs);
    BenchProgram::add("migration.time/peer", timePeer);
    BenchProgram::add("migration.memory/ours", memoryOurs);
    return BenchProgram::run(argc, argv, BenchLibrary::prepare);
}
