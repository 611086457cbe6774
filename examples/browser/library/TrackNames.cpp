#include "library/TrackNames.h"

TrackNames::TrackNames(KXManagedObjectContext &context)
    : others(context)
    , artists(context, others)
    , genres(context, others)
    , labels(context, others)
    , m_albums(context, others)
    , m_keys(context, others)
{
}

KXRef<Album> TrackNames::album(const QString &title, const QString &artist, KXError *error)
{
    if (title.isEmpty())
        return {};
    const auto fill = [&](Album &made) {
        made.setTitle(title);
        made.setArtistText(artist);
    };
    return m_albums.object(TagValues::nameKey(title) + u'\n' + TagValues::nameKey(artist), fill, error);
}

KXRef<Key> TrackNames::key(const std::optional<MusicalKey> &key, KXError *error)
{
    if (!key)
        return {};
    const auto fill = [&](Key &made) {
        made.setName(key->name());
        made.setNumber(key->number);
        made.setIsMinor(key->minor);
    };
    return m_keys.object(TagValues::nameKey(key->name()), fill, error);
}
