#include <kestrixkit/store/KXRowCodec_p.h>

#include <QStringEncoder>

#include <kestrixkit/entity/KXValueConversion_p.h>
#include <kestrixkit/foundation/KXDecimal.h>
#include <kestrixkit/store/KXStoreTables_p.h>

namespace {

void bindEncoded(KXStatement &statement, int parameter, QStringView text, KXRowTexts &texts)
{
    if (const std::optional<std::string_view> utf8 = texts.add(text)) {
        statement.bindText(parameter, *utf8);
        return;
    }
    const QByteArray utf8 = text.toUtf8();
    sqlite3_bind_text64(
        statement.get(), parameter, utf8.constData(), sqlite3_uint64(utf8.size()), SQLITE_TRANSIENT, SQLITE_UTF8);
}

}

std::optional<std::string_view> KXRowTexts::add(QStringView text)
{
    if (3 * text.size() > room - m_used)
        return std::nullopt;
    char *const start = m_bytes.get() + m_used;
    const char16_t *const units = text.utf16();
    const qsizetype size = text.size();
    char16_t bits = 0;
    for (qsizetype i = 0; i < size; ++i) { // most texts are ASCII
        bits |= units[i];
        start[i] = char(units[i]);
    }
    char *end = start + size;
    if (bits >= 0x80)
        end = QStringEncoder(QStringEncoder::Utf8, QStringEncoder::Flag::Stateless).appendToBuffer(start, text);
    m_used = end - m_bytes.get();
    return std::string_view(start, size_t(end - start));
}

KXRowCodec::KXRowCodec(const KXEntityDescription &entity)
    : m_entity(entity)
{
    const bool discriminator = entity.hasDiscriminator();
    const auto columns = KXStoreTables::columnsOfTable(*entity.root());
    selectColumns({ columns.begin(), columns.end() });
    QHash<QByteArray, int> positions;
    for (const KXPropertyDescription *column : columns)
        positions.insert(column->column(), int(positions.size()) + (discriminator ? 3 : 2));

    m_insert = "INSERT INTO " + entity.table() + "(kx_id, kx_version";
    QByteArray parameters = "?, ?";
    if (discriminator) {
        m_insert += ", kx_entity";
        parameters += ", " + QByteArray::number(entity.number());
    }
    for (const KXPropertyDescription &property : entity.properties()) {
        if (property.isToMany())
            m_toMany.push_back(&property);
        else if (property.isToOne() && property.inverse())
            m_toOne.push_back(&property);
        // Each pair of a join table stands in the sets of both ends; one of them writes it.
        if (!property.joinTable().isEmpty()
            && (!property.inverse() || property.inverse() == &property || property.joinSource() == "a"))
            m_joins.push_back(&property);
        if (!property.hasColumn())
            continue;
        if (!property.isOptional() || (property.isAttribute() && property.type() == KXAttributeType::Double))
            m_validated.push_back(&property);
        addColumn(property, positions.value(property.column()));
        m_insert += ", " + property.column();
        parameters += ", ?";
    }
    m_insert += ") VALUES(" + parameters + ')';
}

KXRowCodec::KXRowCodec(const KXEntityDescription &entity, const std::vector<const KXPropertyDescription *> &only)
    : m_entity(entity)
{
    selectColumns(only);
    for (const KXPropertyDescription *property : only)
        addColumn(*property, int(m_columns.size()) + (entity.hasDiscriminator() ? 3 : 2));
}

void KXRowCodec::selectColumns(const std::vector<const KXPropertyDescription *> &columns)
{
    m_select = "SELECT t0.kx_id, t0.kx_version";
    if (m_entity.hasDiscriminator())
        m_select += ", t0.kx_entity";
    for (const KXPropertyDescription *column : columns)
        m_select += ", t0." + column->column();
    m_select += " FROM " + m_entity.table() + " t0";
}

void KXRowCodec::addColumn(const KXPropertyDescription &property, int index)
{
    m_columns.push_back({ &property, index, property.index(), property.offset(),
        property.isRelationship() ? KXAttributeType::Integer64 : property.type() });
}

