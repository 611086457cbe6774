#include "PreviewPlaylist.h"

#include <QRandomGenerator>

#include "TrackTableModel.h"

namespace {

constexpr int previewLongestTitle = 40;

const QPersistentModelIndex &previewIndexOf(const KXAudioPlayerItemPointer &item)
{
    return static_cast<const PreviewItem &>(*item).index;
}

} // namespace

float PreviewItem::gain() const
{
    const auto waveform = levels->areEqual && levels->waveforms ? levels->waveforms->pyramid(url) : nullptr;
    return waveform ? waveform->gainForLoudness() : 1;
}

PreviewPlaylist::PreviewPlaylist(TrackTableModel *model, std::shared_ptr<const PreviewLevels> levels)
    : m_model(model)
    , m_levels(std::move(levels))
{
}

void PreviewPlaylist::setShuffled(bool shuffled)
{
    m_isShuffled = shuffled;
    m_played.clear();
}

std::shared_ptr<PreviewItem> PreviewPlaylist::itemAt(int row) const
{
    const KXRef<Track> track = m_model->track(row);
    if (!track)
        return nullptr;
    auto item = std::make_shared<PreviewItem>();
    item->index = m_model->index(row, 0);
    item->levels = m_levels;
    item->url = track->location();
    item->title = track->title().isEmpty() ? item->url.fileName() : track->title();
    if (item->title.size() > previewLongestTitle)
        item->title = item->title.left(previewLongestTitle - 1) + u'…';
    return item;
}

KXAudioPlayerItemPointer PreviewPlaylist::audioPlayerItemAfter(const KXAudioPlayerItemPointer &item)
{
    const QPersistentModelIndex &index = previewIndexOf(item);
    return m_isShuffled ? anyOther(index) : beside(index, 1);
}

KXAudioPlayerItemPointer PreviewPlaylist::audioPlayerItemBefore(const KXAudioPlayerItemPointer &item)
{
    const QPersistentModelIndex &index = previewIndexOf(item);
    return m_isShuffled ? playedBefore(index) : beside(index, -1);
}

KXAudioPlayerItemPointer PreviewPlaylist::beside(const QPersistentModelIndex &index, int step) const
{
    return index.isValid() ? itemAt(index.row() + step) : nullptr;
}

KXAudioPlayerItemPointer PreviewPlaylist::anyOther(const QPersistentModelIndex &index)
{
    const int rows = m_model->rowCount();
    if (rows < 2)
        return nullptr;
    m_played.append(index);
    const int row = QRandomGenerator::global()->bounded(rows - 1);
    return itemAt(row + (index.isValid() && row >= index.row() ? 1 : 0));
}

KXAudioPlayerItemPointer PreviewPlaylist::playedBefore(const QPersistentModelIndex &index)
{
    while (!m_played.isEmpty()) {
        const QPersistentModelIndex before = m_played.takeLast();
        if (before.isValid() && before != index)
            return itemAt(before.row());
    }
    return nullptr;
}
