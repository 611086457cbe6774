#pragma once

#include <optional>

#include <QPixmap>

#include <kestrixkit/toolkit/KXViewController.h>

#include "places/Place.h"

/// A place on the stack of places. Where the tracks are shown, these lie in its view; where they were shown before,
/// their picture does.
class PlaceViewController : public KXViewController
{
    Q_OBJECT
public:
    /// Without a step it is what is selected to the left.
    PlaceViewController(std::optional<PlaceStep> step, QObject *parent);

    [[nodiscard]] const std::optional<PlaceStep> &step() const { return m_step; }
    /// Takes the tracks, or gives them away for their picture.
    void setTracks(QWidget *tracks);
    void setPicture(const QPixmap &picture);

protected:
    void loadView() override;

private:
    class Pane;
    const std::optional<PlaceStep> m_step;
};
