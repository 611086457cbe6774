#pragma once

#include <memory>
#include <optional>
#include <string_view>
#include <vector>

#include <kestrixkit/entity/KXRowValues_p.h>
#include <kestrixkit/store/KXSQLite_p.h>

/// The texts of one row in UTF-8, which stay where they are while they are bound.
class KXRowTexts
{
public:
    void clear() { m_used = 0; }
    /// Nothing where the room does not reach: that one is to be bound with a copy.
    [[nodiscard]] std::optional<std::string_view> add(QStringView text);

private:
    static constexpr qsizetype room = 16 << 10; // bytes
    std::unique_ptr<char[]> m_bytes = std::make_unique_for_overwrite<char[]>(room);
    qsizetype m_used = 0;
};

/// Between the rows of a table and the value blocks of one entity. Immutable; any thread.
class KXRowCodec
{
public:
    explicit KXRowCodec(const KXEntityDescription &entity);
    /// Reads and updates these alone; each has a column.
    KXRowCodec(const KXEntityDescription &entity, const std::vector<const KXPropertyDescription *> &only);

    // The first columns of every row that is read.
    static constexpr int KeyColumn = 0;
    static constexpr int VersionColumn = 1;
    static constexpr int EntityColumn = 2; ///< only where the table names the entity of its rows

    /// "SELECT … FROM table t0": all columns of the root's table, the same for all entities of a family; of a codec for
    /// some properties, theirs.
    [[nodiscard]] const QByteArray &select() const { return m_select; }
    [[nodiscard]] const QByteArray &insert() const { return m_insert; }
    /// Sets the columns of the marked properties and counts the version up, if it is still the one given. Parameters:
    /// the values in the order of the properties, then key and version.
    [[nodiscard]] QByteArray update(const std::vector<const KXPropertyDescription *> &properties) const;

    /// The to-many relationships, and of these the ones whose join table rows are written from this end.
    [[nodiscard]] const std::vector<const KXPropertyDescription *> &toMany() const { return m_toMany; }
    [[nodiscard]] const std::vector<const KXPropertyDescription *> &joins() const { return m_joins; }
    /// To-one relationships with an inverse: what they lead to must be there.
    [[nodiscard]] const std::vector<const KXPropertyDescription *> &toOne() const { return m_toOne; }
    /// What must be looked at before a row is written: required properties and doubles.
    [[nodiscard]] const std::vector<const KXPropertyDescription *> &validated() const { return m_validated; }

    /// The values of the row that the statement stands on.
    void read(const KXStatement &row, KXRowValues &values) const;
    /// Text converted for binding lives in `texts` until the statement was stepped.
    static void bind(KXStatement &statement, int parameter, const KXRowValues &values,
        const KXPropertyDescription &property, KXRowTexts &texts);
    /// Binds a whole new row.
    void bindInsert(
        KXStatement &statement, qint64 key, qint64 version, const KXRowValues &values, KXRowTexts &texts) const;

private:
    void selectColumns(const std::vector<const KXPropertyDescription *> &columns);
    void addColumn(const KXPropertyDescription &property, int index);

    /// What reading a row needs to know of a column, close together.
    struct Column
    {
        const KXPropertyDescription *property;
        int index; ///< in the result of select()
        int bit; ///< of its presence
        int offset;
        KXAttributeType type; ///< Integer64 for the key of a to-one relationship
    };
    const KXEntityDescription &m_entity;
    std::vector<Column> m_columns;
    std::vector<const KXPropertyDescription *> m_toMany;
    std::vector<const KXPropertyDescription *> m_joins;
    std::vector<const KXPropertyDescription *> m_toOne;
    std::vector<const KXPropertyDescription *> m_validated;
    QByteArray m_select;
    QByteArray m_insert;
};
