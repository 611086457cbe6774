#include "counts/WhatIfBench.h"

#include <ctime>
#include <malloc.h>
#include <random>

#include <QDir>
#include <QFile>

#include <kestrixkit/context/KXManagedObjectOf.h>
#include <kestrixkit/counts/KXWhatIfCounts.h>

#include "BenchProgram.h"
#include "peer/hand_facets.h"
#include "store/BenchLibrary.h"

using namespace Qt::StringLiterals;

namespace {

constexpr int pieces = 200'000;
constexpr int pieceEdits = 20'000;

class BenchPiece : public KXManagedObjectOf<BenchPiece>
{
public:
    static constexpr QLatin1StringView entityName { "Piece" };
};

double whatIfSeconds()
{
    timespec time {};
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &time);
    return double(time.tv_sec) + double(time.tv_nsec) * 1e-9;
}

QString pathOfFacet(int facet) { return u"facet%1"_s.arg(facet); }
QString textOfValue(uint32_t value) { return u"Value %1"_s.arg(value); }
QString piecesPath() { return BenchLibrary::emptyStorePath().chopped(8) + u"facets-200k.db"_s; }

KXManagedObjectContext::Ref openPieces(const QString &path)
{
    BenchPiece::registerEntity();
    static const KXManagedObjectModel::Ref model = [] {
        KXEntityDescription piece(u"Piece"_s);
        for (int facet = 0; facet < hand::Facets; ++facet)
            piece.add(KXPropertyDescription::attribute(pathOfFacet(facet), KXAttributeType::String));
        return KXManagedObjectModel::make({ piece });
    }();
    const auto coordinator
        = KXPersistentStoreCoordinator::persistentStoreCoordinatorWithStoreURL(QUrl::fromLocalFile(path), model);
    if (!coordinator)
        std::exit(1);
    const auto context = KXManagedObjectContext::contextWithPersistentStoreCoordinator(coordinator);
    context->setUndoManager(nullptr); // which the peers have none of
    return context;
}

/// As music has it: of the values of a facet some are common and most are rare.
const std::vector<hand::Piece> &handPieces()
{
    static const std::vector<hand::Piece> all = [] {
        std::mt19937 random(12);
        std::vector<hand::Piece> made(pieces);
        for (hand::Piece &piece : made) {
            for (uint32_t &value : piece.values)
                value = std::min(uint32_t(random() % hand::Values), uint32_t(random() % hand::Values));
        }
        return made;
    }();
    return all;
}

/// Three facets with some values asked for: about one track in twenty is found.
const hand::FacetSearch &handSearch()
{
    static const hand::FacetSearch search = [] {
        hand::FacetSearch made;
        for (const int facet : { 1, 4, 9 }) {
            made.isChosen[size_t(facet)] = true;
            for (int value = facet; value < facet + 10; ++value)
                made.included[size_t(facet)][size_t(value)] = true;
        }
        return made;
    }();
    return search;
}

struct WhatIf
{
    explicit WhatIf(const QString &path)
        : context(openPieces(path))
        , live(context, u"Piece"_s)
        , counts(live)
    {
        for (int facet = 0; facet < hand::Facets; ++facet) {
            KXWhatIfCounts::Facet asked;
            asked.keyPath = pathOfFacet(facet);
            for (uint32_t value = 0; value < hand::Values; ++value) {
                asked.values.append(textOfValue(value));
                if (handSearch().included[size_t(facet)][value])
                    asked.choices.append({ textOfValue(value), KXPredicateOperator::Equal });
            }
            counts.setFacet(asked.keyPath, asked);
        }
        if (!counts.update())
            std::exit(1);
    }
    [[nodiscard]] QList<QList<KXWhatIfCounts::ValueCounts>> all() const
    {
        QList<QList<KXWhatIfCounts::ValueCounts>> all;
        for (int facet = 0; facet < hand::Facets; ++facet)
            all.append(counts.valueCounts(pathOfFacet(facet)));
        return all;
    }
    KXManagedObjectContext::Ref context;
    KXLiveCounts live;
    KXWhatIfCounts counts;
};

/// What the hand's histograms say of the values that are not chosen.
bool areEqual(const QList<QList<KXWhatIfCounts::ValueCounts>> &ours, const hand::FacetCounts &theirs)
{
    for (size_t facet = 0; facet < hand::Facets; ++facet) {
        for (size_t value = 0; value < hand::Values; ++value) {
            if (handSearch().included[facet][value])
                continue;
            const int64_t added = theirs.gained[facet][value] + (handSearch().isChosen[facet] ? theirs.total : 0);
            if (ours[qsizetype(facet)][qsizetype(value)]
                != KXWhatIfCounts::ValueCounts { added, theirs.total - theirs.lost[facet][value] })
                return false;
        }
    }
    return true;
}

void whatIfOurs(benchmark::State &state)
{
    WhatIf whatIf(piecesPath());
    malloc_trim(0);
    const double start = whatIfSeconds();
    whatIf.counts.recount();
    const auto all = whatIf.all();
    const double seconds = whatIfSeconds() - start;
    hand::FacetCounts counts;
    hand::countFacets(handPieces().data(), handPieces().size(), handSearch(), counts);
    if (!areEqual(all, counts))
        return state.SkipWithError("wrong counts");
    BenchProgram::report(state, seconds * 1e3);
}

