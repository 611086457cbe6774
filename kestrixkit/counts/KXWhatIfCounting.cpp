// How what-if counts are counted: from the states of rows, and by the rows that change.

#include <kestrixkit/counts/KXWhatIfCounts_p.h>

#include <algorithm>

namespace {

constexpr KXWhatIfState whatIfFits = 0;
constexpr KXWhatIfState whatIfDead = 2; // as if it failed two parts: not counted anywhere
constexpr size_t whatIfBlock = 2048; // rows that are counted at a time, so that their states stay in the cache
constexpr size_t whatIfFewCodes = 512;

KXWhatIfState whatIfMark(size_t part) { return KXWhatIfState(part) << 16 | 1; }
bool whatIfFailsOne(KXWhatIfState state) { return (state & 0xFFFF) == 1; }
size_t whatIfPart(KXWhatIfState state) { return state >> 16; }

}

using WhatIfPart = KXWhatIfCountsPrivate::Part;

/// The table has counted what was due.
void KXWhatIfCountsPrivate::settle()
{
    isScheduled = false;
    if (!table().hasRows()) {
        hasChanged = std::exchange(isReady, false);
    } else if (isByStore()) {
        known.clear();
        needsAll = true;
        countsByStore = isReady = hasChanged = true;
    } else {
        const auto isDue = [this](const WhatIfPart &part) {
            return part.isChanged || (part.rule >= 0 && part.revision != table().revision(part.rule));
        };
        countsByStore = false;
        if (needsAll || std::any_of(parts.begin(), parts.end(), isDue))
            bringUpToDate();
        known.clear();
        isReady = true;
    }
    if (std::exchange(hasChanged, false))
        Q_EMIT q->countsDidChange();
}

void KXWhatIfCountsPrivate::bringUpToDate()
{
    const size_t rows = table().rowCount();
    states.resize(rows);
    for (size_t i = 0; i < parts.size(); ++i)
        prepareStates(i);
    histograms.clear();
    for (size_t i = 0; i < parts.size(); ++i) {
        if (!parts[i].counts)
            continue;
        const size_t codes = parts[i].counts->rows().size();
        histograms.push_back({ i, {} });
        histograms.back().few.resize(codes <= whatIfFewCodes ? codes : 0);
    }
    total = 0;
    for (size_t from = 0; from < rows; from += whatIfBlock) {
        const size_t to = std::min(rows, from + whatIfBlock);
        updateStates(from, to);
        fill(from, to);
    }
    finish();
}

/// What of the part the rows' states are to be changed by, if anything.
void KXWhatIfCountsPrivate::prepareStates(size_t number)
{
    WhatIfPart &part = parts[number];
    part.changes.clear();
    if (part.rule >= 0) {
        part.isChanged = needsAll ? !table().fitsAll(part.rule) : part.revision != table().revision(part.rule);
        if (needsAll)
            part.fits.clear();
        part.fits.resize(states.size(), 1);
    }
    if (!part.counts)
        return;
    if (!std::exchange(part.isRead, true))
        part.counts->readRows(states.size());
    if (part.rule < 0) {
        const std::vector<quint8> before = part.counts->failing();
        if (part.isChanged)
            part.counts->setChoices(part.facet.choices, part.facet.takesPart);
        part.isChanged = needsAll ? !part.counts->letsAllIn() : part.isChanged;
        if (part.isChanged) {
            const std::vector<quint8> now = part.counts->failing();
            for (size_t code = 0; code < now.size(); ++code) {
                const quint8 was = needsAll || code >= before.size() ? 0 : before[code];
                part.changes.push_back((KXWhatIfState(now[code]) - was) * whatIfMark(number));
            }
        }
    }
    part.counts->begin();
}

/// Which parts rows fail: all of them anew, or those that have changed.
void KXWhatIfCountsPrivate::updateStates(size_t from, size_t to)
{
    if (needsAll)
        std::fill(states.begin() + ptrdiff_t(from), states.begin() + ptrdiff_t(to), whatIfFits);
    for (size_t i = 0; i < parts.size(); ++i) {
        WhatIfPart &part = parts[i];
        if (part.isChanged && part.rule >= 0) {
            for (size_t row = from; row < to; ++row) {
                const quint8 fits = !table().isAlive(row) || table().rowFits(part.rule, row);
                states[row] += (KXWhatIfState(part.fits[row]) - fits) * whatIfMark(i);
                part.fits[row] = fits;
            }
        } else if (part.isChanged && part.counts) {
            const quint32 *codes = part.counts->codes();
            for (size_t row = from; row < to; ++row)
                states[row] += part.changes[codes[row]];
        }
    }
    for (size_t row = from; row < to && table().isAnyDead(); ++row) {
        if (!table().isAlive(row))
            states[row] = whatIfDead;
    }
}

