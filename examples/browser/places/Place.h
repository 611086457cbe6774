#pragma once

#include <optional>

#include <QCborArray>
#include <QList>
#include <QUrl>

#include <kestrixkit/predicate/KXFetchRequest.h>

/// From the tracks of one place to others that have something in common with one of them.
struct PlaceStep
{
    enum Kind : quint8 { ToArtist = 1, ToAlbum, ToGenre, ToLabel, ToAlike }; ///< kept in files: new ones at the end

    Kind kind = ToArtist;
    QUrl object; ///< the artist, album, genre or label; the track that others sound like

    friend bool operator==(const PlaceStep &, const PlaceStep &) = default;
};

/// What the table shows the tracks of: what is selected to the left, and the steps that were taken from there. A value.
struct Place
{
    QList<QUrl> source; ///< of the selected rows; empty where nothing is selected
    QList<PlaceStep> trail;

    friend bool operator==(const Place &, const Place &) = default;
};

/// How a place is looked at: what is selected, in which order, scrolled to where. A value; tracks by their keys.
struct PlaceView
{
    static constexpr qsizetype MostSelected = 500;

    qint64 top = 0; ///< the track of the topmost row; 0 at the very beginning
    int offset = 0; ///< points of that row that are scrolled out
    int across = 0; ///< points scrolled to the side
    qint64 current = 0; ///< 0 for none
    int column = 0; ///< of the current cell
    QList<qint64> selected;
    QList<KXSortDescriptor> order;
    QString words; ///< that the list is narrowed by
    std::optional<QList<QUrl>> open; ///< rows to the left; absent: as they are
};

/// Values as they are kept. Reading answers false for what makes none.
namespace PlaceArchive {

QCborValue of(const Place &place);
bool read(const QCborValue &value, Place &place);
QCborValue of(const PlaceView &view);
bool read(const QCborValue &value, PlaceView &view);

} // namespace PlaceArchive
