// The tree by which a window is navigated, and its controllers.

#include <QPointer>

#include <kestrixkit/foundation/KXObserver.h>
#include <kestrixkit/source_list/KXSourceListItemController.h>
#include <kestrixkit/toolkit/KXNavigationStack.h>
#include <support/KXTestLog.h>
#include <support/KXTestPrint.h>

#include "PresetTree.h"

using namespace Qt::StringLiterals;

namespace {

class Place : public KXViewController, public KXSourceListItemController
{
    Q_OBJECT
public:
    Q_INVOKABLE Place() = default;
    KXSourceListItem *sourceItem() const override { return m_item; }
    void setSourceItem(KXSourceListItem *item) override { m_item = item; }

private:
    KXSourceListItem *m_item = nullptr;
};

class Plain : public QObject
{
    Q_OBJECT
public:
    explicit Plain(int) { } // nobody can make it
};

class Stack : public KXNavigationStack
{
public:
    QList<KXViewController *> viewControllers() const override { return controllers; }
    void pushViewController(KXViewController *controller, bool) override
    {
        controllers.append(controller);
        controller->setNavigationStack(this);
    }
    void popToViewController(KXViewController *, bool) override { }
    void removeAllViewControllers() override
    {
        if (ownsControllers)
            qDeleteAll(controllers);
        controllers.clear();
    }
    bool ownsControllers = false;

    QList<KXViewController *> controllers;
};

}

class ViewStateTest : public PresetTree
{
};

TEST_F(ViewStateTest, trackingPaths)
{
    const auto store = make<KXViewState>(u"Store"_s), hits = make<KXViewState>(u"Top 100 Tracks!"_s, store);
    const auto signs = make<KXViewState>(u"★ !?"_s, store), below = make<KXViewState>(u"Été ４２𝒳"_s, signs);
    EXPECT_EQ(hits->trackingPath(), u"/store/top100tracks"_s);
    EXPECT_EQ(signs->trackingPath(), u"/store"_s);
    EXPECT_EQ(below->trackingPath(), u"/store/été４２𝒳"_s);
    hits->setParent({});
    EXPECT_EQ(hits->trackingPath(), u"/top100tracks"_s);
    signs->setParent({});
    EXPECT_EQ(signs->trackingPath(), u"/"_s);
    EXPECT_EQ(below->trackingPath(), u"/été４２𝒳"_s);
    EXPECT_EQ(hits->sourceURL(), hits->objectID().URIRepresentation());
}

TEST_F(ViewStateTest, controllersAreMadeWhenAskedForAndTornDown)
{
    const auto state = make<KXViewState>(u"a"_s);
    int heard = 0;
    const auto observer = state->onChangeOf(u"controller"_s, [&](const KXKeyValueChange &) { ++heard; });
    EXPECT_FALSE(state->controller());
    state->setControllerClass(&Place::staticMetaObject);
    EXPECT_FALSE(state->isControllerLoaded());
    EXPECT_FALSE(state->valueForKey(u"controllerLoaded"_s).toBool());
    QPointer<Place> made = qobject_cast<Place *>(state->controllerObject());
    ASSERT_TRUE(made);
    EXPECT_EQ(state->controller(), made.data());
    EXPECT_EQ(made->sourceItem(), state.get());

    Stack stack;
    Place pushed;
    stack.pushViewController(made, false);
    stack.pushViewController(&pushed, false);
    state->tearDownController();
    EXPECT_TRUE(stack.controllers.isEmpty());
    EXPECT_FALSE(pushed.navigationStack());
    EXPECT_FALSE(state->isControllerLoaded());
    EXPECT_FALSE(made->sourceItem());
    EXPECT_EQ(heard, 1);
    QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    EXPECT_FALSE(made);

    // Handed over: told whose it is; left alone where it belongs to somebody.
    QObject owner;
    auto *own = new Place;
    own->setParent(&owner);
    state->setController(own);
    EXPECT_EQ(own->sourceItem(), state.get());
    context->removeManagedObject(state);
    EXPECT_FALSE(state->isControllerLoaded());
    EXPECT_FALSE(state->controllerObject()); // and none is made for what is deleted
    QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    EXPECT_EQ(owner.children().size(), 1);

    KXTestLog log;
    const auto other = make<KXViewState>(u"b"_s);
    other->setControllerClass(&Plain::staticMetaObject);
    EXPECT_FALSE(other->controller());
    EXPECT_TRUE(log.contains(u"Plain"_s));
    // One that is no item controller, and one that goes by itself.
    auto *plain = new Plain(1);
    other->setControllerObject(plain);
    EXPECT_FALSE(other->controller());
    EXPECT_TRUE(other->isControllerLoaded());
    delete plain;
    EXPECT_FALSE(other->isControllerLoaded());

    // Whoever is told that there is another one deletes the one before; a stack ends with its controllers.
    auto first = std::make_unique<Place>();
    other->setControllerObject(first.get());
    heard = 0;
    const auto ending = other->onChangeOf(u"controller"_s, [&](const KXKeyValueChange &) {
        ++heard;
        first.reset();
    });
    other->setControllerClass(nullptr);
    auto *const second = new Place;
    other->setControllerObject(second);
    EXPECT_FALSE(first);
    stack.ownsControllers = true;
    stack.pushViewController(second, false);
    other->tearDownController();
    EXPECT_EQ(heard, 2);
    EXPECT_FALSE(other->isControllerLoaded());
    other->setControllerClass(&Place::staticMetaObject);
    context->removeManagedObject(other);
    context->save();
    EXPECT_FALSE(other->controllerObject()) << "one that was deleted, and saved so";
}

TEST_F(ViewStateTest, copiesAndCounts)
{
    const auto top = make<KXViewState>(u"top"_s), a = make<KXViewState>(u"a"_s, top);
    const auto c = make<KXViewState>(u"c"_s, a, 1), b = make<KXViewState>(u"b"_s, a, 0),
               d = make<KXViewState>(u"d"_s, c);
    a->setTag(7);
    EXPECT_TRUE(top->duplicate()->children().isEmpty());
    const auto copy = a->duplicate();
    EXPECT_FALSE(copy->parent());
    EXPECT_EQ(copy->tag(), 0);
    ASSERT_EQ(copy->children().size(), 2);
    EXPECT_EQ(copy->children()[0]->title() + copy->children()[1]->title(), u"bc"_s);
    EXPECT_EQ(copy->children()[1]->position(), 1);
    EXPECT_EQ(copy->children()[1]->children().size(), 1);

    QStringList heard;
    const auto observer = a->onChangeOf(u"count"_s, KXObservingOptionNew,
        [&](const KXKeyValueChange &change) { heard.append(change.newValue.toString()); });
    a->setCount(3);
    a->setExpanded(true);
    EXPECT_EQ(heard.join(u' '), u"3 3"_s);
    EXPECT_TRUE(a->setValueForKey(u"inProgress"_s, true) && a->inProgress());
}

#include "tst_view_states.moc"
