#pragma once

#include <optional>

#include "places/Place.h"

/// The places that were visited, as one can go back and forward among them, each as it was left; and how each place was
/// left last, for whoever opens it anew. A value without a window; bounded.
class PlaceHistory
{
public:
    static constexpr qsizetype MostEntries = 100;
    static constexpr qsizetype MostRemembered = 200; ///< places, of how they were left

    struct Entry
    {
        Place place;
        std::optional<PlaceView> view; ///< absent until it is left
    };

    /// nullptr before anything was visited.
    [[nodiscard]] const Entry *current() const;
    /// Goes on to a place; what lay forward is forgotten. The current one again is no step.
    void visit(const Place &place);
    /// The entry that lies so many steps forward, or back; nullptr where there is none.
    [[nodiscard]] const Entry *peek(qsizetype steps) const;
    void go(qsizetype steps);
    /// Takes an entry out, other than the current one: its place is gone.
    void forget(qsizetype steps);
    /// How the current one looks, as it is left.
    void leave(const PlaceView &view);
    /// Absent where it was never left, or long ago.
    [[nodiscard]] std::optional<PlaceView> viewOf(const Place &place) const;

    [[nodiscard]] QByteArray archived() const;
    /// Empty for what is no history; single entries that make no sense are left out.
    [[nodiscard]] static PlaceHistory ofArchive(const QByteArray &bytes);

private:
    QList<Entry> m_entries;
    qsizetype m_current = -1;
    QList<Entry> m_left; // last left last
};
