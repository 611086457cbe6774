#include "places/PlaceViewController.h"

#include <QPainter>
#include <QVBoxLayout>

class PlaceViewController::Pane : public QWidget
{
public:
    Pane()
    {
        auto *const rows = new QVBoxLayout(this);
        rows->setContentsMargins(0, 0, 0, 0);
    }
    void setPicture(const QPixmap &picture)
    {
        m_picture = picture;
        update();
    }

protected:
    void paintEvent(QPaintEvent *) override
    {
        if (m_picture.isNull())
            return;
        const int x
            = layoutDirection() == Qt::RightToLeft ? width() - qRound(m_picture.deviceIndependentSize().width()) : 0;
        QPainter(this).drawPixmap(x, 0, m_picture);
    }

private:
    QPixmap m_picture;
};

PlaceViewController::PlaceViewController(std::optional<PlaceStep> step, QObject *parent)
    : KXViewController(parent)
    , m_step(std::move(step))
{
}

void PlaceViewController::loadView() { setView(new Pane); }

void PlaceViewController::setTracks(QWidget *tracks)
{
    setPicture({});
    view()->layout()->addWidget(tracks);
    tracks->show();
}

void PlaceViewController::setPicture(const QPixmap &picture) { static_cast<Pane *>(view())->setPicture(picture); }
