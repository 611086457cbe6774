#pragma once

#include <kestrixkit/toolkit/KXLiveListModel.h>

#include "library/LibraryEditor.h"

/// The library's tracks as a table, as DJs read them: what a live list's model shows, with stars, keys of the wheel,
/// and what is said of files that are gone.
class TrackTableModel : public KXLiveListModel
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
        NotesRole, ///< QString: what made no sense in the file's tags
        AnalysedRole, ///< bool: found by listening, in Bpm and KeyName, and not confirmed
        CutOffRole, ///< bool: the file is shorter than it says
        MixedRole, ///< bool: the rows that are edited together differ in that column; of the first thousand of them
    };

    /// The editor, which carries out what setData() is asked for, must outlive the model; without one nothing is
    /// edited.
    explicit TrackTableModel(
        const KXManagedObjectContext::Ref &context, LibraryEditor *editor = nullptr, QObject *parent = nullptr);

    QVariant data(const QModelIndex &index, int role = Qt::DisplayRole) const override;
    bool setData(const QModelIndex &index, const QVariant &value, int role = Qt::EditRole) override;
    /// Answers the rows that are edited together with one of them: the selected ones. Every row by itself without.
    void setRowsEditedTogether(std::function<QList<int>()> rows) { m_rowsEditedTogether = std::move(rows); }
    /// Asked first where one of the selected rows is edited: true where it edits all of them by itself.
    using BulkEdit
        = std::function<bool(const std::function<TrackFields::Properties()> &properties, const QString &actionName)>;
    void setBulkEdit(BulkEdit edit) { m_bulkEdit = std::move(edit); }
    [[nodiscard]] static QString title(Column column);
    /// What is edited there; absent where nothing is, or no text.
    [[nodiscard]] static std::optional<TrackFields::Field> fieldOf(int column);
    [[nodiscard]] static Column columnOf(TrackFields::Field field);
    /// What the column is sorted by; texts without regard to case and diacritics.
    [[nodiscard]] static KXSortDescriptor sortDescriptor(Column column);
    /// Shows only the tracks that match; all of them for an absent predicate.
    void setFilter(const KXPredicate &filter);
    void setOrder(const QList<KXSortDescriptor> &order);
    /// The next order waits for the filter that comes with it: a place is fetched once.
    void holdOrder() { m_holdsOrder = true; }
    [[nodiscard]] const KXPredicate &filter() const { return predicate(); }
    [[nodiscard]] bool isFiltered() const { return bool(predicate()); }

    /// Empty outside the table.
    [[nodiscard]] KXRef<Track> track(int row) const { return list().as<Track>(row); }
    [[nodiscard]] const KXLiveList &tracks() const { return list(); }

private:
    [[nodiscard]] QList<KXRef<Track>> editedWith(int row) const;

    LibraryEditor *const m_editor;

    [[nodiscard]] bool editsInBulk(
        int row, const std::function<TrackFields::Properties()> &properties, const QString &actionName) const;
    [[nodiscard]] QList<int> rowsEditedWith(int row) const;
    [[nodiscard]] bool isMixed(int row, TrackFields::Field field) const;
    [[nodiscard]] bool isAnalysed(const QModelIndex &index) const;

    std::function<QList<int>()> m_rowsEditedTogether;
    BulkEdit m_bulkEdit;
    bool m_holdsOrder = false;
    std::optional<QList<KXSortDescriptor>> m_heldOrder;
};
