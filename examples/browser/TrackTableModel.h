#pragma once

#include <array>
#include <memory>

#include <QAbstractTableModel>
#include <QCache>

#include <kestrixkit/context/KXLiveList.h>

#include "LibraryEditor.h"

/// The library's tracks as a table. It knows their identifiers and order; a row's values are looked up when it
/// is painted, and the rows last painted are kept as texts, so that a million tracks open as fast as a hundred.
///
/// Follows the context row by row, sorting included: indexes, selections and editors stay with their tracks.
class TrackTableModel : public QAbstractTableModel, private KXLiveListObserver
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
        Comment,
        Waveform,
        ColumnCount
    };
    enum Role {
        MissingRole = Qt::UserRole, ///< bool: the file is gone
        StarsRole, ///< int, 0 to 5; may be set
        LocationRole, ///< QUrl: the file
        KeyRole, ///< int: number on the wheel of keys, negative for minor; 0 in columns other than KeyName
    };

    /// The editor, which carries out what setData() is asked for, must outlive the model; without one nothing is
    /// edited.
    explicit TrackTableModel(
        const KXManagedObjectContext::Ref &context, LibraryEditor *editor = nullptr, QObject *parent = nullptr);

    int rowCount(const QModelIndex &parent = {}) const override;
    int columnCount(const QModelIndex &parent = {}) const override;
    QVariant data(const QModelIndex &index, int role = Qt::DisplayRole) const override;
    bool setData(const QModelIndex &index, const QVariant &value, int role = Qt::EditRole) override;
    Qt::ItemFlags flags(const QModelIndex &index) const override;
    QVariant headerData(int section, Qt::Orientation orientation, int role = Qt::DisplayRole) const override;
    /// Puts the tracks in the order of that column.
    void sort(int column, Qt::SortOrder order = Qt::AscendingOrder) override;
    void setSortDescriptors(const QList<KXSortDescriptor> &descriptors);
    /// What the column is sorted by; texts without regard to case and diacritics.
    [[nodiscard]] static KXSortDescriptor sortDescriptor(Column column);
    /// Shows only the tracks that match; all of them for an absent predicate.
    void setFilter(const KXPredicate &filter);
    [[nodiscard]] const KXPredicate &filter() const { return m_filter; }
    [[nodiscard]] bool isFiltered() const { return bool(m_filter); }

    /// Typing looks for a row by its text only in libraries small enough to be read through.
    QModelIndexList match(
        const QModelIndex &start, int role, const QVariant &value, int hits, Qt::MatchFlags flags) const override;

    /// Empty outside the table.
    [[nodiscard]] KXRef<Track> track(int row) const { return m_tracks.as<Track>(row); }
    [[nodiscard]] const KXLiveList &tracks() const { return m_tracks; }

private:
    struct Row
    {
        std::array<QString, ColumnCount> texts;
        QString notes;
        QUrl location;
        bool missing = false;
        int stars = 0;
        int key = 0;
    };
    [[nodiscard]] KXFetchRequest request() const;
    void listWillChange(const KXListStep &step) override;
    void listDidChange(const KXListStep &step) override;
    const Row &row(int number) const;
    Row makeRow(const Track &track) const;

    LibraryEditor *const m_editor;
    QList<KXSortDescriptor> m_sortDescriptors { sortDescriptor(Added) };
    KXPredicate m_filter;
    KXLiveList m_tracks;
    mutable QCache<qint64, Row> m_rows { 1024 }; // by the tracks' keys
    // While rows change places: the indexes that somebody holds, and whose they are.
    QModelIndexList m_heldIndexes;
    std::vector<qint64> m_heldKeys;
};
