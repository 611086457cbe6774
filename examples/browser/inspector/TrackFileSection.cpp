#include "inspector/TrackFileSection.h"

#include <QDesktopServices>
#include <QFileInfo>
#include <QFormLayout>
#include <QLabel>

#include <kestrixkit/foundation/KXClock.h>
#include <kestrixkit/theme/KXThemeStyleNames.h>
#include <kestrixkit/theme/controls/KXThemeableButton.h>

#include "files/FileNotes.h"

using namespace Qt::StringLiterals;

namespace {

QString soundOf(const Track &track)
{
    const QLocale locale = KXClock::locale();
    QStringList parts { QFileInfo(track.location().fileName()).suffix().toUpper() };
    if (const auto rate = track.sampleRate())
        parts += TrackFileSection::tr("%1 kHz").arg(locale.toString(*rate / 1000.0, 'g', 4));
    if (const auto bits = track.bitrate())
        parts += TrackFileSection::tr("%1 kbit/s").arg(locale.toString(*bits));
    if (const auto channels = track.channels())
        parts += *channels == 1 ? TrackFileSection::tr("mono")
            : *channels == 2    ? TrackFileSection::tr("stereo")
                                : TrackFileSection::tr("%1 channels", nullptr, *channels).arg(*channels);
    parts.removeAll(QString());
    return parts.join(u"  ·  "_s);
}

} // namespace

TrackFileSection::TrackFileSection(QObject *parent)
    : TrackSection(tr("File"), parent)
{
}

void TrackFileSection::makeRows(QVBoxLayout &rows)
{
    QFormLayout *const form = makeForm();
    const std::pair<QLabel *&, QString> lines[] { { m_path, tr("Path") }, { m_sound, tr("Sound") },
        { m_size, tr("Size") }, { m_changed, tr("Changed") }, { m_notes, tr("Notes") } };
    for (const auto &[label, name] : lines) {
        label = makeText();
        addRow(*form, name, label);
    }
    rows.addLayout(form);
    m_show = new KXThemeableButton(tr("Show in Folder"));
    m_show->setThemeStyleName(KXButtonStyles);
    connect(m_show, &QPushButton::clicked, this, [this] { QDesktopServices::openUrl(QUrl::fromLocalFile(folder())); });
    rows.addWidget(m_show, 0, Qt::AlignLeading);
}

QString TrackFileSection::folder() const
{
    return single() ? QFileInfo(single()->location().toLocalFile()).absolutePath() : QString();
}

void TrackFileSection::showTracks()
{
    const KXRef<Track> track = single();
    const QLocale locale = KXClock::locale();
    const QString missing = track && track->missing() ? u'\n' + tr("The file is missing") : QString();
    QString path = track ? track->location().toLocalFile() : QString();
    path.replace(u'/', u"/\u200b"_s); // may wrap behind each folder
    m_path->setText(track ? path + missing : QString());
    m_sound->setText(track ? soundOf(*track) : QString());
    m_size->setText(track ? locale.formattedDataSize(track->fileSize()) : QString());
    m_changed->setText(track ? locale.toString(
                           QDateTime::fromMSecsSinceEpoch(track->fileModified() / 1000).toTimeZone(KXClock::timeZone()),
                           QLocale::ShortFormat)
                             : QString());
    QStringList notes { track ? track->importNotes().value_or(QString()) : QString() };
    if (track && (!track->bpm() || !track->keyOrder()))
        notes += track->analysisNote().value_or(QString());
    notes.removeAll(QString());
    m_notes->setText(FileNotes::shown(notes.join(u'\n')));
    m_show->setEnabled(!folder().isEmpty());
}
