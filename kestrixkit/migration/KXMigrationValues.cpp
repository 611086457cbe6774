#include <kestrixkit/migration/KXMigrationValues_p.h>

#include <QUuid>

#include <kestrixkit/entity/KXValueConversion_p.h>
#include <kestrixkit/foundation/KXDecimal.h>

namespace {

using MigrationType = KXAttributeType;

QVariant migrationValue(sqlite3_value *stored, MigrationType type)
{
    const auto bytes = [stored](const void *data) {
        return QByteArray(static_cast<const char *>(data), sqlite3_value_bytes(stored));
    };
    switch (type) {
    case MigrationType::Double:
        return sqlite3_value_double(stored);
    case MigrationType::Boolean:
        return sqlite3_value_int64(stored) != 0;
    case MigrationType::Date:
        return KXValueConversion::dateFromMicroseconds(sqlite3_value_int64(stored));
    case MigrationType::Binary:
        return bytes(sqlite3_value_blob(stored));
    case MigrationType::Variant:
        return KXValueConversion::variantFromBytes(bytes(sqlite3_value_blob(stored)));
    case MigrationType::Decimal:
        return QVariant::fromValue(KXDecimal::fromCanonical(bytes(sqlite3_value_text(stored))));
    case MigrationType::String:
        return QString::fromUtf8(bytes(sqlite3_value_text(stored)));
    case MigrationType::URI:
        return QUrl(QString::fromUtf8(bytes(sqlite3_value_text(stored))));
    case MigrationType::UUID:
        return QUuid::fromString(QString::fromUtf8(bytes(sqlite3_value_text(stored))));
    default:
        return sqlite3_value_int64(stored);
    }
}

/// kx_convert(value, type it is stored as, type it becomes)
void migrationConvert(sqlite3_context *context, int, sqlite3_value **arguments)
{
    if (sqlite3_value_type(arguments[0]) == SQLITE_NULL)
        return sqlite3_result_null(context);
    const QVariant value = migrationValue(arguments[0], MigrationType(sqlite3_value_int(arguments[1])));
    const QVariant form = KXMigrationValues::storageForm(value, MigrationType(sqlite3_value_int(arguments[2])));
    if (form.typeId() == QMetaType::QString) {
        const QByteArray utf8 = form.toString().toUtf8();
        sqlite3_result_text(context, utf8.constData(), int(utf8.size()), SQLITE_TRANSIENT);
    } else if (form.typeId() == QMetaType::QByteArray) {
        const QByteArray bytes = form.toByteArray();
        sqlite3_result_blob(context, bytes.constData(), int(bytes.size()), SQLITE_TRANSIENT);
    } else if (form.typeId() == QMetaType::Double) {
        sqlite3_result_double(context, form.toDouble());
    } else if (form.isValid()) {
        sqlite3_result_int64(context, form.toLongLong());
    }
}

}

bool KXMigrationValues::isPlain(KXAttributeType from, KXAttributeType to)
{
    using enum KXAttributeType;
    const auto isInteger = [](KXAttributeType type) { return type <= Boolean; };
    if (from == to)
        return true;
    if (from == Boolean)
        return to <= Decimal;
    if (isInteger(from))
        return (to <= Integer64 && to > from) || to == Double || to == Decimal || to == String;
    return to == String && (from == Decimal || from == UUID || from == URI);
}

QVariant KXMigrationValues::storageForm(QVariant value, KXAttributeType type)
{
    if (type == MigrationType::String && value.typeId() == qMetaTypeId<KXDecimal>())
        value = value.value<KXDecimal>().toString();
    else if (type == MigrationType::String && value.typeId() == QMetaType::QDateTime)
        value = value.toDateTime().toString(Qt::ISODateWithMs);
    else if (type == MigrationType::String && value.typeId() == QMetaType::QUuid)
        value = value.toUuid().toString(QUuid::WithoutBraces);
    else if (type == MigrationType::String && value.typeId() != QMetaType::QByteArray && value.canConvert<QString>())
        value = value.toString();
    value = KXValueConversion::convert(value, type);
    if (!value.isValid())
        return value;
    switch (type) {
    case MigrationType::Boolean:
        return qint64(value.toBool());
    case MigrationType::Date:
        return KXValueConversion::microsecondsFromDate(value.toDateTime());
    case MigrationType::Decimal:
        return value.value<KXDecimal>().toString();
    case MigrationType::URI:
        return KXValueConversion::textFromUrl(value.toUrl());
    case MigrationType::UUID:
        return value.toUuid().toString(QUuid::WithoutBraces);
    case MigrationType::Variant:
        return KXValueConversion::bytesFromVariant(value);
    default:
        return value;
    }
}

void KXMigrationValues::registerFunction(sqlite3 *database)
{
    sqlite3_create_function_v2(database, "kx_convert", 3, SQLITE_UTF8 | SQLITE_DETERMINISTIC, nullptr, migrationConvert,
        nullptr, nullptr, nullptr);
}
