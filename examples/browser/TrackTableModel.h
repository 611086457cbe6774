#pragma once

#include <array>
#include <memory>

#include <QAbstractTableModel>
#include <QCache>

#include <kestrixkit/store/KXFetchedList.h>
#include <kestrixkit/store/KXManagedObjectContext.h>

#include "Library.h"

/// The library's tracks as a table. It knows their identifiers and order; a row's values are looked up when it
/// is painted, and the rows last painted are kept as texts, so that a million tracks open as fast as a hundred.
class TrackTableModel : public QAbstractTableModel
{
    Q_OBJECT
public:
    enum Column {
        Title,
        Artist,
        AlbumTitle,
        GenreNames,
        Bpm,
        KeyName,
        Rating,
        Length,
        LabelNames,
        Year,
        Added,
        ColumnCount
    };
    enum Role {
        MissingRole = Qt::UserRole, ///< bool: the file is gone
        StarsRole, ///< int, 0 to 5
        KeyRole, ///< int: number on the wheel of keys, negative for minor; 0 in columns other than KeyName
    };

    explicit TrackTableModel(std::shared_ptr<KXManagedObjectContext> context, QObject *parent = nullptr);

    int rowCount(const QModelIndex &parent = {}) const override;
    int columnCount(const QModelIndex &parent = {}) const override;
    QVariant data(const QModelIndex &index, int role = Qt::DisplayRole) const override;
    QVariant headerData(int section, Qt::Orientation orientation, int role = Qt::DisplayRole) const override;
    /// Fetches the tracks in the order of that column.
    void sort(int column, Qt::SortOrder order = Qt::AscendingOrder) override;

    /// Typing looks for a row by its text only in libraries small enough to be read through.
    QModelIndexList match(
        const QModelIndex &start, int role, const QVariant &value, int hits, Qt::MatchFlags flags) const override;

    /// Fetches the tracks again, in the same order.
    void refetch();
    [[nodiscard]] KXManagedObjectID trackID(int row) const;
    /// -1 where the track is not among the first rows that are worth searching (100,000), or not there.
    [[nodiscard]] int rowOf(const KXManagedObjectID &track) const;

private:
    struct Row
    {
        std::array<QString, ColumnCount> texts;
        QString notes;
        bool missing = false;
        int stars = 0;
        int key = 0;
    };
    const Row &row(int number) const;
    Row makeRow(const Track &track) const;

    std::shared_ptr<KXManagedObjectContext> m_context;
    KXFetchedList m_tracks;
    mutable QCache<int, Row> m_rows { 1024 };
    int m_sortColumn = Added;
    Qt::SortOrder m_sortOrder = Qt::DescendingOrder;
};
