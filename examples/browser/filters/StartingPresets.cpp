// The presets that a library begins with.

#include <QCoreApplication>

#include <kestrixkit/filters/KXDateFilter.h>
#include <kestrixkit/filters/KXFacetFilter.h>
#include <kestrixkit/filters/KXFilterSet.h>
#include <kestrixkit/filters/KXRangeFilter.h>
#include <kestrixkit/foundation/KXUndoManager.h>

#include "filters/Presets.h"
#include "library/OwnChange.h"

using namespace Qt::StringLiterals;

namespace {

constexpr int shownGenres = 12;

class StartingPresets
{
    Q_DECLARE_TR_FUNCTIONS(StartingPresets)

public:
    explicit StartingPresets(KXManagedObjectContext &context)
        : m_context(context)
    {
    }

    /// Throws a KXError where the store gives no identifiers.
    void make()
    {
        const QStringList genres = commonGenres();
        makeTempos();
        makeGenres(genres);
        makeKeys();
        makeDates();
        if (!genres.isEmpty())
            makeExclusions(m_mostCommonGenre);
        add({}, tr("Four Stars and More"), { range(u"rating"_s, tr("Rating"), 4, {}) });
    }

    KXRef<KXFilterSetPreset> makeOfPlace(const KXRef<Genre> &of, const QString &title)
    {
        m_topLevel = Presets::children(m_context, {}).size();
        return add({}, title, { of ? genre(of->name()) : date(KXDateRange::Last30Days) });
    }

private:
    using Filters = QList<KXRef<KXFilter>>;

    template <class Class> KXRef<Class> create()
    {
        KXError error;
        auto object = Class::createInContext(m_context, &error);
        if (!object)
            throw error;
        return object;
    }

    KXRef<KXFilterSetPreset> add(const KXRef<KXFilterSetPreset> &folder, const QString &title, const Filters &filters)
    {
        const auto preset = create<KXFilterSetPreset>();
        preset->setTitle(title);
        preset->setPosition(folder ? folder->children().size() : m_topLevel++);
        preset->setParent(folder);
        if (!filters.isEmpty()) {
            const auto set = create<KXFilterSet>();
            for (qsizetype i = 0; i < filters.size(); ++i) {
                filters[i]->setPosition(i);
                set->addToFilters(filters[i]);
            }
            preset->setFilterSet(set);
        }
        return preset;
    }
    KXRef<KXFilterSetPreset> addFolder(const QString &title)
    {
        const auto folder = add({}, title, {});
        folder->setIsFolder(true);
        return folder;
    }

    template <class Filter> KXRef<Filter> filter(const QString &keyPath, const QString &name)
    {
        const auto filter = create<Filter>();
        filter->setName(name);
        filter->setLocalValuePredicateKeyPath(keyPath);
        return filter;
    }
    /// From the start up to below the end.
    KXRef<KXFilter> range(const QString &keyPath, const QString &name, std::optional<int> start, std::optional<int> end)
    {
        const auto range = filter<KXRangeFilter>(keyPath, name);
        if (start)
            range->setStartValue(KXDecimal::fromInteger(*start));
        if (end)
            range->setEndValue(KXDecimal::fromInteger(*end));
        range->setStartValueOperatorType(KXPredicateOperator::GreaterThanOrEqual);
        range->setEndValueOperatorType(KXPredicateOperator::LessThan);
        return range;
    }
    KXRef<KXFilter> date(KXDateRange span)
    {
        const auto date = filter<KXDateFilter>(u"added"_s, tr("Added"));
        date->setRange(span);
        return date;
    }
    KXRef<KXFacetFilter> facet(const QString &keyPath, const QString &name, const QVariantMap &values,
        KXPredicateOperator comparisonOperator = KXPredicateOperator::Equal)
    {
        const auto facet = filter<KXFacetFilter>(keyPath, name);
        for (auto entry = values.cbegin(); entry != values.cend(); ++entry) {
            const auto value = create<KXFacetFilterValue>();
            value->setName(entry.key());
            value->setValue(entry.value());
            value->setOperatorType(comparisonOperator);
            facet->addToValues(value);
        }
        return facet;
    }
    KXRef<KXFilter> genre(const QString &genre)
    {
        const auto facet = this->facet(u"genres.name"_s, tr("Genre"), { { genre, genre } });
        facet->setLocalValuePredicateModifier(KXPredicateModifier::Any);
        return facet;
    }
    /// Of a track with several genres none may be that one.
    KXRef<KXFilter> withoutGenre(const QString &genre)
    {
        const auto facet
            = this->facet(u"genres.name"_s, tr("Genre"), { { genre, genre } }, KXPredicateOperator::NotEqual);
        facet->setLocalValuePredicateModifier(KXPredicateModifier::All);
        return facet;
    }

