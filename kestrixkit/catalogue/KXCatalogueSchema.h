#pragma once

#include <QByteArray>
#include <QList>
#include <QMap>
#include <QString>

#include <kestrixkit/catalogue/KXCatalogueGlobal.h>

/// What a column of a catalogue holds.
enum class KXCatalogueType : quint8 {
    Boolean, ///< compares as 0 and 1, as everywhere in predicates
    Integer, ///< 64 bits
    Real, ///< a double; never NaN
    Decimal,
    Text, ///< UTF-8
    Date, ///< an instant in microseconds, never infinite
    Words, ///< the words of several texts; answers BEGINSWORD and nothing else
};

/// One column of the catalogue's table, and the key path by which predicates and pages know it.
///
/// Engines fold case and diacritics by rules of their own. Where a column is to be compared without regard to them, the
/// catalogue keeps copies of it that were folded by our rules; a comparison that needs a copy that is not there is
/// refused.
struct KXCatalogueColumn
{
    QString keyPath = {}; ///< "artists.name"; of a list its ".@count" is known as well
    QByteArray name = {}; ///< in the table
    KXCatalogueType type = KXCatalogueType::Text;
    bool isList = false; ///< an array: what a to-many relationship is to stored objects
    bool notNull = false; ///< lets the engine sort by an ordinary index
    QMap<int, QByteArray> folded = {}; ///< bits of KXPredicateOption → column with the folded texts
    QByteArray words = {}; ///< column with the words of the text, or of each in a list, for BEGINSWORD
};

/// How a catalogue's table looks: its name and its columns. A value; any thread.
class KX_CATALOGUE_EXPORT KXCatalogueSchema
{
public:
    /// Of a table that exists; names are taken as they are, and quoted.
    KXCatalogueSchema(QByteArray schemaName, QByteArray tableName, QList<KXCatalogueColumn> columns);

    /// The table that KXCatalogueLoader makes and the example browser asks: tracks of a shop.
    [[nodiscard]] static KXCatalogueSchema standard();

    /// The table beside it that names the hosts from which previews may be played: "id" and "host".
    [[nodiscard]] static KXCatalogueSchema previewHosts();

    [[nodiscard]] const QByteArray &schemaName() const { return m_schemaName; }
    [[nodiscard]] const QByteArray &tableName() const { return m_tableName; }
    [[nodiscard]] const QList<KXCatalogueColumn> &columns() const { return m_columns; }
    /// Null where there is none.
    [[nodiscard]] const KXCatalogueColumn *columnForKeyPath(const QString &keyPath) const;
    /// The key path "id": an Integer that is unique over all parts of the catalogue. Pages end equal sort keys by it.
    [[nodiscard]] const KXCatalogueColumn *identifier() const;
    static constexpr QLatin1StringView identifierKeyPath { "id" };
    /// The key path of the column of Words by which tracks are searched.
    static constexpr QLatin1StringView searchKeyPath { "search" };

private:
    QByteArray m_schemaName;
    QByteArray m_tableName;
    QList<KXCatalogueColumn> m_columns;
};
