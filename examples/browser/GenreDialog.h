#pragma once

#include <QDialog>

#include "LibraryEditor.h"

class QComboBox;
class QDialogButtonBox;
class QLabel;
class QLineEdit;

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
    QComboBox *m_choice;
    QLineEdit *m_name;
    QLabel *m_objection;
    QDialogButtonBox *m_buttons;
};
