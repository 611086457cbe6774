#include "table/TrackTableModel.h"

#include <algorithm>

#include <QCoreApplication>
#include <QLocale>

#include <kestrixkit/foundation/KXClock.h>

#include "files/FileNotes.h"
#include "library/TrackNames.h"
#include "window/BrowserStyle.h"

using namespace Qt::StringLiterals;

namespace {

QString titled(const char *text) { return QCoreApplication::translate("TrackTable", text); }

// What is compared to tell what was found by listening.
enum : int { TempoValue = Qt::UserRole + 100, AnalysedTempoValue, AnalysedKeyValue };

constexpr int comparedRows = 1'000; // for whether they differ

/// In the order of the fields.
constexpr TrackTableModel::Column columnsOfFields[TrackFields::count] { TrackTableModel::Title, TrackTableModel::Artist,
    TrackTableModel::AlbumTitle, TrackTableModel::GenreNames, TrackTableModel::LabelNames, TrackTableModel::Year,
    TrackTableModel::KeyName, TrackTableModel::Bpm, TrackTableModel::Comment };

MusicalKey keyOf(const QVariant &order) { return { order.toInt() / 2, order.toInt() % 2 == 0 }; }

QString keyText(const QVariant &order) { return u"%1 · %2"_s.arg(keyOf(order).wheelCode(), keyOf(order).name()); }

QString tempoText(const QVariant &bpm) { return KXClock::locale().toString(bpm.toDouble(), 'f', 1); }

QString starsText(const QVariant &stars) { return QString(stars.toInt(), u'★'); }

QString dateText(const QVariant &date)
{
    return KXClock::locale().toString(date.toDateTime().toTimeZone(KXClock::timeZone()).date(), QLocale::ShortFormat);
}

QString lengthText(const QVariant &seconds) { return BrowserStyle::timeText(seconds.toDouble()); }

/// In the order of TrackTableModel::Column. The newest, best and latest come first when sorted by.
QList<KXLiveListModel::Column> columnsOfTracks()
{
    const auto text = [](const QString &keyPath, const QString &title) -> KXLiveListModel::Column {
        return { .keyPath = keyPath, .title = title, .sortOptions = Track::textOrder };
    };
    QList<KXLiveListModel::Column> columns {
        text(u"title"_s, titled(QT_TRANSLATE_NOOP("TrackTable", "Title"))),
        text(u"artistText"_s, titled(QT_TRANSLATE_NOOP("TrackTable", "Artist"))),
        text(u"albumText"_s, titled(QT_TRANSLATE_NOOP("TrackTable", "Album"))),
        text(u"genreText"_s, titled(QT_TRANSLATE_NOOP("TrackTable", "Genre"))),
        { u"bpm"_s, titled(QT_TRANSLATE_NOOP("TrackTable", "BPM")), Qt::AlignRight, tempoText },
        { u"keyOrder"_s, titled(QT_TRANSLATE_NOOP("TrackTable", "Key")), Qt::AlignHCenter, keyText },
        { .keyPath = u"rating"_s,
            .title = titled(QT_TRANSLATE_NOOP("TrackTable", "Rating")),
            .formatter = starsText,
            .sortsAscending = false },
        { u"duration"_s, titled(QT_TRANSLATE_NOOP("TrackTable", "Length")), Qt::AlignRight, lengthText },
        text(u"labelText"_s, titled(QT_TRANSLATE_NOOP("TrackTable", "Label"))),
        { .keyPath = u"year"_s,
            .title = titled(QT_TRANSLATE_NOOP("TrackTable", "Year")),
            .alignment = Qt::AlignRight,
            .sortsAscending = false },
        { .keyPath = u"added"_s,
            .title = titled(QT_TRANSLATE_NOOP("TrackTable", "Added")),
            .alignment = Qt::AlignRight,
            .formatter = dateText,
            .sortsAscending = false },
        { .keyPath = u"comment"_s,
            .title = titled(QT_TRANSLATE_NOOP("TrackTable", "Comment")),
            .sortOptions = Track::textOrder },
        { .keyPath = u"location"_s,
            .title = titled(QT_TRANSLATE_NOOP("TrackTable", "Waveform")),
            .formatter = [](const QVariant &) { return QString(); } },
    };
    for (KXLiveListModel::Column &column : columns)
        column.sortsAbsentLast = true; // who sorts by tempo looks for a tempo
    return columns;
}

QList<KXLiveListModel::Column> columnsFor(const LibraryEditor *editor)
{
    QList<KXLiveListModel::Column> columns = columnsOfTracks();
    for (int column = 0; column < columns.size(); ++column)
        columns[column].isEditable = editor && TrackTableModel::fieldOf(column);
    return columns;
}

} // namespace

TrackTableModel::TrackTableModel(const KXManagedObjectContext::Ref &context, LibraryEditor *editor, QObject *parent)
    : KXLiveListModel(context, QString(Track::entityName), columnsFor(editor), { sortDescriptor(Added) }, parent)
    , m_editor(editor)
{
    setRoles({ { MissingRole, u"missing"_s }, { StarsRole, u"rating"_s }, { LocationRole, u"location"_s },
        { KeyRole, u"keyOrder"_s }, { NotesRole, u"importNotes"_s }, { TempoValue, u"bpm"_s },
        { AnalysedTempoValue, u"analysedBpm"_s }, { AnalysedKeyValue, u"analysedKey"_s } });
}

KXSortDescriptor TrackTableModel::sortDescriptor(Column column)
{
    return KXLiveListModel::sortDescriptor(columnsOfTracks().at(column));
}

TrackTableModel::Column TrackTableModel::columnOf(TrackFields::Field field) { return columnsOfFields[int(field)]; }

QString TrackTableModel::title(Column column) { return columnsOfTracks().at(column).title; }

