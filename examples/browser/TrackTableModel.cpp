#include "TrackTableModel.h"

#include <QCoreApplication>
#include <QLocale>

#include <kestrixkit/foundation/KXClock.h>

#include "BrowserStyle.h"

using namespace Qt::StringLiterals;

namespace {

constexpr int plainText = KXCaseInsensitive | KXDiacriticInsensitive; // how texts are sorted

QString titled(const char *text) { return QCoreApplication::translate("TrackTable", text); }

MusicalKey keyOf(const QVariant &order) { return { order.toInt() / 2, order.toInt() % 2 == 0 }; }

QString keyText(const QVariant &order) { return u"%1 · %2"_s.arg(keyOf(order).wheelCode(), keyOf(order).name()); }

QString tempoText(const QVariant &bpm) { return QString::number(bpm.toDouble(), 'f', 1); }

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
        return { .keyPath = keyPath, .title = title, .sortOptions = plainText };
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
            .isEditable = true,
            .sortOptions = plainText },
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
    columns[TrackTableModel::Comment].isEditable = editor;
    return columns;
}

} // namespace

TrackTableModel::TrackTableModel(const KXManagedObjectContext::Ref &context, LibraryEditor *editor, QObject *parent)
    : KXLiveListModel(context, QString(Track::entityName), columnsFor(editor), { sortDescriptor(Added) }, parent)
    , m_editor(editor)
{
    setRoles({ { MissingRole, u"missing"_s }, { StarsRole, u"rating"_s }, { LocationRole, u"location"_s },
        { KeyRole, u"keyOrder"_s }, { NotesRole, u"importNotes"_s } });
}

KXSortDescriptor TrackTableModel::sortDescriptor(Column column)
{
    return KXLiveListModel::sortDescriptor(columnsOfTracks().at(column));
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
    case Qt::EditRole:
        return index.column() == Rating ? index.data(StarsRole) : value;
    case Qt::ToolTipRole: {
        const QString notes = index.column() == Title ? index.data(NotesRole).toString() : QString();
        return notes.isEmpty() ? value : value.toString() + u'\n' + notes;
    }
    case Qt::AccessibleTextRole: {
        const QString text
            = index.column() == Rating ? tr("%1 of 5 stars").arg(index.data(StarsRole).toInt()) : value.toString();
        return index.data(MissingRole).toBool() ? tr("%1, file missing").arg(text) : text;
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

bool TrackTableModel::setData(const QModelIndex &index, const QVariant &value, int role)
{
    if (!m_editor || !checkIndex(index, CheckIndexOption::IndexIsValid))
        return false;
    const int row = index.row();
    if (role == StarsRole || (role == Qt::EditRole && index.column() == Rating)) {
        const QVariant rating = value.toInt() > 0 ? QVariant(std::min(value.toInt(), 5)) : QVariant();
        return editsInBulk(row, u"rating"_s, rating, LibraryEditor::tr("Change Rating"))
            || m_editor->rate(editedWith(row), value.toInt());
    }
    if (role != Qt::EditRole || index.column() != Comment)
        return false;
    const QVariant comment = value.toString().isEmpty() ? QVariant() : QVariant(value.toString());
    return editsInBulk(row, u"comment"_s, comment, LibraryEditor::tr("Change Comment"))
        || m_editor->setComment(editedWith(row), value.toString());
}

bool TrackTableModel::editsInBulk(int row, const QString &key, const QVariant &value, const QString &actionName) const
{
    return m_bulkEdit && m_rowsEditedTogether && m_rowsEditedTogether().contains(row)
        && m_bulkEdit(key, value, actionName);
}

QList<KXRef<Track>> TrackTableModel::editedWith(int row) const
{
    QList<int> rows = m_rowsEditedTogether ? m_rowsEditedTogether() : QList<int>();
    if (!rows.contains(row))
        rows = { row };
    QList<KXRef<Track>> tracks;
    for (const int each : std::as_const(rows)) {
        if (const KXRef<Track> edited = track(each))
            tracks.append(edited);
    }
    return tracks;
}
