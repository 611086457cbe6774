#pragma once

#include <vector>

#include <QHash>
#include <QObject>

#include <kestrixkit/context/KXLiveList.h>
#include <kestrixkit/counts/KXLiveCounts.h>
#include <kestrixkit/filter_ui/KXViewState.h>
#include <kestrixkit/toolkit/KXTreeController.h>

#include "library/Library.h"

/// The places of the library, as view states in its store: all tracks, those added lately, those that are there
/// more than once, and the genres, which come and go with the music. What is done here is not the user's and cannot be
/// undone.
class LibraryPlaces : public QObject, private KXLiveListObserver
{
    Q_OBJECT
public:
    /// Stored as tags of the top level: new ones at the end. Places below Genres have their genre's key as tag.
    enum Tag : qint64 { AllTracks = 1, RecentlyAdded = 2, Genres = 3, StartingPresets = 4, Duplicates = 5, Shop = 6 };

    static void registerEntity();

    /// Makes what is missing.
    explicit LibraryPlaces(KXManagedObjectContext::Ref context, QObject *parent = nullptr);
    ~LibraryPlaces() override;

    /// For a tree of them, with the shop's row or without.
    [[nodiscard]] static KXTreeRequest request(bool withShop);
    /// Empty for a shop that was never shown: see makeShop().
    [[nodiscard]] KXRef<KXViewState> place(Tag tag) const { return m_places.value(tag); }
    /// The tracks of a place; absent for all of them, false for a genre that has gone.
    [[nodiscard]] KXPredicate predicate(const KXViewState &place) const;
    /// Empty for a place that is none.
    [[nodiscard]] KXRef<Genre> genre(const KXViewState &place) const;

    /// Makes the shop's place where there is none yet. It stays when the shop goes, with the filters that belong to it.
    void makeShop();

    /// Takes over the genres at once instead of in the next turn.
    void followGenres();

    /// Keeps the counts of the places right: of all tracks, and among those that the given ones count.
    void countWith(KXLiveCounts &counts);
    /// Counts at once what is due, instead of in the next turn; tries again where the store did not answer.
    void updateCounts();
    void finishCounting();

    /// Whether the presets that a library begins with were made. Said once, it is so for good.
    [[nodiscard]] bool hasStartingPresets() const { return m_places.contains(StartingPresets); }
    void setHasStartingPresets();

private:
    void listWillChange(const KXListStep &) override { }
    void listDidChange(const KXListStep &) override;
    KXRef<KXViewState> make(const QString &title, qint64 tag, const KXRef<KXViewState> &parent);
    void makePlaces();
    void makeMissing(const std::vector<std::pair<Tag, QString>> &wanted);
    void setRule(const KXRef<KXViewState> &place);

    const KXManagedObjectContext::Ref m_context;
    QHash<qint64, KXRef<KXViewState>> m_places; // of the top level, by tag
    QHash<qint64, KXRef<KXViewState>> m_genrePlaces; // by the genres' keys
    KXLiveList m_genres;
    std::unique_ptr<KXLiveCounts> m_all;
    QPointer<KXLiveCounts> m_counts;
    QHash<QString, KXRef<KXViewState>> m_counted; // by identifier
    bool m_followIsDue = false;
};
