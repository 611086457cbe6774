#include "inspector/TrackTagsSection.h"

#include <algorithm>

#include <QFormLayout>

#include <kestrixkit/theme/KXThemeStyleNames.h>
#include <kestrixkit/theme/controls/KXStarRating.h>
#include <kestrixkit/theme/controls/KXThemeableTextField.h>

#include "library/LibraryEditor.h"
#include "table/TrackTableModel.h"

TrackTagsSection::TrackTagsSection(LibraryEditor *editor, qsizetype most, EditAll editAll, QObject *parent)
    : TrackSection(tr("Tags"), parent)
    , m_editor(editor)
    , m_most(most)
    , m_editAll(std::move(editAll))
{
}

void TrackTagsSection::makeRows(QVBoxLayout &rows)
{
    QFormLayout *const form = makeForm();
    m_stars = new KXStarRating;
    m_stars->setThemeStyleName(KXStarRatingStyles);
    connect(m_stars, &KXStarRating::rated, this, &TrackTagsSection::rate);
    addRow(*form, tr("Rating"), m_stars);
    m_fields.clear();
    for (const TrackFields::Field field : TrackFields::all()) {
        auto *const line = new KXThemeableTextField;
        line->setThemeStyleName(KXTextFieldStyles);
        connect(line, &QLineEdit::editingFinished, this, [this, line, field] { edit(line, field); });
        addRow(*form, TrackFields::name(field), line);
        m_fields.append({ field, line });
    }
    rows.addLayout(form);
}

void TrackTagsSection::showTracks()
{
    // What is being typed is meant for the tracks at which that began.
    const QList<KXRef<Track>> before = std::exchange(m_shown, tracks());
    for (const auto &[field, line] : std::as_const(m_fields)) {
        if (before == tracks() || !line->hasFocus() || !line->isModified())
            continue;
        line->setModified(false);
        if (!before.isEmpty() && before.size() < m_most)
            m_editor->setField(before, field, line->text());
    }
    m_stars->setEnabled(!tracks().isEmpty());
    m_stars->setRating(tracks().isEmpty() ? 0 : tracks().constFirst()->rating().value_or(0));
    for (const auto &[field, line] : std::as_const(m_fields)) {
        line->setEnabled(!tracks().isEmpty());
        if (!line->hasFocus() || !line->isModified()) // nobody's typing is overwritten
            show(line, field);
    }
}

void TrackTagsSection::show(KXThemeableTextField *line, TrackFields::Field field)
{
    const KXRef<Track> first = tracks().value(0);
    const bool isMixed = std::any_of(tracks().begin(), tracks().end(), [&](const KXRef<Track> &track) {
        return TrackFields::plainText(*track, field) != TrackFields::plainText(*first, field);
    });
    line->setText(first && !isMixed ? TrackFields::text(*first, field) : QString());
    line->setPlaceholderText(isMixed ? tr("Mixed") : QString());
    const bool isGuess = first && !isMixed
        && std::any_of(tracks().begin(), tracks().end(),
            [&](const KXRef<Track> &track) { return TrackFields::isAnalysed(*track, field); });
    QFont font = line->font();
    font.setItalic(isGuess);
    line->setFont(font);
    const QString tip = isGuess ? tr("Analysed; not from the file's tags") : QString();
    line->setToolTip(tip);
    line->setAccessibleDescription(tip);
}

void TrackTagsSection::rate(int stars)
{
    if (tracks().size() < m_most)
        m_editor->rate(tracks(), stars);
    else
        m_editAll(TrackTableModel::Rating, stars, TrackTableModel::StarsRole);
}

void TrackTagsSection::edit(KXThemeableTextField *line, TrackFields::Field field)
{
    if (tracks().isEmpty() || !line->isModified())
        return;
    const QString text = line->text();
    line->setModified(false);
    if (tracks().size() < m_most)
        m_editor->setField(tracks(), field, text);
    else
        m_editAll(TrackTableModel::columnOf(field), text, Qt::EditRole);
    show(line, field); // what made no value goes again
}
