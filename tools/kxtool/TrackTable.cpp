#include <memory>

#include <QDateTime>
#include <QFile>
#include <QTextStream>

#include <kestrixkit/catalogue/KXCatalogueSchema.h>
#include <kestrixkit/foundation/KXDecimal.h>

#include "Command.h"
#include "TrackSource.h"

using namespace Qt::StringLiterals;

namespace {

/// The cells of a table's next line, whose texts may be quoted and then hold commas, quotes and lines.
bool readCells(QTextStream &stream, QStringList &cells)
{
    cells.clear();
    QString line;
    if (!stream.readLineInto(&line))
        return false;
    QString cell;
    bool isQuoted = false;
    for (qsizetype at = 0;; ++at) {
        if (at == line.size() && isQuoted) {
            QString more;
            if (!stream.readLineInto(&more))
                throw Ending { WrongInput, u"the table ends within quotes"_s };
            line += u'\n' + more;
        }
        if (at == line.size())
            break;
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

/// Invalid for an empty cell; the text itself, which the loader refuses, where it is none of the type.
QVariant cellValue(const QString &cell, KXCatalogueType type)
{
    if (cell.isEmpty())
        return {};
    bool ok = true;
    QVariant value = cell;
    switch (type) {
    case KXCatalogueType::Boolean:
        return cell == "1"_L1 || cell.compare("true"_L1, Qt::CaseInsensitive) == 0;
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

} // namespace

TrackSource TrackSources::table(const KXCatalogueSchema &schema, const QString &path)
{
    const auto file = std::make_shared<QFile>(path);
    if (!file->open(QIODevice::ReadOnly))
        throw Ending { WrongInput, u"%1: %2"_s.arg(path, file->errorString()) };
    const auto stream = std::make_shared<QTextStream>(file.get());
    QStringList names;
    if (!readCells(*stream, names) || !names.contains(u"released"_s) || !names.contains(u"title"_s))
        throw Ending { WrongInput,
            u"%1: its first line has to name columns, title and released among them"_s.arg(path) };
    return [schema, file, stream, names, number = qint64(0)](QVariantList &values) mutable {
        QStringList cells;
        if (!readCells(*stream, cells))
            return false;
        ++number;
        values.clear();
        const auto cell = [&](const QString &keyPath) { return cells.value(names.indexOf(keyPath)); };
        for (const KXCatalogueColumn &column : schema.columns()) {
            QVariant value;
            if (column.keyPath == KXCatalogueSchema::identifierKeyPath && !names.contains(column.keyPath)) {
                value = number;
            } else if (column.type == KXCatalogueType::Words) {
                value = QStringList { cell(u"title"_s), cell(u"artistText"_s), cell(u"label"_s) };
            } else if (column.isList) {
                QVariantList list;
                for (const QString &element : cell(column.keyPath).split(u'|', Qt::SkipEmptyParts))
                    list.append(cellValue(element, column.type));
                value = list;
            } else {
                value = cellValue(cell(column.keyPath), column.type);
                if (!value.isValid() && column.notNull && column.type == KXCatalogueType::Text)
                    value = QString();
            }
            values.append(value);
        }
        return true;
    };
}
