#pragma once

#include <functional>

#include "inspector/TrackSection.h"
#include "library/TrackFields.h"

class KXStarRating;
class KXThemeableTextField;
class LibraryEditor;

/// What the user may change of tracks, each change a step to undo. Where they differ a field is empty and says so;
/// nothing changes until something is entered.
class TrackTagsSection : public TrackSection
{
    Q_OBJECT
public:
    /// Edits all selected rows of the table, which may be more than are shown here; false where nothing changed.
    using EditAll = std::function<bool(int column, const QVariant &value, int role)>;

    /// The editor is borrowed. From so many tracks on `editAll` is asked instead.
    TrackTagsSection(LibraryEditor *editor, qsizetype most, EditAll editAll, QObject *parent = nullptr);

protected:
    void makeRows(QVBoxLayout &rows) override;
    void showTracks() override;

private:
    void rate(int stars);
    void edit(KXThemeableTextField *line, TrackFields::Field field);
    void show(KXThemeableTextField *line, TrackFields::Field field);

    LibraryEditor *const m_editor;
    const qsizetype m_most;
    const EditAll m_editAll;
    KXStarRating *m_stars = nullptr;
    QList<KXRef<Track>> m_shown;
    QList<std::pair<TrackFields::Field, KXThemeableTextField *>> m_fields;
};
