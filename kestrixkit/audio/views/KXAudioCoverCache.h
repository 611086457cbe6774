#pragma once

#include <memory>

#include <QIcon>
#include <QObject>
#include <QUrl>

#include <kestrixkit/foundation/KXGlobal.h>

class KXAudioCoverCachePrivate;

/// Covers for views that show many files: read in the background when they are asked for, those asked for last first.
///
/// Keeps the last few hundred, and that a file has none. Main thread.
class KX_UI_EXPORT KXAudioCoverCache : public QObject
{
    Q_OBJECT
public:
    /// Those that wait at most; what was asked for before, and scrolled away since, is read when it is asked for again.
    static constexpr qsizetype MostWaiting = 64;

    /// Pictures of at most that size, in pixels.
    explicit KXAudioCoverCache(QSize most, QObject *parent = nullptr);
    /// Waits for the one that is being read.
    ~KXAudioCoverCache() override;

    /// KXAudioCover::imageOfFile(); null where there is none, and until didRead() for files that were not read yet.
    [[nodiscard]] QIcon cover(const QUrl &file);
    /// Reads them all anew when they are asked for: files have changed.
    void clear();

Q_SIGNALS:
    void didRead(const QUrl &file);

private:
    const std::unique_ptr<KXAudioCoverCachePrivate> d;
};
