#include "crates/Crate.h"

#include <algorithm>

#include <QCoreApplication>
#include <QLocale>

#include <kestrixkit/foundation/KXClock.h>

#include "library/OwnChange.h"

using namespace Qt::StringLiterals;

KXSourceListItemController *Crate::s_controller = nullptr;

namespace {

QString crateText(const char *text) { return QCoreApplication::translate("Crates", text); }

void addLists(const KXRef<Crate> &crate, QList<KXRef<Crate>> &lists)
{
    if (!crate || crate->isDeleted() || lists.contains(crate))
        return;
    if (!crate->isFolder())
        lists.append(crate);
    for (const KXRef<Crate> &child : crate->children())
        addLists(child, lists);
}

} // namespace

QList<KXRef<Crate>> Crate::lists() const
{
    QList<KXRef<Crate>> lists;
    addLists(KXRef<Crate>(const_cast<Crate *>(this)), lists);
    return lists;
}

void Crate::setCount(qint64 count)
{
    if (count == m_count)
        return;
    willChangeValueForKey(u"count"_s);
    m_count = count;
    didChangeValueForKey(u"count"_s);
}

QVariant Crate::valueForKey(const QString &key) const
{
    return key == "count"_L1 ? QVariant(m_count) : KXTreeObjectOf<Crate>::valueForKey(key);
}

QString Crate::title() const
{
    switch (kind()) {
    case Kind::Prepare:
        return crateText(QT_TRANSLATE_NOOP("Crates", "Prepare"));
    case Kind::History:
        return crateText(QT_TRANSLATE_NOOP("Crates", "History"));
    case Kind::Day: {
        const QDate date = QDate::fromString(day().value_or(QString()), Qt::ISODate);
        return date.isValid() ? KXClock::locale().toString(date, QLocale::LongFormat) : name();
    }
    default:
        return name();
    }
}

// Crates

void Crates::registerEntities()
{
    Crate::registerEntity();
    CrateEntry::registerEntity();
}

QList<KXEntityDescription> Crates::entities()
{
    using Property = KXPropertyDescription;
    using Type = KXAttributeType;
    return {
        KXEntityDescription(u"Crate"_s)
            .add(Property::attribute(u"name"_s, Type::String).required().withDefault(QString()))
            .add(Property::attribute(u"kind"_s, Type::Integer16).required().withDefault(0))
            .add(Property::attribute(u"day"_s, Type::String).indexed())
            .add(Property::attribute(u"position"_s, Type::Integer64).required().withDefault(0))
            .add(Property::attribute(u"expanded"_s, Type::Boolean).required().withDefault(false))
            .add(Property::toOne(u"parent"_s, u"Crate"_s, u"children"_s).acyclic())
            .add(Property::toMany(u"children"_s, u"Crate"_s, u"parent"_s).deleteRule(KXDeleteRule::Cascade))
            .add(Property::toMany(u"entries"_s, u"CrateEntry"_s, u"crate"_s).deleteRule(KXDeleteRule::Cascade))
            .resident(),
        KXEntityDescription(u"CrateEntry"_s)
            .add(Property::attribute(u"position"_s, Type::Integer64).required().withDefault(0))
            .add(Property::toOne(u"crate"_s, u"Crate"_s, u"entries"_s).required().indexedWith(u"position"_s))
            .add(Property::toOne(u"track"_s, u"Track"_s, u"crateEntries"_s).required()),
    };
}

KXOrderedMembership Crates::membership(const KXManagedObjectContext::Ref &context)
{
    return KXOrderedMembership(context, { u"CrateEntry"_s, u"crate"_s, u"track"_s, u"position"_s });
}

KXPredicate Crates::predicate(const Crate &crate)
{
    QVariantList ids;
    for (const KXRef<Crate> &list : crate.lists())
        ids.append(QVariant::fromValue(list->objectID()));
    if (ids.isEmpty())
        return KXPredicate::falsePredicate();
    return KXPredicate::comparison(u"crateEntries.crate"_s,
        ids.size() == 1 ? KXPredicateOperator::Equal : KXPredicateOperator::In,
        ids.size() == 1 ? ids.first() : QVariant(ids), KXPredicateModifier::Any);
}

QList<KXRef<Crate>> Crates::cratesOf(const Track &track)
{
    QList<KXRef<Crate>> crates;
    for (const KXRef<CrateEntry> &entry : track.crateEntries<CrateEntry>()) {
        const KXRef<Crate> crate = entry->crate();
        if (crate && crate->isFilledByUser() && !crates.contains(crate))
            crates.append(crate);
    }
    std::sort(crates.begin(), crates.end(),
        [](const auto &a, const auto &b) { return a->title().localeAwareCompare(b->title()) < 0; });
    return crates;
}

KXRef<Crate> Crates::fixed(KXManagedObjectContext &context, Crate::Kind kind)
{
    return Crate::findFirstUsingPredicate(KXPredicate::predicateWithFormat("kind == %d", int(kind)), context);
}

void Crates::makeFixed(KXManagedObjectContext &context)
{
    const OwnChange change(context);
    for (const Crate::Kind kind : { Crate::Kind::Prepare, Crate::Kind::History }) {
        const auto all = Crate::findUsingPredicate(KXPredicate::predicateWithFormat("kind == %d", int(kind)), context);
        if (!all.isEmpty())
            continue;
        if (const auto made = Crate::createInContext(context)) {
            made->setKind(kind);
            made->setPosition(kind == Crate::Kind::Prepare ? -2 : -1);
        }
    }
}
