#include <cstdio>
#include <kestrixkit/context/KXManagedObjectOf.h>
using Property = KXPropertyDescription;
int main(int, char **argv)
{
    auto model = KXManagedObjectModel::make(
        { KXEntityDescription("Track").add(Property::attribute("title", KXAttributeType::String)) });
    auto coordinator
        = KXPersistentStoreCoordinator::persistentStoreCoordinatorWithStoreURL(QUrl::fromLocalFile(argv[1]), model);
    auto context = KXManagedObjectContext::contextWithPersistentStoreCoordinator(coordinator);
    context->managedObjectForEntity("Track")->setValueForKey("title", "Hello");
    std::printf("%s, %lld track\n", context->save() ? "saved" : "failed", context->countForEntity("Track"));
}