std::optional<TrackFields::Field> TrackTableModel::fieldOf(int column)
{
    for (const TrackFields::Field field : TrackFields::all()) {
        if (columnOf(field) == column)
            return field;
    }
    return std::nullopt;
}

void TrackTableModel::setOrder(const QList<KXSortDescriptor> &order)
{
    if (m_holdsOrder)
        m_heldOrder = order;
    else
        setSortDescriptors(order);
}

void TrackTableModel::setFilter(const KXPredicate &filter)
{
    m_holdsOrder = false;
    const QList<KXSortDescriptor> order = std::exchange(m_heldOrder, {}).value_or(sortDescriptors());
    if (filter != this->filter() || order != sortDescriptors())
        setPredicate(filter, order);
}

QVariant TrackTableModel::data(const QModelIndex &index, int role) const
{
    const QVariant value = KXLiveListModel::data(index, role);
    if (!index.isValid())
        return value;
    switch (role) {
    case Qt::EditRole: {
        const auto field = fieldOf(index.column());
        const KXRef<Track> edited = field ? track(index.row()) : KXRef<Track>();
        return index.column() == Rating ? index.data(StarsRole)
            : edited                    ? QVariant(TrackFields::text(*edited, *field))
                                        : value;
    }
    case AnalysedRole:
        return isAnalysed(index);
    case CutOffRole:
        return index.data(NotesRole).toString().contains(cutOffNote());
    case MixedRole: {
        const auto field = fieldOf(index.column());
        return field && isMixed(index.row(), *field);
    }
    case Qt::ToolTipRole: {
        const QString notes = index.column() == Title ? FileNotes::shown(index.data(NotesRole).toString())
            : isAnalysed(index)                       ? tr("Analysed; not from the file's tags")
                                                      : QString();
        return notes.isEmpty() ? value : value.toString() + u'\n' + notes;
    }
    case Qt::AccessibleTextRole: {
        const QString text
            = index.column() == Rating ? tr("%1 of 5 stars").arg(index.data(StarsRole).toInt()) : value.toString();
        const bool isCutOff = index.column() == Title && index.data(CutOffRole).toBool();
        return index.data(MissingRole).toBool() ? tr("%1, file missing").arg(text)
            : isCutOff                          ? tr("%1, file cut off").arg(text)
            : isAnalysed(index)                 ? tr("%1, analysed").arg(text)
                                                : text;
    }
    case StarsRole:
        return value.toInt();
    case KeyRole:
        if (index.column() != KeyName || value.isNull())
            return 0;
        return keyOf(value).minor ? -keyOf(value).number : keyOf(value).number;
    default:
        return value;
    }
}

bool TrackTableModel::isAnalysed(const QModelIndex &index) const
{
    if (index.column() != Bpm && index.column() != KeyName)
        return false;
    const bool isTempo = index.column() == Bpm;
    const QVariant found = KXLiveListModel::data(index, isTempo ? AnalysedTempoValue : AnalysedKeyValue);
    return found.isValid() && !found.isNull()
        && found == KXLiveListModel::data(index, isTempo ? int(TempoValue) : int(KeyRole));
}

bool TrackTableModel::setData(const QModelIndex &index, const QVariant &value, int role)
{
    if (!m_editor || !checkIndex(index, CheckIndexOption::IndexIsValid))
        return false;
    const int row = index.row();
    if (role == StarsRole || (role == Qt::EditRole && index.column() == Rating)) {
        const QVariant rating = value.toInt() > 0 ? QVariant(std::min(value.toInt(), 5)) : QVariant();
        const auto properties = [&] { return TrackFields::Properties { { u"rating"_s, rating } }; };
        return editsInBulk(row, properties, LibraryEditor::tr("Change Rating"))
            || m_editor->rate(editedWith(row), value.toInt());
    }
    const auto field = role == Qt::EditRole ? fieldOf(index.column()) : std::nullopt;
    const auto news = field ? TrackFields::value(*field, value.toString()) : std::nullopt;
    if (!news)
        return false;
    const auto properties = [&] {
        const KXRef<Track> first = track(row);
        KXManagedObjectContext *const context = first ? first->managedObjectContext() : nullptr;
        if (!context)
            return TrackFields::Properties();
        TrackNames names(*context);
        return TrackFields::properties(*news, names);
    };
    return editsInBulk(row, properties, LibraryEditor::tr("Change %1").arg(TrackFields::name(news->field)))
        || m_editor->setField(editedWith(row), news->field, value.toString());
}

bool TrackTableModel::editsInBulk(
    int row, const std::function<TrackFields::Properties()> &properties, const QString &actionName) const
{
    return m_bulkEdit && m_rowsEditedTogether && m_rowsEditedTogether().contains(row)
        && m_bulkEdit(properties, actionName);
}

QList<int> TrackTableModel::rowsEditedWith(int row) const
{
    const QList<int> rows = m_rowsEditedTogether ? m_rowsEditedTogether() : QList<int>();
    return rows.contains(row) ? rows : QList<int> { row };
}

bool TrackTableModel::isMixed(int row, TrackFields::Field field) const
{
    const KXRef<Track> first = track(row);
    const QList<int> rows = rowsEditedWith(row);
    return first
        && std::any_of(rows.begin(), rows.begin() + std::min<qsizetype>(rows.size(), comparedRows), [&](int other) {
               const KXRef<Track> with = track(other);
               return with && TrackFields::plainText(*with, field) != TrackFields::plainText(*first, field);
           });
}

QList<KXRef<Track>> TrackTableModel::editedWith(int row) const
{
    QList<KXRef<Track>> tracks;
    for (const int each : rowsEditedWith(row)) {
        if (const KXRef<Track> edited = track(each))
            tracks.append(edited);
    }
    return tracks;
}
