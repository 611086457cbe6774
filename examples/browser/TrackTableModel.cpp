#include "TrackTableModel.h"

#include <QCoreApplication>
#include <QLocale>

#include <kestrixkit/foundation/KXClock.h>

#include "BrowserStyle.h"

using namespace Qt::StringLiterals;

namespace {

struct ColumnDescription
{
    const char *title;
    const char *sortKey;
    Qt::AlignmentFlag alignment;
    bool isText;
};

constexpr ColumnDescription columnDescriptions[TrackTableModel::ColumnCount] = {
    { QT_TRANSLATE_NOOP("TrackTable", "Title"), "title", Qt::AlignLeft, true },
    { QT_TRANSLATE_NOOP("TrackTable", "Artist"), "artistText", Qt::AlignLeft, true },
    { QT_TRANSLATE_NOOP("TrackTable", "Album"), "albumText", Qt::AlignLeft, true },
    { QT_TRANSLATE_NOOP("TrackTable", "Genre"), "genreText", Qt::AlignLeft, true },
    { QT_TRANSLATE_NOOP("TrackTable", "BPM"), "bpm", Qt::AlignRight, false },
    { QT_TRANSLATE_NOOP("TrackTable", "Key"), "keyOrder", Qt::AlignHCenter, false },
    { QT_TRANSLATE_NOOP("TrackTable", "Rating"), "rating", Qt::AlignLeft, false },
    { QT_TRANSLATE_NOOP("TrackTable", "Length"), "duration", Qt::AlignRight, false },
    { QT_TRANSLATE_NOOP("TrackTable", "Label"), "labelText", Qt::AlignLeft, true },
    { QT_TRANSLATE_NOOP("TrackTable", "Year"), "year", Qt::AlignRight, false },
    { QT_TRANSLATE_NOOP("TrackTable", "Added"), "added", Qt::AlignRight, false },
    { QT_TRANSLATE_NOOP("TrackTable", "Comment"), "comment", Qt::AlignLeft, true },
    { QT_TRANSLATE_NOOP("TrackTable", "Waveform"), "location", Qt::AlignLeft, false },
};

constexpr int searchableRows = 20'000;
constexpr int rowsReadAtOnce = 32; // about a screen

QString lengthText(double seconds)
{
    const qint64 whole = qRound64(seconds);
    const QString minutes = QString::number(whole / 60 % 60), rest = u"%1"_s.arg(whole % 60, 2, 10, QChar(u'0'));
    return whole < 3600 ? minutes + u':' + rest
                        : u"%1:%2:%3"_s.arg(whole / 3600).arg(minutes.rightJustified(2, u'0'), rest);
}

} // namespace

TrackTableModel::TrackTableModel(const KXManagedObjectContext::Ref &context, LibraryEditor *editor, QObject *parent)
    : QAbstractTableModel(parent)
    , m_editor(editor)
    , m_tracks(context, request(), this)
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
    case Qt::EditRole:
        if (column == Rating)
            return row(index.row()).stars;
        [[fallthrough]];
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
    case LocationRole:
        return row(index.row()).location;
    case KeyRole:
        return column == KeyName ? row(index.row()).key : 0;
    default:
        return {};
    }
}

bool TrackTableModel::setData(const QModelIndex &index, const QVariant &value, int role)
{
    if (!m_editor || !checkIndex(index, CheckIndexOption::IndexIsValid))
        return false;
    const KXRef<Track> edited = track(index.row());
    if (!edited)
        return false;
    if (role == StarsRole || (role == Qt::EditRole && index.column() == Rating))
        return m_editor->rate({ edited }, value.toInt());
    return role == Qt::EditRole && index.column() == Comment && m_editor->setComment(edited, value.toString());
}

Qt::ItemFlags TrackTableModel::flags(const QModelIndex &index) const
{
    const Qt::ItemFlags flags = QAbstractTableModel::flags(index);
    return m_editor && index.isValid() && index.column() == Comment ? flags | Qt::ItemIsEditable : flags;
}

QVariant TrackTableModel::headerData(int section, Qt::Orientation orientation, int role) const
{
    if (orientation != Qt::Horizontal || section < 0 || section >= ColumnCount)
        return {};
    if (role == Qt::DisplayRole)
        return QCoreApplication::translate("TrackTable", columnDescriptions[section].title);
    if (role == Qt::TextAlignmentRole)
        return QVariant::fromValue(Qt::Alignment(columnDescriptions[section].alignment | Qt::AlignVCenter));
    if (role == Qt::InitialSortOrderRole)
        return sortDescriptor(Column(section)).ascending ? Qt::AscendingOrder : Qt::DescendingOrder;
    return {};
}

