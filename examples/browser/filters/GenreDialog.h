#pragma once

#include <QDialog>

#include "library/LibraryEditor.h"

class KXThemeableButton;
class KXThemeablePopUpButton;
class KXThemeableTextField;

/// Asks for a genre's new name. A name that cannot be given is said why, and not accepted.
class GenreDialog : public QDialog
{
    Q_OBJECT
public:
    /// Offers the genres, of which there is at least one.
    GenreDialog(LibraryEditor *editor, const QList<KXRef<Genre>> &genres, QWidget *parent);

    void accept() override;

private:
    void genreChosen();
    void nameChanged();
    [[nodiscard]] KXRef<Genre> genre() const;

    LibraryEditor *const m_editor;
    const QList<KXRef<Genre>> m_genres;
    KXThemeablePopUpButton *m_choice;
    KXThemeableTextField *m_name;
    KXThemeableTextField *m_objection;
    KXThemeableButton *m_rename;
};
