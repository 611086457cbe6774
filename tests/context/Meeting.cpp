#include "context/Meeting.h"

#include <kestrixkit/store/KXPersistentStore.h>

std::string problemsOf(const QUrl &url)
{
    KXError error;
    const auto lines = KXPersistentStore::problemsOfStoreURL(url, &error);
    return (lines ? lines->join(u'\n') : error.localizedDescription()).toStdString();
}

void Announced::add(const KXObjectsDidChange &did)
{
    inserted += did.inserted;
    updated += did.updated;
    deleted += did.deleted;
    refreshed += did.refreshed;
    for (auto it = did.changedKeys.begin(); it != did.changedKeys.end(); ++it)
        changedKeys[it.key()] += it.value();
}
