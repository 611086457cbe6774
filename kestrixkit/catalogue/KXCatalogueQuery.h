#pragma once

#include <kestrixkit/foundation/KXError.h>
#include <kestrixkit/predicate/KXFetchRequest.h>

/// Codes of errors about catalogues, in KXKestrixKitErrorDomain. Their descriptions are for people and say what to do.
namespace KXCatalogueError {
inline constexpr int Refused = 2001; ///< the engine cannot say the rule exactly as it is meant
inline constexpr int Address = 2002; ///< the address is none, or holds a password
inline constexpr int Unreachable = 2003; ///< no server of the catalogue answers
inline constexpr int TimeLimit = 2004;
inline constexpr int Locked = 2005; ///< the table is locked by work on the catalogue
inline constexpr int Forbidden = 2006; ///< who asks may not
inline constexpr int NoTable = 2007; ///< no such table or column: another schema
inline constexpr int Failed = 2008; ///< anything else that the engine says
}

/// Asks how many tracks fit a rule, and how many of those each facet.
struct KXCatalogueCountRequest
{
    KXPredicate rule = {}; ///< absent: all
    QList<KXPredicate> facets = {}; ///< at most KXCatalogueMostFacets
    double timeLimit = 10; ///< in seconds
};

/// Asks which values a column has among what fits a rule: what a facet offers.
struct KXCatalogueValuesRequest
{
    static constexpr int MostValues = 5000;

    KXPredicate rule = {};
    QString keyPath = {}; ///< of no list
    double timeLimit = 10;
};

/// Asks for some tracks in order, from the first or after one that is known.
struct KXCataloguePageRequest
{
    KXPredicate rule = {};
    /// Without key paths of lists; equal ones are ended by the identifier.
    QList<KXSortDescriptor> sortDescriptors = {};
    QStringList keyPaths = {}; ///< what is wanted of each track
    int limit = 100; ///< 1 to 10,000
    QVariantList after = {}; ///< KXCatalogueRow::key of the last row before; empty: from the first
    double timeLimit = 10;
};

/// What every answer says.
struct KXCatalogueAnswer
{
    KXError error = {}; ///< nothing else is to be looked at then
    /// The parts of the catalogue that did not answer, each with its reason; what there is lacks theirs.
    QStringList missing = {};
    double seconds = 0; ///< since the request

    [[nodiscard]] bool isComplete() const { return !error && missing.isEmpty(); }
};

/// How many tracks fit, and how many of them each facet.
struct KXCatalogueCounts : KXCatalogueAnswer
{
    qint64 count = 0;
    QList<qint64> facets = {}; ///< in the order of the request
    bool isEstimate = false; ///< made of a sample
    double margin = 0; ///< of an estimate: the exact count lies within this of it, nearly always
};

/// The values of a column.
struct KXCatalogueValues : KXCatalogueAnswer
{
    /// One of them, and how many of the tracks have it.
    struct Value
    {
        QVariant value = {}; ///< invalid: absent
        qint64 count = 0;
    };
    QList<Value> values = {}; ///< the most common one first, then by value
};

/// A track of a page.
struct KXCatalogueRow
{
    QVariantList values = {}; ///< in the order of the request's key paths; lists are QStringList or QVariantList
    QVariantList key = {}; ///< its place in the order
};

/// Some tracks, in order.
struct KXCataloguePage : KXCatalogueAnswer
{
    QList<KXCatalogueRow> rows = {};
    bool isLast = true; ///< whether nothing comes after
};
