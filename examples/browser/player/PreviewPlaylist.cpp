#include "player/PreviewPlaylist.h"

#include <QRandomGenerator>

#include "table/TrackTableModel.h"

namespace {

constexpr int previewLongestTitle = 40;

QString previewTitle(const QString &title)
{
    return title.size() > previewLongestTitle ? title.left(previewLongestTitle - 1) + u'…' : title;
}

} // namespace

std::function<bool(const QUrl &)> PreviewItem::redirectRule() const
{
    return sound ? sound->mayLeadTo : std::function<bool(const QUrl &)>();
}

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
    item->title = previewTitle(track->title().isEmpty() ? item->url.fileName() : track->title());
    return item;
}

std::shared_ptr<PreviewItem> PreviewPlaylist::itemOf(const PreviewSound &sound) const
{
    auto item = std::make_shared<PreviewItem>();
    item->sound = sound;
    item->levels = m_levels;
    item->url = sound.address;
    item->title = previewTitle(sound.title);
    return item;
}

KXAudioPlayerItemPointer PreviewPlaylist::audioPlayerItemAfter(const KXAudioPlayerItemPointer &item)
{
    const auto &played = static_cast<const PreviewItem &>(*item);
    return m_isShuffled && !played.sound ? anyOther(played.index) : beside(played, 1);
}

KXAudioPlayerItemPointer PreviewPlaylist::audioPlayerItemBefore(const KXAudioPlayerItemPointer &item)
{
    const auto &played = static_cast<const PreviewItem &>(*item);
    return m_isShuffled && !played.sound ? playedBefore(played.index) : beside(played, -1);
}

KXAudioPlayerItemPointer PreviewPlaylist::beside(const PreviewItem &item, int step) const
{
    if (item.sound) {
        const std::optional<PreviewSound> next = item.sound->beside ? item.sound->beside(step) : std::nullopt;
        return next ? itemOf(*next) : nullptr;
    }
    return item.index.isValid() ? itemAt(item.index.row() + step) : nullptr;
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
