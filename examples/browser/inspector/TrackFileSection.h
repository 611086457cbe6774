#pragma once

#include "inspector/TrackSection.h"

class KXThemeableButton;

/// The file of the track: where it lies, what it is made of, and what made no sense in its tags.
class TrackFileSection : public TrackSection
{
    Q_OBJECT
public:
    explicit TrackFileSection(QObject *parent = nullptr);

protected:
    void makeRows(QVBoxLayout &rows) override;
    void showTracks() override;

private:
    [[nodiscard]] QString folder() const;

    QLabel *m_path = nullptr, *m_sound = nullptr, *m_size = nullptr, *m_changed = nullptr, *m_notes = nullptr;
    KXThemeableButton *m_show = nullptr;
};