void TrackTableModel::sort(int column, Qt::SortOrder order)
{
    if (column < 0 || column >= ColumnCount)
        return;
    KXSortDescriptor descriptor = sortDescriptor(Column(column));
    descriptor.ascending = order == Qt::AscendingOrder;
    setSortDescriptors({ descriptor });
}

void TrackTableModel::setSortDescriptors(const QList<KXSortDescriptor> &descriptors)
{
    const auto isAlike = [](const KXSortDescriptor &a, const KXSortDescriptor &b) {
        return a.key == b.key && a.ascending == b.ascending;
    };
    if (std::equal(descriptors.begin(), descriptors.end(), m_sortDescriptors.begin(), m_sortDescriptors.end(), isAlike))
        return;
    m_sortDescriptors = descriptors;
    m_tracks.setRequest(request());
}

KXSortDescriptor TrackTableModel::sortDescriptor(Column column)
{
    const ColumnDescription &description = columnDescriptions[column];
    // The newest, best and latest first.
    const bool ascending = column != Rating && column != Year && column != Added;
    return { QLatin1StringView(description.sortKey), ascending,
        description.isText ? KXCaseInsensitive | KXDiacriticInsensitive : 0 };
}

void TrackTableModel::setFilter(const KXPredicate &filter)
{
    m_filter = filter;
    m_tracks.setRequest(request());
}

KXFetchRequest TrackTableModel::request() const
{
    return KXFetchRequest(QString(Track::entityName), m_filter)
        .setSortDescriptors(m_sortDescriptors)
        .setFetchBatchSize(rowsReadAtOnce);
}

QModelIndexList TrackTableModel::match(
    const QModelIndex &start, int role, const QVariant &value, int hits, Qt::MatchFlags flags) const
{
    return rowCount() > searchableRows ? QModelIndexList()
                                       : QAbstractTableModel::match(start, role, value, hits, flags);
}

void TrackTableModel::listWillChange(const KXListStep &step)
{
    const int first = int(step.first), last = int(step.first + step.count - 1);
    switch (step.kind) {
    case KXListStep::Insertion:
        return beginInsertRows({}, first, last);
    case KXListStep::Removal:
        return beginRemoveRows({}, first, last);
    case KXListStep::Move:
        beginMoveRows({}, first, last, {}, int(step.to));
        return;
    case KXListStep::Update:
        return;
    case KXListStep::Reordering:
        Q_EMIT layoutAboutToBeChanged({}, VerticalSortHint);
        m_heldIndexes = persistentIndexList();
        m_heldKeys.clear();
        for (const QModelIndex &index : std::as_const(m_heldIndexes))
            m_heldKeys.push_back(m_tracks.keys()[size_t(index.row())]);
        return;
    }
}

void TrackTableModel::listDidChange(const KXListStep &step)
{
    switch (step.kind) {
    case KXListStep::Insertion:
        return endInsertRows();
    case KXListStep::Removal:
        return endRemoveRows();
    case KXListStep::Move:
        return endMoveRows();
    case KXListStep::Update:
        for (qsizetype i = step.first; i < step.first + step.count; ++i)
            m_rows.remove(m_tracks.keys()[size_t(i)]);
        Q_EMIT dataChanged(index(int(step.first), 0), index(int(step.first + step.count - 1), ColumnCount - 1));
        return;
    case KXListStep::Reordering:
        QModelIndexList moved;
        const std::vector<qsizetype> rows = m_tracks.indexesOf(m_heldKeys);
        for (size_t i = 0; i < rows.size(); ++i)
            moved.append(index(int(rows[i]), m_heldIndexes[qsizetype(i)].column()));
        changePersistentIndexList(m_heldIndexes, moved);
        m_heldIndexes.clear();
        Q_EMIT layoutChanged({}, VerticalSortHint);
        return;
    }
}

const TrackTableModel::Row &TrackTableModel::row(int number) const
{
    const qint64 key = m_tracks.key(number);
    if (const Row *known = m_rows.object(key))
        return *known;
    const KXRef<Track> shown = track(number);
    auto *made = new Row(shown ? makeRow(*shown) : Row());
    m_rows.insert(key, made);
    return *made;
}

TrackTableModel::Row TrackTableModel::makeRow(const Track &track) const
{
    Row row;
    row.missing = track.missing();
    row.stars = track.rating().value_or(0);
    row.location = track.location();
    row.notes = track.importNotes().value_or(QString());
    row.texts[Title] = track.title();
    row.texts[Artist] = track.artistText().value_or(QString());
    row.texts[AlbumTitle] = track.albumText().value_or(QString());
    row.texts[GenreNames] = track.genreText().value_or(QString());
    row.texts[Comment] = track.comment().value_or(QString());
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
