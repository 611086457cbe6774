#include <cstdio>
#include <memory>

#include <QDateTime>
#include <QFile>
#include <QHash>
#include <QTextStream>

#include <kestrixkit/catalogue/KXCatalogueSchema.h>
#include <kestrixkit/foundation/KXDecimal.h>

#include "Command.h"
#include "TrackSource.h"

using namespace Qt::StringLiterals;

namespace {

/// The lines of a table, whose cells may be quoted and then hold commas, quotes and line breaks.
class TableLines
{
public:
    explicit TableLines(const QString &path)
        : m_path(path)
        , m_file(path)
    {
        if (!m_file.open(QIODevice::ReadOnly))
            throw Ending { WrongInput, u"%1: %2"_s.arg(path, m_file.errorString()) };
    }
    /// Where the cells that were read last begin; the first line is 1.
    [[nodiscard]] qint64 number() const { return m_first; }
    /// The next cells; false at the end. Empty lines are passed over.
    bool read(QStringList &cells)
    {
        QString line;
        do {
            if (!next(line))
                return false;
        } while (line.isEmpty());
        m_first = m_number;
        cells.clear();
        QString cell;
        bool isQuoted = false;
        for (qsizetype at = 0; at < line.size() || isQuoted; ++at) {
            if (at == line.size()) {
                QString more;
                if (!next(more))
                    throw Ending { WrongInput, u"%1: the quotes of line %2 are not closed"_s.arg(m_path).arg(m_first) };
                line += u'\n' + more;
            }
            const QChar c = line[at];
            if (isQuoted && c == u'"' && at + 1 < line.size() && line[at + 1] == u'"') {
                cell += c;
                ++at;
            } else if (c == u'"' && (isQuoted || cell.isEmpty())) {
                isQuoted = !isQuoted;
            } else if (c == u',' && !isQuoted) {
                cells.append(std::exchange(cell, {}));
            } else {
                cell += c;
            }
        }
        cells.append(cell);
        return true;
    }

private:
    bool next(QString &line)
    {
        ++m_number;
        return m_stream.readLineInto(&line);
    }

    const QString m_path;
    QFile m_file;
    QTextStream m_stream { &m_file };
    qint64 m_number = 0;
    qint64 m_first = 0;
};

/// Invalid for an empty cell; the text itself, which the loader refuses, where it is none of the type.
QVariant cellValue(const QString &cell, KXCatalogueType type)
{
    if (cell.isEmpty())
        return {};
    bool ok = true;
    QVariant value = cell;
    switch (type) {
    case KXCatalogueType::Boolean:
        value = cell == "1"_L1 || cell.compare("true"_L1, Qt::CaseInsensitive) == 0;
        ok = value.toBool() || cell == "0"_L1 || cell.compare("false"_L1, Qt::CaseInsensitive) == 0;
        break;
    case KXCatalogueType::Integer:
        value = cell.toLongLong(&ok);
        break;
    case KXCatalogueType::Real:
        value = cell.toDouble(&ok);
        break;
    case KXCatalogueType::Decimal:
        if (const auto number = KXDecimal::fromString(cell))
            return QVariant::fromValue(*number);
        break;
    case KXCatalogueType::Date: {
        QDateTime date = QDateTime::fromString(cell, Qt::ISODateWithMs);
        if (date.timeSpec() == Qt::LocalTime) // without a zone of its own it is meant as UTC
            date.setTimeSpec(Qt::UTC);
        ok = date.isValid();
        value = date;
        break;
    }
    case KXCatalogueType::Text:
    case KXCatalogueType::Words:
        break;
    }
    return ok ? value : QVariant(cell);
}

/// Tracks of a table: see TrackSources::table().
class TrackTable
{
public:
    TrackTable(KXCatalogueSchema schema, const QString &path)
        : m_schema(std::move(schema))
        , m_lines(path)
    {
        if (!m_lines.read(m_names) || !m_names.contains(u"released"_s) || !m_names.contains(u"title"_s))
            throw Ending { WrongInput,
                u"%1: its first line has to name columns, title and released among them"_s.arg(path) };
        for (const QString &name : std::as_const(m_names)) {
            if (!m_schema.columnForKeyPath(name))
                std::fprintf(stderr, "kxtool: %s: the catalogue has no column \"%s\", which is left out\n",
                    qPrintable(path), qPrintable(name));
        }
    }
    bool next(SourceTrack &track)
    {
        if (!m_lines.read(m_cells))
            return false;
        ++m_tracks;
        track = { .name = u"line %1"_s.arg(m_lines.number()) };
        if (m_cells.size() != m_names.size()) {
            track.problem = u"it has %1 cells, and the first line has %2"_s.arg(m_cells.size()).arg(m_names.size());
            return true;
        }
        for (const KXCatalogueColumn &column : m_schema.columns())
            track.values.append(value(column));
        const QVariant &id = track.values.first();
        if (id.typeId() == QMetaType::LongLong && std::exchange(m_linesOf[id.toLongLong()], m_lines.number()) != 0)
            track.problem = u"another line has its id, %1"_s.arg(id.toLongLong());
        return true;
    }

private:
    [[nodiscard]] QString cell(const QString &keyPath) const { return m_cells.value(m_names.indexOf(keyPath)); }
    [[nodiscard]] QVariant value(const KXCatalogueColumn &column) const
    {
        if (column.keyPath == KXCatalogueSchema::identifierKeyPath && !m_names.contains(column.keyPath))
            return m_tracks;
        if (column.type == KXCatalogueType::Words)
            return QStringList { cell(u"title"_s), cell(u"artistText"_s), cell(u"label"_s) };
        if (column.isList) {
            QVariantList list;
            for (const QString &element : cell(column.keyPath).split(u'|', Qt::SkipEmptyParts))
                list.append(cellValue(element, column.type));
            return list;
        }
        const QVariant value = cellValue(cell(column.keyPath), column.type);
        return !value.isValid() && column.notNull && column.type == KXCatalogueType::Text ? QVariant(QString()) : value;
    }

    const KXCatalogueSchema m_schema;
    TableLines m_lines;
    QStringList m_names, m_cells;
    qint64 m_tracks = 0;
    QHash<qint64, qint64> m_linesOf; ///< by id
};

} // namespace

TrackSource TrackSources::table(const KXCatalogueSchema &schema, const QString &path)
{
    return [table = std::make_shared<TrackTable>(schema, path)](SourceTrack &track) { return table->next(track); };
}
