#pragma once

#include <memory>

#include <QStringList>

#include <kestrixkit/catalogue/KXCatalogueSchema.h>
#include <kestrixkit/catalogue/KXCatalogueServers.h>

class KXCatalogueLoaderPrivate;

/// How a catalogue's table is kept: in partitions, and with which indexes. All by key paths of the schema.
struct KX_CATALOGUE_EXPORT KXCatalogueLayout
{
    /// One index of the table.
    struct Index
    {
        QString name = {};
        QStringList keyPaths
            = {}; ///< "title[cd]" is the copy without case and diacritics, " desc" behind it the direction
        QStringList included = {}; ///< also in the index, so that counts need not look into the table
        bool isInverted = false; ///< over elements of a list, or words
    };
    QString partitionKeyPath = {}; ///< a Date that is not null; empty: one table
    int firstYear = 2000; ///< of the partitions, one a year; what lies outside has one for itself
    int lastYear = 2030;
    QList<Index> indexes = {};
    QStringList previewHosts = {}; ///< of servers from which previews may be played: KXCatalogueSchema::previewHosts()
    QByteArray readerRole = {}; ///< may read the tables, and nothing else; empty: nobody but the owner may

    /// Of KXCatalogueSchema::standard(): partitions by release, the covering index of genre, release and facets, and
    /// one for each order in which tracks are shown.
    [[nodiscard]] static KXCatalogueLayout standard();
};

/// Makes a catalogue's table in PostgreSQL and fills it. Waits for the server; any thread, one at a time.
class KX_CATALOGUE_EXPORT KXCatalogueLoader
{
public:
    KXCatalogueLoader(KXCatalogueServers::Server server, KXCatalogueSchema schema, KXCatalogueLayout layout);
    ~KXCatalogueLoader();
    Q_DISABLE_COPY_MOVE(KXCatalogueLoader)

    /// Makes the schema and the table, without indexes, which would make loading slow. Fails where there is one
    /// already.
    [[nodiscard]] bool create(KXError *error = nullptr);
    /// The next rows go into the table, all of them or none, at finish().
    [[nodiscard]] bool begin(KXError *error = nullptr);
    /// One row: a value for each column of the schema, in its order; folded copies and words are made here. A column of
    /// Words takes the texts (QStringList) whose words it keeps. False for a row that cannot be kept, which is left out
    /// (a text with the character 0, a number that is none, a date outside the years 1 to 9999, nothing where there has
    /// to be something), and where the server went; hasFailed() tells them apart.
    [[nodiscard]] bool add(const QVariantList &values, KXError *error = nullptr);
    [[nodiscard]] bool hasFailed() const;
    [[nodiscard]] bool finish(KXError *error = nullptr);
    /// Makes those of the layout's indexes that are not there yet, and brings the server's statistics up to date.
    [[nodiscard]] bool index(KXError *error = nullptr);

private:
    std::unique_ptr<KXCatalogueLoaderPrivate> d;
};