/// Counts rows by their states: one that fails nothing everywhere, one that fails a single facet there.
void KXWhatIfCountsPrivate::fill(size_t from, size_t to)
{
    std::array<quint32, whatIfBlock> fitting, failing;
    size_t fits = 0, fails = 0;
    for (size_t row = from; row < to; ++row) {
        fitting[fits] = failing[fails] = quint32(row);
        fits += states[row] == whatIfFits;
        fails += whatIfFailsOne(states[row]);
    }
    total += qint64(fits);
    for (Histogram &histogram : histograms) {
        KXFacetCounts &facet = *parts[histogram.part].counts;
        const quint32 *codes = facet.codes();
        if (histogram.few.empty()) {
            std::vector<quint32> &rows = facet.rows();
            for (size_t i = 0; i < fits; ++i)
                ++rows[codes[fitting[i]]];
            continue;
        }
        // Neighbours often have the same code: they are counted in turns, so that none waits for the one before.
        for (size_t i = 0; i < fits; ++i)
            ++histogram.few[codes[fitting[i]]][i & 3];
    }
    for (size_t i = 0; i < fails; ++i) {
        const size_t row = failing[i], part = whatIfPart(states[row]);
        if (KXFacetCounts *facet = parts[part].counts.get())
            ++facet->rows()[facet->codes()[row]];
    }
}

void KXWhatIfCountsPrivate::finish()
{
    for (const Histogram &histogram : histograms) {
        std::vector<quint32> &rows = parts[histogram.part].counts->rows();
        for (size_t code = 0; code < histogram.few.size(); ++code) {
            for (const quint32 count : histogram.few[code])
                rows[code] += count;
        }
    }
    histograms.clear();
    for (WhatIfPart &part : parts) {
        if (part.counts)
            part.counts->finish();
        part.isChanged = false;
        if (part.rule >= 0)
            part.revision = table().revision(part.rule);
    }
    needsAll = false;
    hasChanged = true;
}

// Rows that change

void KXWhatIfCountsPrivate::count(size_t row, KXWhatIfState state, qint64 difference)
{
    if (state == whatIfFits) {
        total += difference;
        for (const WhatIfPart &part : parts) {
            if (part.counts)
                part.counts->count(part.counts->codes()[row], difference);
        }
    } else if (whatIfFailsOne(state)) {
        if (KXFacetCounts *facet = parts[whatIfPart(state)].counts.get())
            facet->count(facet->codes()[row], difference);
    }
    hasChanged = true;
}

void KXWhatIfCountsPrivate::rowLeaves(size_t row)
{
    if (!needsAll)
        count(row, std::exchange(states[row], whatIfDead), -1);
}

void KXWhatIfCountsPrivate::rowEnters(size_t row)
{
    for (const WhatIfPart &part : parts) {
        if (part.counts && part.isRead) // which outlasts states that are of no use
            part.counts->readRow(row);
    }
    if (needsAll)
        return;
    if (row >= states.size())
        states.resize(row + 1);
    KXWhatIfState state = whatIfFits;
    for (size_t i = 0; i < parts.size(); ++i) {
        WhatIfPart &part = parts[i];
        bool fits = true;
        if (part.rule >= 0) {
            fits = table().rowFits(part.rule, row);
            if (part.fits.size() < states.size())
                part.fits.resize(states.size(), 1);
            part.fits[row] = fits;
        } else if (part.counts) {
            fits = !part.counts->fails(part.counts->codes()[row]);
        }
        state += fits ? 0 : whatIfMark(i);
    }
    states[row] = state;
    count(row, state, 1);
}

void KXWhatIfCountsPrivate::setsDidChange(const KXCountColumn &column, const std::vector<quint32> &sets)
{
    for (const WhatIfPart &part : parts) {
        if (part.counts)
            part.counts->setsDidChange(column, sets);
    }
}

void KXWhatIfCountsPrivate::rowsDidMove()
{
    needsAll = true;
    for (WhatIfPart &part : parts) {
        part.isRead = false;
        part.fits.clear();
    }
}
