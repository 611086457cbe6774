#include "inspector/TrackUsesSection.h"

#include <QLabel>
#include <QVBoxLayout>

#include <kestrixkit/foundation/KXClock.h>
#include <kestrixkit/theme/controls/KXHyperlinkButton.h>

#include "crates/Crate.h"
#include "filters/Presets.h"
#include "filters/TrackReasons.h"

using namespace Qt::StringLiterals;

namespace {
constexpr qint64 mostAgeOfPresets = 60'000; // milliseconds: some ask for days before today
}

TrackUsesSection::TrackUsesSection(QObject *parent)
    : TrackSection(tr("Where It Is Used"), parent)
{
}

void TrackUsesSection::makeRows(QVBoxLayout &rows) { m_rows = &rows; }

/// In the order in which they are shown to the left.
void TrackUsesSection::gatherPresets(KXManagedObjectContext &context, const KXRef<KXFilterSetPreset> &folder)
{
    for (const KXRef<KXFilterSetPreset> &preset : Presets::children(context, folder)) {
        if (preset->isFolder())
            gatherPresets(context, preset);
        else if (preset->filterSet())
            m_presets.append({ preset, Presets::predicate(preset->filterSet()) });
    }
}

QList<KXRef<KXFilterSetPreset>> TrackUsesSection::presetsWith(const Track &track)
{
    KXManagedObjectContext *const context = track.managedObjectContext();
    if (!context)
        return {};
    if (m_presets.isEmpty() || m_gathered.hasExpired(mostAgeOfPresets)) {
        m_presets.clear();
        gatherPresets(*context, {});
        m_gathered.start();
    }
    QList<KXRef<KXFilterSetPreset>> found;
    for (const auto &[preset, predicate] : std::as_const(m_presets)) {
        if (predicate.evaluateWithObject(&track))
            found.append(preset);
    }
    return found;
}

void TrackUsesSection::showTracks()
{
    while (QLayoutItem *const old = m_rows->takeAt(0)) {
        if (old->widget())
            old->widget()->deleteLater(); // it may be what was pressed
        delete old;
    }
    const KXRef<Track> track = single();
    if (!track || !track->managedObjectContext()) {
        say(tr("Select a single track"));
        return;
    }
    const auto crates = Crates::cratesOf(*track);
    const auto presets = presetsWith(*track);
    for (const KXRef<Crate> &crate : crates.first(std::min(crates.size(), MostShown)))
        addUse(crate->title(), crate->objectID(), tr("Put there"));
    for (const KXRef<KXFilterSetPreset> &preset : presets.first(std::min(presets.size(), MostShown)))
        addUse(Presets::path(*preset), preset->objectID(), TrackReasons::text(preset->filterSet(), *track));
    if (crates.isEmpty() && presets.isEmpty())
        say(tr("No crate and no preset holds this track"));
    const qsizetype more
        = std::max<qsizetype>(0, crates.size() - MostShown) + std::max<qsizetype>(0, presets.size() - MostShown);
    if (more > 0)
        say(tr("and %1 more", nullptr, int(more)).arg(KXClock::locale().toString(more)));
}

void TrackUsesSection::addUse(const QString &title, const KXManagedObjectID &place, const QString &reason)
{
    auto *const link = new KXHyperlinkButton(title);
    connect(link, &QAbstractButton::clicked, this, [this, place] { Q_EMIT picked(place); });
    m_rows->addWidget(link, 0, Qt::AlignLeading);
    say(reason);
}

void TrackUsesSection::say(const QString &text)
{
    QLabel *const line = makeText();
    line->setForegroundRole(QPalette::PlaceholderText);
    line->setText(text);
    m_rows->addWidget(line);
}