void whatIfPeer(benchmark::State &state)
{
    const auto &rows = handPieces();
    hand::FacetCounts counts;
    malloc_trim(0);
    const double start = whatIfSeconds();
    hand::countFacets(rows.data(), rows.size(), handSearch(), counts);
    const double seconds = whatIfSeconds() - start;
    benchmark::DoNotOptimize(counts);
    BenchProgram::report(state, seconds * 1e3);
}

/// Values that some tracks get one after the other; half of the changes are to a facet with choices.
template <typename Change> double timeOfPieceEdits(KXManagedObjectContext &context, Change &&change)
{
    const KXFetchedList all = context.fetch(KXFetchRequest(u"Piece"_s).setFetchLimit(1000));
    std::vector<KXRef<KXManagedObject>> held;
    for (const KXRef<KXManagedObject> &object : all)
        held.push_back(object);
    std::vector<QString> texts;
    for (uint32_t value = 0; value < hand::Values; ++value)
        texts.push_back(textOfValue(value));
    const QString paths[] = { pathOfFacet(3), pathOfFacet(4) };
    std::mt19937 random(3);
    const double start = whatIfSeconds();
    for (int i = 0; i < pieceEdits; ++i) {
        const size_t row = size_t(i) % held.size();
        const uint32_t value = random() % hand::Values;
        held[row]->setValueForKey(paths[i / 1000 % 2], texts[value]);
        context.processPendingChanges();
        change(row, size_t(3 + i / 1000 % 2), value);
    }
    return whatIfSeconds() - start;
}

/// What the counts add to an edit until all of them are right: with them, less the same edits without.
void whatIfChangeOurs(benchmark::State &state)
{
    const auto nothing = [](size_t, size_t, uint32_t) {};
    double without = 0;
    {
        const auto plain = openPieces(BenchLibrary::scratchCopy(piecesPath()));
        malloc_trim(0);
        without = timeOfPieceEdits(*plain, nothing);
    }
    WhatIf whatIf(BenchLibrary::scratchCopy(piecesPath()));
    malloc_trim(0);
    const double with = timeOfPieceEdits(*whatIf.context, nothing);
    const auto followed = whatIf.all();
    whatIf.counts.recount();
    if (followed != whatIf.all())
        return state.SkipWithError("wrong counts");
    BenchProgram::report(state, (with - without) * 1e3);
}

/// The affected cells alone.
void whatIfChangePeer(benchmark::State &state)
{
    auto rows = handPieces();
    hand::FacetCounts counts;
    hand::countFacets(rows.data(), rows.size(), handSearch(), counts);
    std::mt19937 random(3);
    const double start = whatIfSeconds();
    for (int i = 0; i < pieceEdits; ++i) {
        hand::Piece &piece = rows[size_t(i) % 1000];
        const hand::Piece before = piece;
        piece.values[size_t(3 + i / 1000 % 2)] = random() % hand::Values;
        hand::changeFacets(before, piece, handSearch(), counts);
    }
    const double seconds = whatIfSeconds() - start;
    benchmark::DoNotOptimize(counts);
    BenchProgram::report(state, seconds * 1e3);
}

/// From the edit of a track until all counts are right: what the user waits for.
void whatIfEditOurs(benchmark::State &state)
{
    WhatIf whatIf(BenchLibrary::scratchCopy(piecesPath()));
    malloc_trim(0);
    const double seconds = timeOfPieceEdits(*whatIf.context, [](size_t, size_t, uint32_t) {});
    const auto followed = whatIf.all();
    whatIf.counts.recount();
    if (followed != whatIf.all())
        return state.SkipWithError("wrong counts");
    BenchProgram::report(state, seconds * 1e3);
}

void whatIfEditPeer(benchmark::State &state)
{
    auto rows = handPieces();
    hand::FacetCounts counts;
    hand::countFacets(rows.data(), rows.size(), handSearch(), counts);
    const auto context = openPieces(BenchLibrary::scratchCopy(piecesPath()));
    malloc_trim(0);
    const double seconds = timeOfPieceEdits(*context, [&](size_t row, size_t facet, uint32_t value) {
        const hand::Piece before = rows[row];
        rows[row].values[facet] = value;
        hand::changeFacets(before, rows[row], handSearch(), counts);
    });
    benchmark::DoNotOptimize(counts);
    BenchProgram::report(state, seconds * 1e3);
}

}

void WhatIfBench::add()
{
    BenchProgram::add("counts.whatif/ours", whatIfOurs);
    BenchProgram::add("counts.whatif/peer", whatIfPeer);
    BenchProgram::add("counts.whatif-change/ours", whatIfChangeOurs);
    BenchProgram::add("counts.whatif-change/peer", whatIfChangePeer);
    BenchProgram::add("counts.whatif-edit/ours", whatIfEditOurs);
    BenchProgram::add("counts.whatif-edit/peer", whatIfEditPeer);
}

void WhatIfBench::prepare()
{
    if (QFile::exists(piecesPath()))
        return;
    const QString making = piecesPath() + u".making"_s;
    QFile::remove(making);
    {
        const auto context = openPieces(making);
        for (size_t i = 0; i < handPieces().size(); ++i) {
            const auto piece = BenchPiece::createInContext(*context);
            for (int facet = 0; facet < hand::Facets; ++facet)
                piece->setValueForKey(pathOfFacet(facet), textOfValue(handPieces()[i].values[size_t(facet)]));
            if (i % 50'000 == 49'999 && !context->save())
                std::exit(1);
        }
    }
    QFile::rename(making, piecesPath());
}
