#include "search/SearchedLibrary.h"

#include <kestrixkit/predicate/KXTextWords_p.h>

using namespace Qt::StringLiterals;

QList<KXSearchGroup> SearchedLibrary::groups()
{
    return {
        { u"Tracks"_s, u"Track"_s,
            { u"title"_s, u"comment"_s, u"year"_s, u"album.title"_s, u"album.artist.name"_s, u"genres.name"_s,
                u"tags.name"_s },
            { { u"loved"_s, false }, { u"bpm"_s, false }, { u"album.title"_s },
                { u"title"_s, true, KXCaseInsensitive } } },
        { u"People"_s, u"Person"_s, { u"name"_s, u"albums.tracks.title"_s }, { { u"name"_s } } },
        { u"Genres"_s, u"Genre"_s, { u"name"_s }, { { u"name"_s, false } } },
    };
}

static void collectWords(KXManagedObject *object, const QStringList &path, std::vector<QByteArray> &words)
{
    if (!object || object->isDeleted())
        return;
    if (path.size() == 1) {
        KXTextWords::Splitter splitter;
        for (const QByteArrayView word : splitter.ofText(object->valueForKey(path[0]).toString()))
            words.push_back(word.toByteArray());
        return;
    }
    if (!object->entity()->property(path[0])->isToMany()) {
        collectWords(object->valueForKey(path[0]).value<KXRef<KXManagedObject>>().get(), path.mid(1), words);
        return;
    }
    for (const auto &other : object->objectsForKey(path[0]))
        collectWords(other.get(), path.mid(1), words);
}

KXSearchResults SearchedLibrary::scan(
    KXManagedObjectContext &context, const QString &term, qsizetype limit, bool mayBeInside)
{
    KXSearchResults results { term, {}, true };
    const std::vector<QByteArray> wanted = KXTextWords::ofTerm(term);
    for (const KXSearchGroup &group : groups()) {
        const auto objects = context.fetch(KXFetchRequest(group.entityName).setSortDescriptors(group.rank));
        std::vector<std::vector<QByteArray>> words;
        std::vector<qint64> keys;
        for (const auto &object : objects) {
            keys.push_back(object->objectID().key());
            words.emplace_back();
            for (const QString &text : group.texts)
                collectWords(object.get(), text.split(u'.'), words.back());
        }
        std::vector<bool> fits(words.size(), !wanted.empty());
        for (const QByteArray &part : wanted) {
            const auto look = [&](bool inside) {
                std::vector<bool> found;
                for (const auto &each : words)
                    found.push_back(std::any_of(each.begin(), each.end(),
                        [&](const QByteArray &word) { return inside ? word.contains(part) : word.startsWith(part); }));
                return found;
            };
            std::vector<bool> found = look(false);
            if (mayBeInside && std::find(found.begin(), found.end(), true) == found.end()
                && QString::fromUtf8(part).size() >= 3)
                found = look(true);
            for (size_t i = 0; i < fits.size(); ++i)
                fits[i] = fits[i] && found[i];
        }
        KXSearchResults::Group answer { group.name, 0, {} };
        for (size_t i = 0; i < fits.size(); ++i) {
            if (!fits[i])
                continue;
            if (++answer.count <= limit)
                answer.first.append(objects.objectID(qsizetype(i)));
        }
        results.groups.append(answer);
    }
    return results;
}

QStringList SearchedLibrary::lines(const KXSearchResults &results)
{
    QStringList lines;
    for (const auto &group : results.groups) {
        QString line = group.name + u' ' + QString::number(group.count) + u':';
        for (const KXManagedObjectID &id : group.first)
            line += u' ' + QString::number(id.key());
        lines.append(line);
    }
    return lines;
}

QString SearchedLibrary::text()
{
    static const QStringList words { u"Love"_s, u"Lover"_s, u"lovely"_s, u"Élan"_s, u"elan"_s, u"8A"_s, u"feat."_s,
        u"Don't"_s, u"O'Brien"_s, u"Jay-Z"_s, u"R.E.M."_s, u"東京タワー"_s, u"タワー"_s, u"remix"_s, u"Antarctica"_s,
        u"the"_s, u"a"_s, u"Straße"_s, u"Mix"_s, u"128"_s, u"1289"_s, u"ab"_s, u"abc"_s, u"b"_s, u"bc"_s, u"שלום"_s };
    QString text;
    for (int count = random.below(4); count >= 0; --count)
        text += random.oneOf(words) + random.oneOf(QStringList { u" "_s, u" "_s, u"/"_s, u" & "_s });
    return text;
}

