/// The library that the guide's snippets work on.
#pragma once

#include <QTemporaryDir>
#include <QTest>
#include <gtest/gtest.h>

#include <kestrixkit/context/KXTreeObjectOf.h>
#include <kestrixkit/foundation/KXDecimal.h>

namespace Guide {

using namespace Qt::StringLiterals;

//! [entity]
class Track : public KXManagedObjectOf<Track>
{
public:
    static constexpr QLatin1StringView entityName { "Track" };
    KX_ATTRIBUTE(QString, title, setTitle)
    KX_ATTRIBUTE(std::optional<QString>, genre, setGenre) // may be absent
    KX_ATTRIBUTE(std::optional<double>, bpm, setBpm)
};
//! [entity]

//! [tree-entity]
class Crate : public KXTreeObjectOf<Crate>
{
public:
    static constexpr QLatin1StringView entityName { "Crate" };
    KX_ATTRIBUTE(QString, title, setTitle)
    bool isEditable() const override { return true; } // its title, in place
};
//! [tree-entity]

//! [model]
inline KXManagedObjectModel::Ref model(const QList<KXManagedObjectModel::Ref> &on = {})
{
    using Property = KXPropertyDescription;
    using Type = KXAttributeType;
    return KXManagedObjectModel::make(
        { KXEntityDescription(u"Track"_s)
                .add(Property::attribute(Track::titleKey, Type::String).required())
                .add(Property::attribute(Track::genreKey, Type::String))
                .add(Property::attribute(Track::bpmKey, Type::Double).indexed()),
            Crate::treeDescription().add(Property::attribute(Crate::titleKey, Type::String)) },
        {}, on);
}
//! [model]

/// A store of a few tracks in a folder of its own.
class LibraryTest : public ::testing::Test
{
protected:
    explicit LibraryTest(const QList<KXManagedObjectModel::Ref> &on = {})
    {
        Track::registerEntity();
        Crate::registerEntity();
        coordinator = KXPersistentStoreCoordinator::persistentStoreCoordinatorWithStoreURL(url, model(on));
        context = KXManagedObjectContext::contextWithPersistentStoreCoordinator(coordinator);
        for (const auto &[title, bpm] : { std::pair(u"Night Signal"_s, 126), std::pair(u"Slow Water"_s, 92) }) {
            const auto track = Track::createInContext(*context);
            track->setTitle(title);
            track->setBpm(bpm);
        }
        context->save();
    }
    QTemporaryDir folder;
    const QUrl url = QUrl::fromLocalFile(folder.filePath(QStringLiteral("library.db")));
    KXPersistentStoreCoordinator::Ref coordinator;
    KXManagedObjectContext::Ref context;
};

} // namespace Guide
