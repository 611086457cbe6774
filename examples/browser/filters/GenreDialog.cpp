#include "filters/GenreDialog.h"

#include <QFormLayout>
#include <QHBoxLayout>

#include <kestrixkit/theme/KXThemeStyleNames.h>
#include <kestrixkit/theme/controls/KXThemeableButton.h>
#include <kestrixkit/theme/controls/KXThemeablePopUpButton.h>
#include <kestrixkit/theme/controls/KXThemeableTextField.h>

#include "window/BrowserStyle.h"

GenreDialog::GenreDialog(LibraryEditor *editor, const QList<KXRef<Genre>> &genres, QWidget *parent)
    : QDialog(parent)
    , m_editor(editor)
    , m_genres(genres)
    , m_choice(new KXThemeablePopUpButton)
    , m_name(new KXThemeableTextField)
    , m_objection(new KXThemeableTextField)
    , m_rename(new KXThemeableButton(tr("&Rename")))
{
    setWindowTitle(tr("Rename Genre"));
    setAttribute(Qt::WA_DeleteOnClose);
    for (const KXRef<Genre> &genre : genres)
        m_choice->addItem(genre->name());
    m_choice->setThemeStyleName(KXPopUpButtonStyles);
    m_choice->setAccessibleName(tr("Genre"));
    m_choice->setEnabled(genres.size() > 1);
    m_name->setThemeStyleName(KXTextFieldStyles);
    m_name->setAccessibleName(tr("New name"));
    m_name->setMinimumWidth(300);
    m_objection->setLabel(true);
    m_objection->setThemeStyleName(KXSecondaryLabelStyles);
    m_rename->setThemeStyleName(KXButtonStyles);
    m_rename->setDefault(true);
    auto *const cancel = new KXThemeableButton(tr("Cancel"));
    cancel->setThemeStyleName(KXButtonStyles);
    cancel->setAutoDefault(false);

    auto *form = new QFormLayout(this);
    form->setContentsMargins(
        2 * BrowserStyle::margin, 2 * BrowserStyle::margin, 2 * BrowserStyle::margin, 2 * BrowserStyle::margin);
    form->addRow(tr("&Genre:"), m_choice);
    form->addRow(tr("&New name:"), m_name);
    form->addRow(QString(), m_objection);
    auto *const buttons = new QHBoxLayout;
    buttons->addStretch();
    buttons->addWidget(cancel);
    buttons->addWidget(m_rename);
    form->addRow(buttons);
    connect(m_choice, &QComboBox::currentIndexChanged, this, &GenreDialog::genreChosen);
    connect(m_name, &QLineEdit::textChanged, this, &GenreDialog::nameChanged);
    connect(m_rename, &QPushButton::clicked, this, &GenreDialog::accept);
    connect(cancel, &QPushButton::clicked, this, &GenreDialog::reject);
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
    m_rename->setEnabled(objection.isEmpty());
}

void GenreDialog::accept()
{
    // The library may have changed while the dialog stood open.
    nameChanged();
    if (!m_rename->isEnabled())
        return;
    m_editor->renameGenre(genre(), m_name->text());
    QDialog::accept();
}