    void makeTempos()
    {
        static constexpr int bounds[] = { 90, 110, 118, 124, 128, 132, 140, 160 };
        const auto folder = addFolder(tr("Tempo"));
        add(folder, tr("Below %1").arg(bounds[0]), { range(u"bpm"_s, tr("Tempo"), {}, bounds[0]) });
        for (size_t i = 1; i < std::size(bounds); ++i)
            add(folder, tr("%1 to %2").arg(bounds[i - 1]).arg(bounds[i]),
                { range(u"bpm"_s, tr("Tempo"), bounds[i - 1], bounds[i]) });
        add(folder, tr("%1 and More").arg(*std::rbegin(bounds)),
            { range(u"bpm"_s, tr("Tempo"), *std::rbegin(bounds), {}) });
    }

    void makeGenres(const QStringList &genres)
    {
        const auto folder = addFolder(tr("Genres"));
        for (const QString &name : genres)
            add(folder, name, { genre(name) });
    }

    void makeKeys()
    {
        const auto folder = addFolder(tr("Keys"));
        add(folder, tr("Minor"), { facet(u"key.isMinor"_s, tr("Mode"), { { tr("Minor"), true } }) });
        add(folder, tr("Major"), { facet(u"key.isMinor"_s, tr("Mode"), { { tr("Major"), false } }) });
        // What mixes with a key: its neighbours on the wheel.
        for (int number = 1; number <= 12; ++number) {
            QVariantMap numbers;
            for (const int neighbour : { number - 1, number, number + 1 }) {
                const int wrapped = (neighbour + 11) % 12 + 1;
                numbers.insert(QString::number(wrapped), wrapped);
            }
            add(folder, tr("Around %1").arg(number), { facet(u"key.number"_s, tr("Key"), numbers) });
        }
    }

    void makeDates()
    {
        const auto folder = addFolder(tr("Added"));
        add(folder, tr("Today"), { date(KXDateRange::Today) });
        add(folder, tr("Last 7 Days"), { date(KXDateRange::Last7Days) });
        add(folder, tr("Last 30 Days"), { date(KXDateRange::Last30Days) });
        add(folder, tr("This Year"), { date(KXDateRange::ThisYear) });
    }

    void makeExclusions(const QString &genre)
    {
        const auto folder = addFolder(tr("Without"));
        add(folder, tr("No %1").arg(genre), { withoutGenre(genre) });
        add(folder, tr("No %1, 128 and More").arg(genre),
            { withoutGenre(genre), range(u"bpm"_s, tr("Tempo"), 128, {}) });
        add(folder, tr("No Minor Keys"),
            { facet(u"key.isMinor"_s, tr("Mode"), { { tr("Minor"), true } }, KXPredicateOperator::NotEqual) });
    }

    /// Names of the genres with the most tracks, sorted. Each look is one pass over an index, so they are few.
    QStringList commonGenres()
    {
        QStringList names;
        for (qint64 least = m_context.countForEntity(QString(Track::entityName));
             least > 0 && names.size() < shownGenres / 2; least /= 2) {
            names.clear();
            const auto common = KXPredicate::predicateWithFormat("tracks.@count >= %lld", least);
            for (const KXRef<KXManagedObject> &object : m_context.fetchForEntity(QString(Genre::entityName), common))
                names.append(Genre::cast(object)->name());
            names.sort();
            if (m_mostCommonGenre.isEmpty())
                m_mostCommonGenre = names.value(0);
        }
        return names.mid(0, shownGenres);
    }

    KXManagedObjectContext &m_context;
    qint64 m_topLevel = 0;
    QString m_mostCommonGenre;
};

} // namespace

bool Presets::install(KXManagedObjectContext &context, KXError *error)
{
    if (KXFilterSetPreset::countOfInContext(context) > 0)
        return true;
    // In a child, which goes with everything in it when the store gives no more identifiers.
    const auto child = KXManagedObjectContext::contextWithParentContext(context.shared_from_this());
    try {
        StartingPresets(*child).make();
    } catch (const KXError &problem) {
        KXSetError(error, problem);
        return false;
    }
    OwnChange change(context);
    return child->save(error) && change.save(error);
}

KXRef<KXFilterSetPreset> Presets::makeOfPlace(
    KXManagedObjectContext &context, const KXRef<Genre> &genre, const QString &title)
{
    KXRef<KXFilterSetPreset> preset;
    try {
        const KXUndoGroup group(context.undoManager(), QCoreApplication::translate("Presets", "New Preset"));
        preset = StartingPresets(context).makeOfPlace(genre, title);
    } catch (const KXError &) {
        return {}; // which has been logged
    }
    context.save();
    return preset;
}
