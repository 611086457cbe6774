#pragma once

#include "TrackSection.h"

class KXStarRating;
class KXThemeableTextField;
class LibraryEditor;

/// What the user may change of a track, each change a step to undo. Stars go to all selected tracks.
class TrackTagsSection : public TrackSection
{
    Q_OBJECT
public:
    /// The editor is borrowed.
    explicit TrackTagsSection(LibraryEditor *editor, QObject *parent = nullptr);

protected:
    void makeRows(QVBoxLayout &rows) override;
    void showTracks() override;

private:
    void edit(KXThemeableTextField *field, const QString &key);

    LibraryEditor *const m_editor;
    KXStarRating *m_stars = nullptr;
    QList<std::pair<QString, KXThemeableTextField *>> m_fields; // by key
};
