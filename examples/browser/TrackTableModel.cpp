#include "TrackTableModel.h"

#include <QCoreApplication>
#include <QLocale>

#include <kestrixkit/foundation/KXClock.h>
#include <kestrixkit/store/KXFetchRequest.h>

#include "BrowserStyle.h"

using namespace Qt::StringLiterals;

namespace {

struct ColumnDescription
{
    const char *title;
    const char *sortKey;
    Qt::AlignmentFlag alignment;
};

constexpr ColumnDescription columnDescriptions[TrackTableModel::ColumnCount] = {
    { QT_TRANSLATE_NOOP("TrackTable", "Title"), "title", Qt::AlignLeft },
    { QT_TRANSLATE_NOOP("TrackTable", "Artist"), "artistText", Qt::AlignLeft },
    { QT_TRANSLATE_NOOP("TrackTable", "Album"), "albumText", Qt::AlignLeft },
    { QT_TRANSLATE_NOOP("TrackTable", "Genre"), "genreText", Qt::AlignLeft },
    { QT_TRANSLATE_NOOP("TrackTable", "BPM"), "bpm", Qt::AlignRight },
    { QT_TRANSLATE_NOOP("TrackTable", "Key"), "keyOrder", Qt::AlignHCenter },
    { QT_TRANSLATE_NOOP("TrackTable", "Rating"), "rating", Qt::AlignLeft },
    { QT_TRANSLATE_NOOP("TrackTable", "Length"), "duration", Qt::AlignRight },
    { QT_TRANSLATE_NOOP("TrackTable", "Label"), "labelText", Qt::AlignLeft },
    { QT_TRANSLATE_NOOP("TrackTable", "Year"), "year", Qt::AlignRight },
    { QT_TRANSLATE_NOOP("TrackTable", "Added"), "added", Qt::AlignRight },
};

constexpr int searchableRows = 20'000;

QString lengthText(double seconds)
{
    const qint64 whole = qRound64(seconds);
    const QString minutes = QString::number(whole / 60 % 60), rest = u"%1"_s.arg(whole % 60, 2, 10, QChar(u'0'));
    return whole < 3600 ? minutes + u':' + rest
                        : u"%1:%2:%3"_s.arg(whole / 3600).arg(minutes.rightJustified(2, u'0'), rest);
}

} // namespace

TrackTableModel::TrackTableModel(std::shared_ptr<KXManagedObjectContext> context, QObject *parent)
    : QAbstractTableModel(parent)
    , m_context(std::move(context))
{
}

int TrackTableModel::rowCount(const QModelIndex &parent) const { return parent.isValid() ? 0 : int(m_tracks.size()); }

int TrackTableModel::columnCount(const QModelIndex &parent) const { return parent.isValid() ? 0 : ColumnCount; }

QVariant TrackTableModel::data(const QModelIndex &index, int role) const
{
    if (!checkIndex(index, CheckIndexOption::IndexIsValid | CheckIndexOption::ParentIsInvalid))
        return {};
    const auto column = Column(index.column());
    switch (role) {
    case Qt::DisplayRole:
        return row(index.row()).texts[column];
    case Qt::TextAlignmentRole:
        return QVariant::fromValue(Qt::Alignment(columnDescriptions[column].alignment | Qt::AlignVCenter));
    case Qt::ToolTipRole: {
        const Row &track = row(index.row());
        return column == Title && !track.notes.isEmpty() ? track.texts[Title] + u'\n' + track.notes
                                                         : track.texts[column];
    }
    case Qt::AccessibleTextRole: {
        const Row &track = row(index.row());
        const QString text = column == Rating ? tr("%1 of 5 stars").arg(track.stars) : track.texts[column];
        return track.missing ? tr("%1, file missing").arg(text) : text;
    }
    case MissingRole:
        return row(index.row()).missing;
    case StarsRole:
        return row(index.row()).stars;
    case KeyRole:
        return column == KeyName ? row(index.row()).key : 0;
    default:
        return {};
    }
}

QVariant TrackTableModel::headerData(int section, Qt::Orientation orientation, int role) const
{
    if (orientation != Qt::Horizontal || section < 0 || section >= ColumnCount)
        return {};
    if (role == Qt::DisplayRole)
        return QCoreApplication::translate("TrackTable", columnDescriptions[section].title);
    if (role == Qt::TextAlignmentRole)
        return QVariant::fromValue(Qt::Alignment(columnDescriptions[section].alignment | Qt::AlignVCenter));
    return {};
}

void TrackTableModel::sort(int column, Qt::SortOrder order)
{
    if (column < 0 || column >= ColumnCount || (column == m_sortColumn && order == m_sortOrder))
        return;
    m_sortColumn = column;
    m_sortOrder = order;
    refetch();
}

QModelIndexList TrackTableModel::match(
    const QModelIndex &start, int role, const QVariant &value, int hits, Qt::MatchFlags flags) const
{
    return rowCount() > searchableRows ? QModelIndexList()
                                       : QAbstractTableModel::match(start, role, value, hits, flags);
}

void TrackTableModel::refetch()
{
    beginResetModel();
    const QString key = QLatin1StringView(columnDescriptions[m_sortColumn].sortKey);
    m_tracks = m_context->fetch(
        KXFetchRequest(Track::entityName).setSortDescriptors({ { key, m_sortOrder == Qt::AscendingOrder } }));
    m_rows.clear();
    endResetModel();
}

KXManagedObjectID TrackTableModel::trackID(int row) const
{
    return row >= 0 && row < m_tracks.size() ? m_tracks.objectID(row) : KXManagedObjectID();
}

int TrackTableModel::rowOf(const KXManagedObjectID &track) const
{
    if (!track)
        return -1;
    const qsizetype last = std::min<qsizetype>(m_tracks.size(), 100'000);
    for (qsizetype i = 0; i < last; ++i) {
        if (m_tracks.objectID(i) == track)
            return int(i);
    }
    return -1;
}

const TrackTableModel::Row &TrackTableModel::row(int number) const
{
    if (const Row *known = m_rows.object(number))
        return *known;
    const KXRef<Track> track = m_tracks.as<Track>(number);
    auto *made = new Row(track ? makeRow(*track) : Row());
    m_rows.insert(number, made);
    return *made;
}

TrackTableModel::Row TrackTableModel::makeRow(const Track &track) const
{
    Row row;
    row.missing = track.missing();
    row.stars = track.rating().value_or(0);
    row.notes = track.importNotes().value_or(QString());
    row.texts[Title] = track.title();
    row.texts[Artist] = track.artistText().value_or(QString());
    row.texts[AlbumTitle] = track.albumText().value_or(QString());
    row.texts[GenreNames] = track.genreText().value_or(QString());
    row.texts[LabelNames] = track.labelText().value_or(QString());
    if (const auto bpm = track.bpm())
        row.texts[Bpm] = QString::number(*bpm, 'f', 1);
    if (const auto order = track.keyOrder()) {
        const MusicalKey key { *order / 2, *order % 2 == 0 };
        row.key = key.minor ? -key.number : key.number;
        row.texts[KeyName] = u"%1 · %2"_s.arg(key.wheelCode(), key.name());
    }
    if (row.stars > 0)
        row.texts[Rating] = QString(row.stars, u'★');
    if (const auto duration = track.duration())
        row.texts[Length] = lengthText(*duration);
    if (const auto year = track.year())
        row.texts[Year] = QString::number(*year);
    row.texts[Added]
        = KXClock::locale().toString(track.added().toTimeZone(KXClock::timeZone()).date(), QLocale::ShortFormat);
    return row;
}