QString SearchedLibrary::term()
{
    static const QStringList odd { u""_s, u"   "_s, u"-"_s, u"tarctic"_s, u"emi"_s, u"tawa"_s, u"2"_s };
    if (random.chance(0.1))
        return random.oneOf(odd);
    QString term;
    for (int count = random.below(3); count >= 0; --count) {
        const QString word = text().trimmed();
        const qsizetype from = random.chance(0.2) ? random.below(3) : 0;
        term += word.mid(from, 1 + random.below(int(word.size()))) + u' ';
    }
    return random.chance(0.5) ? term.toUpper() : term;
}

void SearchedLibrary::fill(Track &track)
{
    track.setTitle(text());
    track.setComment(random.chance(0.5) ? std::optional<QString>() : text());
    track.setBpm(random.chance(0.2) ? std::optional<double>() : random.between(-1, 2) * 0.5);
    track.setYear(random.chance(0.2) ? std::optional<int>() : random.between(1287, 1290));
    track.setLoved(random.chance(0.3));
}

void SearchedLibrary::fill(KXManagedObjectContext &context, int tracks)
{
    for (int i = 0; i < 3; ++i) {
        const KXRef<Person> person
            = i == 0 ? KXRef<Person>(Producer::createInContext(context).get()) : Person::createInContext(context);
        person->setName(text());
        const auto album = Album::createInContext(context);
        album->setTitle(text());
        album->setArtist(person);
        Genre::createInContext(context)->setName(text());
        Tag::createInContext(context)->setName(text());
    }
    for (int i = 0; i < tracks; ++i)
        fill(*Track::createInContext(context));
}

bool SearchedLibrary::edit(KXManagedObjectContext &context, bool mayDelete)
{
    const auto track = any<Track>(context);
    const int what = track ? random.below(16) : 0;
    log += "e" + std::to_string(what) + (mayDelete ? "" : "o")
        + (track ? "t" + std::to_string(track->objectID().key()) : std::string()) + " ";
    switch (what) {
    case 0:
    case 1: {
        const auto made = Track::createInContext(context);
        fill(*made);
        made->setAlbum(any<Album>(context));
        if (const auto genre = any<Genre>(context))
            made->addToGenres(genre);
        break;
    }
    case 2:
    case 3:
        context.removeManagedObject(track);
        break;
    case 4:
        track->setAlbum(random.chance(0.2) ? KXRef<Album>() : any<Album>(context));
        break;
    case 5:
        if (const auto genre = any<Genre>(context))
            random.chance(0.6) ? track->addToGenres(genre) : track->removeFromGenres(genre);
        break;
    case 6:
        if (const auto tag = any<Tag>(context))
            random.chance(0.6) ? track->addToTags(tag) : track->removeFromTags(tag);
        break;
    case 7:
        if (const auto genre = any<Genre>(context))
            genre->setName(text());
        break;
    case 8:
        if (const auto album = any<Album>(context))
            random.chance(0.5) ? album->setArtist(any<Person>(context)) : album->setTitle(text());
        break;
    case 9:
        if (const auto person = any<Person>(context))
            person->setName(text());
        break;
    case 10:
        if (const auto tag = any<Tag>(context))
            tag->setName(text());
        break;
    case 11:
        // A context that does not know yet shall not lead to what is gone.
        if (mayDelete && random.chance(0.3)) {
            if (random.chance(0.5))
                context.removeManagedObject(KXRef<KXManagedObject>(any<Genre>(context).get()));
            else
                context.removeManagedObject(KXRef<KXManagedObject>(any<Person>(context).get()));
            return true;
        }
        break;
    case 12: // what only adds words, and what only ranks a row elsewhere, is not read whole
    case 13:
        random.chance(0.7) ? track->setTitle(track->title() + u' ' + text())
                           : track->setComment(track->comment().value_or(u"more"_s) + u' ' + text());
        break;
    case 14:
        track->setLoved(random.chance(0.5));
        break;
    default:
        fill(*track);
    }
    return false;
}
