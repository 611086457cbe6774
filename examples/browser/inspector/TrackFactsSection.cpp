#include "inspector/TrackFactsSection.h"

#include <numeric>

#include <QLabel>
#include <QLocale>
#include <QVBoxLayout>

#include <kestrixkit/audio/KXAudioCover.h>
#include <kestrixkit/foundation/KXClock.h>
#include <kestrixkit/foundation/KXMainQueue.h>

#include "window/BrowserStyle.h"

using namespace Qt::StringLiterals;

namespace {

constexpr int inspectorCover = 180; // points

QStringList factsOf(const Track &track)
{
    QStringList facts;
    if (const auto bpm = track.bpm())
        facts += TrackFactsSection::tr("%1 BPM").arg(KXClock::locale().toString(*bpm, 'f', 1));
    if (const auto order = track.keyOrder()) {
        const MusicalKey key { *order / 2, *order % 2 == 0 };
        facts += u"%1 · %2"_s.arg(key.wheelCode(), key.name());
    }
    if (const auto duration = track.duration())
        facts += BrowserStyle::timeText(*duration);
    if (const auto year = track.year())
        facts += QString::number(*year);
    if (const auto genre = track.genreText())
        facts += *genre;
    if (const auto label = track.labelText())
        facts += *label;
    return facts;
}

} // namespace

TrackFactsSection::TrackFactsSection(QObject *parent)
    : TrackSection(tr("Track"), parent)
{
    m_covers.setMaxConcurrentOperationCount(1);
}

TrackFactsSection::~TrackFactsSection()
{
    m_covers.cancelAllOperations();
    m_covers.waitUntilAllOperationsAreFinished();
}

void TrackFactsSection::makeRows(QVBoxLayout &rows)
{
    m_cover = new QLabel;
    m_cover->setAccessibleName(tr("Cover"));
    m_cover->hide();
    m_title = makeText();
    QFont font = m_title->font();
    font.setBold(true);
    font.setPointSizeF(font.pointSizeF() * 1.15);
    m_title->setFont(font);
    m_credits = makeText();
    m_facts = makeText();
    m_facts->setForegroundRole(QPalette::PlaceholderText);
    for (QLabel *each : { m_cover, m_title, m_credits, m_facts })
        rows.addWidget(each);
}

void TrackFactsSection::showTracks()
{
    const KXRef<Track> track = single();
    showCover(track ? track->location() : QUrl());
    if (track) {
        m_title->setText(track->title());
        QStringList credits { track->artistText().value_or(QString()), track->albumText().value_or(QString()) };
        credits.removeAll(QString());
        m_credits->setText(credits.join(u'\n'));
        m_facts->setText(factsOf(*track).join(u"  ·  "_s));
    } else {
        const double seconds = std::accumulate(tracks().begin(), tracks().end(), 0.0,
            [](double sum, const KXRef<Track> &each) { return sum + each->duration().value_or(0); });
        m_title->setText(tracks().isEmpty()
                ? tr("No track is selected")
                : tr("%1 tracks", nullptr, int(tracks().size())).arg(KXClock::locale().toString(tracks().size())));
        m_credits->clear();
        m_facts->setText(seconds > 0 ? BrowserStyle::timeText(seconds) : QString());
    }
    for (QLabel *each : { m_credits, m_facts })
        each->setVisible(!each->text().isEmpty());
}

/// Read beside the main thread: a file may lie on a slow disk.
void TrackFactsSection::showCover(const QUrl &file)
{
    if (file == m_file)
        return;
    m_file = file;
    m_cover->hide();
    m_covers.cancelAllOperations();
    if (file.isEmpty())
        return;
    const qreal ratio = view()->devicePixelRatioF();
    m_covers.addBlock([this, file, ratio] {
        QImage image = KXAudioCover::imageOfFile(file, QSizeF(inspectorCover * ratio, inspectorCover * ratio).toSize());
        image.setDevicePixelRatio(ratio);
        KXMainQueue::async(this, [this, file, image] {
            if (m_file != file || image.isNull() || !isViewLoaded())
                return;
            m_cover->setPixmap(QPixmap::fromImage(image));
            m_cover->show();
        });
    });
}
