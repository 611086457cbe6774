#include "files/Sounds.h"

#include <algorithm>
#include <chrono>
#include <cstring>
#include <map>

#include <sys/syscall.h>
#include <unistd.h>

#include <kestrixkit/audio/KXAudioFingerprint.h>
#include <kestrixkit/audio/KXAudioOutline.h>
#include <kestrixkit/context/KXManagedObjectContext.h>
#include <kestrixkit/predicate/KXPredicate.h>

#include "import/Scanner.h"

using namespace Qt::StringLiterals;

namespace {

constexpr std::chrono::seconds soundsSave(2); // between two saves
constexpr qsizetype soundsMost = 500; // in one save, and in one look into the store

/// 64 bits of it; 0: none.
qint64 soundsMark(const KXAudioFingerprint &fingerprint)
{
    const QByteArray bytes = fingerprint.bytes();
    qint64 mark = 0;
    if (size_t(bytes.size()) < sizeof mark)
        return 0;
    std::memcpy(&mark, bytes.constData(), sizeof mark);
    return mark ? mark : 1; // 0 is taken
}

/// Tracks of one sound.
void soundsCount(const QList<KXRef<Track>> &all)
{
    const auto there = std::count_if(all.begin(), all.end(), [](const auto &track) { return !track->missing(); });
    const std::optional<int> copies = there > 1 ? std::optional(int(std::min<qint64>(there, 9999))) : std::nullopt;
    for (const KXRef<Track> &track : all) {
        if (track->copies() != copies)
            track->setCopies(copies);
    }
}

/// The kernel's "idle" class for this thread, while it lives: whoever plays music or imports reads first.
class ReadWhenIdle
{
public:
    ReadWhenIdle() { set(idle); }
    ~ReadWhenIdle() { set(m_before); }
    Q_DISABLE_COPY_MOVE(ReadWhenIdle)

private:
    static constexpr int ofThread = 1;
    static constexpr long idle = 3L << 13;
    static void set(long priority)
    {
        if (priority >= 0)
            (void)syscall(SYS_ioprio_set, ofThread, 0, priority);
    }
    const long m_before = syscall(SYS_ioprio_get, ofThread, 0); // the thread is used for other work later
};

} // namespace

TrackSound Sounds::ofFile(const std::string &path)
{
    const QUrl url = urlOfPath(path);
    TrackSound sound;
    sound.hash = soundsMark(KXAudioFingerprint::ofFile(url));
    if (sound.hash == 0)
        return sound;
    sound.head = headOfFile(path);
    sound.outline = KXAudioOutline::ofFile(url).bytes();
    return sound;
}

qint64 Sounds::headOfFile(const std::string &path)
{
    return soundsMark(KXAudioFingerprint::ofBeginning(urlOfPath(path)));
}

void Sounds::set(Track &track, const TrackSound &sound)
{
    track.setSoundHash(sound.hash);
    track.setSoundHead(sound.head ? std::optional(sound.head) : std::nullopt);
    track.setSoundOutline(sound.outline.isEmpty() ? std::nullopt : std::optional(sound.outline));
}

void Sounds::forget(Track &track)
{
    track.setSoundHash({});
    track.setSoundHead({});
    track.setSoundOutline({});
    track.setCopies({});
}

KXPredicate Sounds::duplicates() { return KXPredicate::predicateWithFormat("missing == FALSE AND copies > 1"); }

void Sounds::recount(KXManagedObjectContext &context, const std::set<qint64> &hashes)
{
    QVariantList wanted;
    for (const qint64 hash : hashes) {
        if (hash != 0)
            wanted.append(hash);
    }
    for (qsizetype from = 0; from < wanted.size(); from += soundsMost) {
        std::map<qint64, QList<KXRef<Track>>> tracks;
        const auto some = KXPredicate::predicateWithFormat("soundHash IN %@", wanted.mid(from, soundsMost));
        for (const KXRef<Track> &track : Track::findUsingPredicate(some, context)) {
            if (track)
                tracks[track->soundHash().value_or(0)].append(track);
        }
        for (const auto &[hash, all] : tracks)
            soundsCount(all);
    }
}

void Sounds::readMissing(KXManagedObjectContext &context, const std::function<bool()> &stop)
{
    using Clock = std::chrono::steady_clock;
    const ReadWhenIdle lower;
    const auto unread = KXPredicate::predicateWithFormat("soundHash == nil AND missing == FALSE");
    std::set<qint64> hashes;
    qsizetype read = 0;
    Clock::time_point saved = Clock::now();
    const auto save = [&] {
        recount(context, hashes);
        const bool isSaved = context.save();
        hashes.clear();
        read = 0;
        saved = Clock::now();
        return isSaved;
    };
    const auto tracks = Track::findUsingPredicate(unread, context);
    for (const KXRef<Track> &track : tracks) {
        if (stop())
            break;
        if (!track || track->isMissing() || track->isDeleted())
            continue;
        const TrackSound sound = ofFile(pathOfUrl(track->location()));
        set(*track, sound);
        hashes.insert(sound.hash);
        if ((++read >= soundsMost || Clock::now() - saved > soundsSave) && !save())
            return;
    }
    save();
}
