#include "crates/PlayHistory.h"

#include <kestrixkit/foundation/KXClock.h>

#include "crates/CrateEditor.h"
#include "player/Preview.h"
#include "table/TrackTableModel.h"

PlayHistory::PlayHistory(Preview *preview, TrackTableModel *model, CrateEditor *editor, QObject *parent)
    : QObject(parent)
    , m_preview(preview)
    , m_model(model)
    , m_editor(editor)
{
    connect(preview, &Preview::changed, this, &PlayHistory::follow);
}

void PlayHistory::follow()
{
    const bool plays = m_preview->player().state() == KXAudioPlayerStatePlaying;
    const QModelIndex index = m_preview->playingIndex();
    const qint64 track = !plays ? 0 : index.isValid() ? m_model->tracks().key(index.row()) : m_heard;
    if (track == m_heard)
        return;
    m_heard = track;
    m_note.cancel();
    if (track == 0)
        return;
    m_note.start(m_playedAfter,
        [this, track] { m_editor->notePlayed(track, KXClock::now().toTimeZone(KXClock::timeZone()).date()); });
}
