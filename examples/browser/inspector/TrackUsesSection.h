#pragma once

#include <QElapsedTimer>

#include <kestrixkit/filters/KXFilterSetPreset.h>

#include "inspector/TrackSection.h"

/// Which crates and presets hold the track, and why each of the presets does.
class TrackUsesSection : public TrackSection
{
    Q_OBJECT
public:
    static constexpr qsizetype MostShown = 30;

    explicit TrackUsesSection(QObject *parent = nullptr);

    /// They are others, or ask for something else.
    void forgetPresets() { m_presets.clear(); }

Q_SIGNALS:
    /// The user wants to see it: a crate or a preset.
    void picked(const KXManagedObjectID &place);

protected:
    void makeRows(QVBoxLayout &rows) override;
    void showTracks() override;

private:
    struct Asked
    {
        KXRef<KXFilterSetPreset> preset;
        KXPredicate predicate;
    };
    void gatherPresets(KXManagedObjectContext &context, const KXRef<KXFilterSetPreset> &folder);
    [[nodiscard]] QList<KXRef<KXFilterSetPreset>> presetsWith(const Track &track);
    void addUse(const QString &title, const KXManagedObjectID &place, const QString &reason);
    void say(const QString &text);

    QVBoxLayout *m_rows = nullptr;
    QList<Asked> m_presets; // kept, as whoever holds an arrow key down asks for many tracks
    QElapsedTimer m_gathered;
};
