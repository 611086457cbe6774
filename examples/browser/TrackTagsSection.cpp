#include "TrackTagsSection.h"

#include <QFormLayout>

#include <kestrixkit/foundation/KXClock.h>
#include <kestrixkit/theme/KXThemeStyleNames.h>
#include <kestrixkit/theme/controls/KXStarRating.h>
#include <kestrixkit/theme/controls/KXThemeableTextField.h>

#include "LibraryEditor.h"
#include "TagValues.h"

using namespace Qt::StringLiterals;

namespace {

QString tagText(const Track &track, const QString &key)
{
    const QVariant value = track.valueForKey(key);
    return key == "bpm"_L1 && value.isValid()
        ? KXClock::locale().toString(value.toDouble(), 'f', QLocale::FloatingPointShortest)
        : value.toString();
}

/// Invalid for an empty text, which takes the value away; absent for one that makes no value.
std::optional<QVariant> tagValue(const QString &key, const QString &text)
{
    const QString entered = text.trimmed();
    if (key == "title"_L1)
        return entered.isEmpty() ? std::nullopt : std::optional<QVariant>(entered);
    if (entered.isEmpty())
        return QVariant();
    if (key == "bpm"_L1) {
        const auto tempo = TagValues::tempo(entered);
        return tempo ? std::optional<QVariant>(*tempo) : std::nullopt;
    }
    if (key == "year"_L1) {
        const auto year = TagValues::year(entered);
        return year ? std::optional<QVariant>(*year) : std::nullopt;
    }
    return QVariant(entered);
}

} // namespace

TrackTagsSection::TrackTagsSection(LibraryEditor *editor, QObject *parent)
    : TrackSection(tr("Tags"), parent)
    , m_editor(editor)
{
}

void TrackTagsSection::makeRows(QVBoxLayout &rows)
{
    QFormLayout *const form = makeForm();
    m_stars = new KXStarRating;
    m_stars->setThemeStyleName(KXStarRatingStyles);
    connect(m_stars, &KXStarRating::rated, this, [this](int stars) { m_editor->rate(tracks(), stars); });
    addRow(*form, tr("Rating"), m_stars);
    m_fields.clear();
    const std::pair<QString, QString> fields[] { { u"title"_s, tr("Title") }, { u"bpm"_s, tr("BPM") },
        { u"year"_s, tr("Year") }, { u"comment"_s, tr("Comment") } };
    for (const auto &[key, name] : fields) {
        auto *const field = new KXThemeableTextField;
        field->setThemeStyleName(KXTextFieldStyles);
        connect(field, &QLineEdit::editingFinished, this, [this, field, key = key] { edit(field, key); });
        addRow(*form, name, field);
        m_fields.append({ key, field });
    }
    rows.addLayout(form);
}

void TrackTagsSection::showTracks()
{
    const KXRef<Track> track = single();
    m_stars->setEnabled(!tracks().isEmpty());
    m_stars->setRating(tracks().isEmpty() ? 0 : tracks().constFirst()->rating().value_or(0));
    for (const auto &[key, field] : std::as_const(m_fields)) {
        field->setEnabled(bool(track));
        field->setPlaceholderText(tracks().size() > 1 ? tr("Several tracks") : QString());
        if (!field->hasFocus() || !field->isModified()) // nobody's typing is overwritten
            field->setText(track ? tagText(*track, key) : QString());
    }
}

void TrackTagsSection::edit(KXThemeableTextField *field, const QString &key)
{
    const KXRef<Track> track = single();
    if (!track || !field->isModified())
        return;
    field->setModified(false);
    if (const std::optional<QVariant> value = tagValue(key, field->text()))
        m_editor->setValue(track, key, *value, field->accessibleName());
    field->setText(tagText(*track, key)); // what made no value goes again
}
