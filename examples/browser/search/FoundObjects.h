#pragma once

#include <QObject>

#include <kestrixkit/context/KXManagedObjectContext.h>

class FilterStrip;
class PlaceNavigator;
class Preview;
class SourceColumn;
class TrackTableModel;
class TrackTableView;

/// Shows what was found where it lies: a track by its row, anything else as a place of its own.
class FoundObjects : public QObject
{
    Q_OBJECT
public:
    /// What it leads to; all of them outlive this.
    struct Parts
    {
        KXManagedObjectContext::Ref context;
        SourceColumn *sources;
        PlaceNavigator *places;
        FilterStrip *strip;
        TrackTableView *table;
        TrackTableModel *model;
        Preview *preview;
    };

    explicit FoundObjects(Parts parts, QObject *parent = nullptr);

    /// Where the place that is shown is without the track all tracks are shown. False where there is no such track.
    bool showTrack(const KXManagedObjectID &track);
    /// Opens the place where it lies, with its row selected.
    void show(const KXManagedObjectID &found);
    void play(const KXManagedObjectID &found);

private:
    [[nodiscard]] int rowOf(const KXManagedObjectID &track) const;

    const Parts m_parts;
};
