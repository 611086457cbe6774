#include "player/WaveformMaker.h"

#include <QAction>

#include <kestrixkit/audio/KXWaveformLibrary.h>

#include "table/TrackTableModel.h"

namespace {

constexpr int fewestPending = 4; // the maker is never without work
constexpr int rowsAtATime = 32;

}

WaveformMaker::WaveformMaker(TrackTableModel *model, KXWaveformLibrary *waveforms, QObject *parent)
    : QObject(parent)
    , m_model(model)
    , m_waveforms(waveforms)
    , m_action(new QAction(tr("Make &Waveforms of This List"), this))
{
    m_action->setCheckable(true);
    connect(m_action, &QAction::toggled, this, &WaveformMaker::run);
    connect(waveforms, &KXWaveformLibrary::progressed, this, &WaveformMaker::goOn);
    // Another list: from its start.
    connect(model, &QAbstractItemModel::modelReset, this, [this] { m_next = 0; });
}

void WaveformMaker::run(bool on)
{
    m_waveforms->setPaused(!on);
    if (on)
        goOn();
}

void WaveformMaker::goOn()
{
    if (!m_action->isChecked())
        return;
    const int rows = m_model->rowCount();
    if (m_waveforms->pendingCount() < fewestPending) {
        for (const int end = std::min(rows, m_next + rowsAtATime); m_next < end; ++m_next)
            m_waveforms->prepare(m_model->index(m_next, 0).data(TrackTableModel::LocationRole).toUrl());
    }
    const auto pending = int(m_waveforms->pendingCount());
    if (m_next >= rows && pending == 0) {
        m_next = 0;
        m_action->setText(tr("Make &Waveforms of This List"));
        m_action->setChecked(false);
    } else {
        m_action->setText(tr("Make &Waveforms of This List (%1 of %2)").arg(m_next - pending).arg(rows));
    }
}
