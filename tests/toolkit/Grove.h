/// A store of trees for the tests of the toolkit.
#pragma once

#include <QTemporaryDir>

#include <kestrixkit/context/KXManagedObjectOf.h>
#include <kestrixkit/foundation/KXDecimal.h>
#include <kestrixkit/foundation/KXUndoManager.h>

class Branch : public KXManagedObjectOf<Branch>
{
public:
    static constexpr QLatin1StringView entityName { "Branch" };
    KX_ATTRIBUTE(QString, title, setTitle)
    KX_ATTRIBUTE(qint64, position, setPosition)
    KX_ATTRIBUTE(std::optional<double>, height, setHeight)
    KX_ATTRIBUTE(std::optional<KXDecimal>, price, setPrice)
    KX_TO_ONE(Branch, parent, setParent)
    KX_TO_MANY(Branch, children, Children)
};

class Grove
{
public:
    explicit Grove(const QByteArray &vfs = {})
    {
        using Property = KXPropertyDescription;
        Branch::registerEntity();
        static const KXManagedObjectModel::Ref model = KXManagedObjectModel::make(
            { KXEntityDescription(QStringLiteral("Branch"))
                    .add(Property::attribute(QStringLiteral("title"), KXAttributeType::String))
                    .add(Property::attribute(QStringLiteral("position"), KXAttributeType::Integer64).withDefault(0))
                    .add(Property::attribute(QStringLiteral("height"), KXAttributeType::Double))
                    .add(Property::attribute(QStringLiteral("price"), KXAttributeType::Decimal))
                    .add(
                        Property::toOne(QStringLiteral("parent"), QStringLiteral("Branch"), QStringLiteral("children")))
                    .add(
                        Property::toMany(QStringLiteral("children"), QStringLiteral("Branch"), QStringLiteral("parent"))
                            .deleteRule(KXDeleteRule::Cascade)) });
        coordinator = KXPersistentStoreCoordinator::persistentStoreCoordinatorWithStoreURL(
            QUrl::fromLocalFile(folder.filePath(QStringLiteral("grove.db"))), model, nullptr, vfs);
        context = KXManagedObjectContext::contextWithPersistentStoreCoordinator(coordinator);
        context->setUndoManager(std::make_shared<KXUndoManager>());
    }

    KXRef<Branch> branch(const QString &title, const KXRef<Branch> &parent = {}, qint64 position = 0)
    {
        auto made = Branch::createInContext(*context);
        made->setTitle(title);
        made->setPosition(position);
        made->setParent(parent);
        return made;
    }
    KXUndoManager &undo() { return *context->undoManager(); }

    QTemporaryDir folder;
    KXPersistentStoreCoordinator::Ref coordinator;
    KXManagedObjectContext::Ref context;
};
