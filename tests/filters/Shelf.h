/// A store of filters beside the things that they filter, for the tests of filters.
#pragma once

#include <QTemporaryDir>

#include <kestrixkit/filters/KXDateFilter.h>
#include <kestrixkit/filters/KXFacetFilter.h>
#include <kestrixkit/filters/KXFilterSet.h>
#include <kestrixkit/filters/KXFilterSetPreset.h>
#include <kestrixkit/filters/KXFilters.h>
#include <kestrixkit/filters/KXRangeFilter.h>

class Mark;

class Thing : public KXManagedObjectOf<Thing>
{
public:
    static constexpr QLatin1StringView entityName { "Thing" };
    KX_ATTRIBUTE(std::optional<double>, bpm, setBpm)
    KX_ATTRIBUTE(QDateTime, added, setAdded)
    KX_ATTRIBUTE(std::optional<QString>, key, setKey)
    KX_TO_MANY(Mark, tags, Tags)
};

class Mark : public KXManagedObjectOf<Mark>
{
public:
    static constexpr QLatin1StringView entityName { "Mark" };
    KX_ATTRIBUTE(QString, name, setName)
    KX_TO_MANY(Thing, things, Things)
};

/// A host's own kind of value.
class ColouredValue : public KXManagedObjectOf<ColouredValue, KXFacetFilterValue>
{
public:
    static constexpr QLatin1StringView entityName { "ColouredValue" };
};

class Shelf
{
public:
    Shelf();
    /// Closes the store and opens it again.
    void reopen();
    [[nodiscard]] QString path() const { return folder.filePath(QStringLiteral("shelf.db")); }

    template <class Class> KXRef<Class> make() { return Class::createInContext(*context); }
    /// For values of "bpm", both bounds included; absent ones as empty texts.
    KXRef<KXRangeFilter> range(const QString &start, const QString &end);
    /// For "key"; with ToMany for the names of "tags".
    enum Paths { ToOne, ToMany };
    KXRef<KXFacetFilter> facet(const QStringList &included, const QStringList &excluded = {}, Paths paths = ToOne);
    KXRef<KXFilterSet> set(const QList<KXRef<KXFilter>> &filters);
    KXRef<KXFilterSetPreset> preset(const QString &title, const KXRef<KXFilterSet> &set = {});
    KXRef<KXFilterSetPreset> folderPreset(const QString &title, const QList<KXRef<KXFilterSetPreset>> &children = {});

    QTemporaryDir folder;
    KXPersistentStoreCoordinator::Ref coordinator;
    KXManagedObjectContext::Ref context;
};
