#include "search/LibrarySearch.h"

#include <kestrixkit/filters/KXFilterSetPreset.h>

#include "crates/Crate.h"

using namespace Qt::StringLiterals;

namespace {

KXSearchGroup namedGroup(const QString &name, QLatin1StringView entity, const QStringList &texts)
{
    return { name, QString(entity), texts,
        { { texts.constFirst(), true, KXCaseInsensitive | KXDiacriticInsensitive } } };
}

} // namespace

QList<KXSearchGroup> LibrarySearch::groups()
{
    // Untranslated: the names are part of what --search prints.
    return {
        { u"Tracks"_s, QString(Track::entityName),
            { u"title"_s, u"artists.name"_s, u"album.title"_s, u"genres.name"_s, u"labels.name"_s, u"comment"_s },
            { { u"rating"_s, false }, { u"title"_s } } },
        namedGroup(u"Artists"_s, Artist::entityName, { u"name"_s }),
        namedGroup(u"Albums"_s, Album::entityName, { u"title"_s, u"artistText"_s }),
        namedGroup(u"Genres"_s, Genre::entityName, { u"name"_s }),
        namedGroup(u"Labels"_s, Label::entityName, { u"name"_s }),
        namedGroup(u"Presets"_s, KXFilterSetPreset::entityName, { u"title"_s }),
        namedGroup(u"Crates"_s, Crate::entityName, { u"name"_s }),
    };
}

std::unique_ptr<KXSearchIndex> LibrarySearch::makeIndex(const KXManagedObjectContext::Ref &context)
{
    return std::make_unique<KXSearchIndex>(context, groups(), u"library"_s);
}

QString LibrarySearch::titleOf(const KXManagedObject &object)
{
    const QString key = object.entity()->property(u"title") ? u"title"_s : u"name"_s;
    return object.valueForKey(key).toString();
}
