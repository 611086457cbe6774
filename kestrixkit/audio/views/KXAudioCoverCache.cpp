#include <kestrixkit/audio/views/KXAudioCoverCache.h>

#include <optional>

#include <QCache>
#include <QPixmap>

#include <kestrixkit/audio/KXAudioCover.h>
#include <kestrixkit/foundation/KXMainQueue.h>
#include <kestrixkit/foundation/KXOperationQueue.h>

using namespace Qt::StringLiterals;

namespace {

constexpr int coversKept = 512;

}

class KXAudioCoverCachePrivate
{
public:
    explicit KXAudioCoverCachePrivate(KXAudioCoverCache *cache, QSize most)
        : q(cache)
        , size(most)
    {
        queue.setMaxConcurrentOperationCount(1);
        queue.setName(u"kx-covers"_s);
    }

    void readNext();

    KXAudioCoverCache *const q;
    const QSize size;
    QCache<QUrl, QIcon> covers { coversKept };
    QList<QUrl> waiting; // the next one last
    std::optional<QUrl> reading;
    quint64 generation = 0; // what was begun before clear() is not taken
    KXOperationQueue queue; // last: its thread ends before all else goes
};

void KXAudioCoverCachePrivate::readNext()
{
    if (reading || waiting.isEmpty())
        return;
    reading = waiting.takeLast();
    queue.addBlock([this, file = *reading, began = generation] {
        QImage image = KXAudioCover::imageOfFile(file, size);
        KXMainQueue::async(q, [this, file, began, image = std::move(image)] {
            if (began == generation) {
                reading.reset();
                covers.insert(file, new QIcon(image.isNull() ? QIcon() : QIcon(QPixmap::fromImage(image))));
            }
            readNext();
            if (began == generation)
                Q_EMIT q->didRead(file); // the last that is done here: whoever hears it may end the cache
        });
    });
}

KXAudioCoverCache::KXAudioCoverCache(QSize most, QObject *parent)
    : QObject(parent)
    , d(std::make_unique<KXAudioCoverCachePrivate>(this, most))
{
}

KXAudioCoverCache::~KXAudioCoverCache() = default;

QIcon KXAudioCoverCache::cover(const QUrl &file)
{
    if (const QIcon *known = d->covers.object(file))
        return *known;
    if (d->reading == file)
        return {};
    d->waiting.removeOne(file);
    d->waiting.append(file);
    if (d->waiting.size() > MostWaiting)
        d->waiting.removeFirst();
    d->readNext();
    return {};
}

void KXAudioCoverCache::clear()
{
    ++d->generation;
    d->reading.reset();
    d->covers.clear();
    d->waiting.clear();
}