QByteArray KXRowCodec::update(const std::vector<const KXPropertyDescription *> &properties) const
{
    QByteArray sql = "UPDATE " + m_entity.table() + " SET kx_version = kx_version + 1";
    for (const KXPropertyDescription *property : properties)
        sql += ", " + property->column() + " = ?";
    return sql + " WHERE kx_id = ? AND kx_version = ?";
}

void KXRowCodec::read(const KXStatement &row, KXRowValues &values) const
{
    values.version = row.integer(VersionColumn);
    for (const auto &[property, index, bit, offset, type] : m_columns) {
        // Looked up once a column, not once for its type, its value and its length.
        sqlite3_value *column = sqlite3_column_value(row.get(), index);
        if (sqlite3_value_type(column) == SQLITE_NULL)
            continue;
        const auto text = [column] {
            const auto *utf8 = reinterpret_cast<const char *>(sqlite3_value_text(column));
            return QString::fromUtf8(utf8, sqlite3_value_bytes(column));
        };
        values.setPresent(bit, true);
        switch (type) {
        case KXAttributeType::Double:
            values.slot<double>(offset) = sqlite3_value_double(column);
            break;
        case KXAttributeType::String:
        case KXAttributeType::URI:
            values.slot<KXTextSlot>(offset).assignUtf8(
                reinterpret_cast<const char *>(sqlite3_value_text(column)), sqlite3_value_bytes(column));
            break;
        case KXAttributeType::UUID:
            values.slot<QUuid>(offset) = QUuid::fromString(text());
            break;
        case KXAttributeType::Decimal:
            values.slot<QVariant *>(offset)
                = new QVariant(QVariant::fromValue(KXDecimal::fromString(text()).value_or(KXDecimal())));
            break;
        case KXAttributeType::Binary:
            values.slot<QVariant *>(offset) = new QVariant(row.bytes(index));
            break;
        case KXAttributeType::Variant:
            values.slot<QVariant *>(offset) = new QVariant(KXValueConversion::variantFromBytes(row.bytes(index)));
            break;
        default:
            values.slot<qint64>(offset) = sqlite3_value_int64(column);
        }
    }
}

void KXRowCodec::bind(KXStatement &statement, int parameter, const KXRowValues &values,
    const KXPropertyDescription &property, KXRowTexts &texts)
{
    const int offset = property.offset();
    if (!values.isPresent(property.index())) {
        statement.bindNull(parameter);
        return;
    }
    if (property.isRelationship()) {
        statement.bind(parameter, values.slot<qint64>(offset));
        return;
    }
    switch (property.type()) {
    case KXAttributeType::Double:
        statement.bind(parameter, values.slot<double>(offset));
        break;
    case KXAttributeType::String:
    case KXAttributeType::URI:
        bindEncoded(statement, parameter, values.slot<KXTextSlot>(offset).view(), texts);
        break;
    case KXAttributeType::UUID:
        bindEncoded(statement, parameter, values.slot<QUuid>(offset).toString(QUuid::WithoutBraces), texts);
        break;
    case KXAttributeType::Decimal:
        bindEncoded(statement, parameter, values.slot<QVariant *>(offset)->value<KXDecimal>().toString(), texts);
        break;
    case KXAttributeType::Binary:
        statement.bindVariant(parameter, *values.slot<QVariant *>(offset));
        break;
    case KXAttributeType::Variant:
        statement.bindVariant(parameter, KXValueConversion::bytesFromVariant(*values.slot<QVariant *>(offset)));
        break;
    default:
        statement.bind(parameter, values.slot<qint64>(offset));
    }
}

void KXRowCodec::bindInsert(
    KXStatement &statement, qint64 key, qint64 version, const KXRowValues &values, KXRowTexts &texts) const
{
    texts.clear();
    int parameter = 1;
    statement.bind(parameter++, key);
    statement.bind(parameter++, version);
    for (const Column &column : m_columns)
        bind(statement, parameter++, values, *column.property, texts);
}
