#include "GenreDialog.h"

#include <QComboBox>
#include <QDialogButtonBox>
#include <QFormLayout>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>

GenreDialog::GenreDialog(LibraryEditor *editor, const QList<KXRef<Genre>> &genres, QWidget *parent)
    : QDialog(parent)
    , m_editor(editor)
    , m_genres(genres)
    , m_choice(new QComboBox)
    , m_name(new QLineEdit)
    , m_objection(new QLabel)
    , m_buttons(new QDialogButtonBox(QDialogButtonBox::Ok | QDialogButtonBox::Cancel))
{
    setWindowTitle(tr("Rename Genre"));
    setAttribute(Qt::WA_DeleteOnClose);
    for (const KXRef<Genre> &genre : genres)
        m_choice->addItem(genre->name());
    m_choice->setAccessibleName(tr("Genre"));
    m_choice->setEnabled(genres.size() > 1);
    m_name->setAccessibleName(tr("New name"));
    m_name->setMinimumWidth(300);
    m_objection->setForegroundRole(QPalette::PlaceholderText);
    m_buttons->button(QDialogButtonBox::Ok)->setText(tr("&Rename"));

    auto *form = new QFormLayout(this);
    form->addRow(tr("&Genre:"), m_choice);
    form->addRow(tr("&New name:"), m_name);
    form->addRow(QString(), m_objection);
    form->addRow(m_buttons);
    connect(m_choice, &QComboBox::currentIndexChanged, this, &GenreDialog::genreChosen);
    connect(m_name, &QLineEdit::textChanged, this, &GenreDialog::nameChanged);
    connect(m_buttons, &QDialogButtonBox::accepted, this, &GenreDialog::accept);
    connect(m_buttons, &QDialogButtonBox::rejected, this, &GenreDialog::reject);
    genreChosen();
    m_name->setFocus();
}

KXRef<Genre> GenreDialog::genre() const { return m_genres.value(m_choice->currentIndex()); }

void GenreDialog::genreChosen()
{
    m_name->setText(genre()->name());
    m_name->selectAll();
    nameChanged();
}

void GenreDialog::nameChanged()
{
    const QString objection = m_editor->objectionToGenreName(genre(), m_name->text());
    m_objection->setText(objection);
    m_buttons->button(QDialogButtonBox::Ok)->setEnabled(objection.isEmpty());
}

void GenreDialog::accept()
{
    // The library may have changed while the dialog stood open.
    nameChanged();
    if (!m_buttons->button(QDialogButtonBox::Ok)->isEnabled())
        return;
    m_editor->renameGenre(genre(), m_name->text());
    QDialog::accept();
}
