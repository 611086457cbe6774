#include "command_line/SearchCommand.h"

#include <QJsonArray>

#include "search/LibrarySearch.h"

using namespace Qt::StringLiterals;

QJsonObject SearchCommand::answer(const KXManagedObjectContext::Ref &context, const QString &text, KXError *error)
{
    // In memory: a question leaves nothing beside the store.
    KXSearchIndex index(context, LibrarySearch::groups());
    if (!index.open(error))
        return {};
    QJsonArray groups;
    for (const KXSearchResults::Group &group : index.results(text, Titles, error).groups) {
        QJsonArray titles;
        for (const KXManagedObjectID &id : group.first) {
            if (const KXRef<KXManagedObject> object = context->objectWithID(id))
                titles.append(LibrarySearch::titleOf(*object));
        }
        groups.append(QJsonObject { { u"name"_s, group.name }, { u"count"_s, group.count }, { u"first"_s, titles } });
    }
    return { { u"text"_s, text }, { u"groups"_s, groups } };
}
