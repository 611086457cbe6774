#include <thread>

#include <gtest/gtest.h>

#include <kestrixkit/foundation/KXObject.h>
#include <kestrixkit/foundation/KXObserver.h>

#include <support/KXTestPrint.h>
#include <support/KXTestRandom.h>

using namespace Qt::StringLiterals;

namespace observation_test {

// A counted object with values by key, as a stored one is; kept alive while it is observed, if told so.
class Node : public KXObservable, public KXRefCounted
{
public:
    explicit Node(const QString &nodeName = {})
    {
        m_values.insert(u"name"_s, nodeName);
        ++living;
    }
    ~Node() override { --living; }

    QVariant valueForKey(const QString &key) const override
    {
        if (key == u"label")
            return u"%1/%2"_s.arg(m_values.value(u"name"_s).toString(), valueForKeyPath(u"parent.label"_s).toString());
        return m_values.value(key);
    }
    bool setValueForKey(const QString &key, const QVariant &value) override
    {
        willChangeValueForKey(key);
        m_values.insert(key, value);
        didChangeValueForKey(key);
        return true;
    }
    void set(const QString &key, const KXRef<Node> &node) { setValueForKey(key, KXVariantFromRef(node)); }
    QStringList keyPathsForValuesAffectingKey(const QString &key) const override
    {
        if (key == u"label")
            return { u"name"_s, u"parent.label"_s, u"noSuchKey"_s, u"no.such.path"_s };
        return {};
    }

    bool keptWhileObserved = false;
    mutable int begins = 0;
    mutable int ends = 0;
    static inline int living = 0;

protected:
    void observationDidBegin() const override
    {
        ++begins;
        if (keptWhileObserved)
            ref();
    }
    void observationDidEnd() const override
    {
        ++ends;
        if (keptWhileObserved)
            deref();
    }

private:
    QVariantMap m_values;
};

KXRef<Node> node(const QString &name = {}) { return KXMakeRef<Node>(name); }

class Observation : public ::testing::Test
{
protected:
    void SetUp() override { ASSERT_EQ(Node::living, 0); }
    void TearDown() override { EXPECT_EQ(Node::living, 0); }

    KXObserverBlock count()
    {
        return [this](const KXKeyValueChange &change) {
            ++calls;
            last = change;
        };
    }
    int calls = 0;
    KXKeyValueChange last;
};

TEST_F(Observation, CostsAnObjectAPointer)
{
    static_assert(sizeof(KXObservable) == 2 * sizeof(void *));
    const auto object = node();
    EXPECT_FALSE(object->isObserved());
    object->setValueForKey(u"name"_s, 1);
}

TEST_F(Observation, TellsWhatWasAskedFor)
{
    const auto object = node(u"old"_s);
    object->onChangeOf(u"name"_s, count());
    object->setValueForKey(u"name"_s, u"new"_s);
    EXPECT_EQ(calls, 1);
    EXPECT_FALSE(last.oldValue.isValid() || last.newValue.isValid());
    EXPECT_EQ(last.keyPath, u"name"_s);
    object->removeKVOBlockObservers();

    object->onChangeOf(u"name"_s, KXObservingOptionNew | KXObservingOptionOld | KXObservingOptionInitial, count());
    EXPECT_EQ(calls, 2);
    EXPECT_EQ(last.newValue, u"new"_s);
    EXPECT_FALSE(last.oldValue.isValid());
    object->setValueForKey(u"name"_s, u"newest"_s);
    EXPECT_EQ(last.oldValue, u"new"_s);
    EXPECT_EQ(last.newValue, u"newest"_s);
    object->setValueForKey(u"other"_s, 1);
    EXPECT_EQ(calls, 3);

    object->didChangeValueForKey(u"name"); // without its will: still a change, the old value is unknown
    EXPECT_EQ(calls, 4);
    EXPECT_FALSE(last.oldValue.isValid());
}

TEST_F(Observation, TellsWhichMembersCameAndWent)
{
    const auto object = node();
    object->onChangeOf(u"children"_s, KXObservingOptionNew | KXObservingOptionOld, count());
    object->willChangeValueForKey(u"children", KXChangeKind::Insertion);
    object->didChangeValueForKey(u"children", KXChangeKind::Insertion, {}, { 7 });
    EXPECT_EQ(last.kind, KXChangeKind::Insertion);
    EXPECT_EQ(last.newValue.toList(), QVariantList { 7 });
    object->willChangeValueForKey(u"children", KXChangeKind::Removal, { 7 });
    object->didChangeValueForKey(u"children", KXChangeKind::Removal, { 7 });
    EXPECT_EQ(last.kind, KXChangeKind::Removal);
    EXPECT_EQ(last.oldValue.toList(), QVariantList { 7 });

    // Seen through a path, the whole value has been replaced.
    const auto owner = node();
    owner->set(u"child"_s, object);
    owner->onChangeOf(u"child.children"_s, count());
    object->didChangeValueForKey(u"children", KXChangeKind::Insertion, {}, { 8 });
    EXPECT_EQ(last.kind, KXChangeKind::Insertion);
    owner->set(u"child"_s, {});
    EXPECT_EQ(last.kind, KXChangeKind::Setting);
}

TEST_F(Observation, FollowsKeyPaths)
{
    const auto root = node();
    root->onChangeOf(u"a.b.name"_s, KXObservingOptionNew | KXObservingOptionOld, count());
    const auto a = node();
    const auto b = node(u"b1"_s);
    root->set(u"a"_s, a);
    EXPECT_EQ(calls, 1);
    EXPECT_FALSE(last.newValue.isValid());
    a->set(u"b"_s, b);
    EXPECT_EQ(last.newValue, u"b1"_s);
    b->setValueForKey(u"name"_s, u"b2"_s);
    EXPECT_EQ(calls, 3);
    EXPECT_EQ(last.oldValue, u"b1"_s);

    const auto other = node(u"other"_s);
    a->set(u"b"_s, other);
    EXPECT_EQ(last.oldValue, u"b2"_s);
    EXPECT_EQ(last.newValue, u"other"_s);
    b->setValueForKey(u"name"_s, u"gone from the path"_s);
    EXPECT_EQ(calls, 4);
    EXPECT_FALSE(b->isObserved());

    root->setValueForKey(u"a"_s, {});
    EXPECT_EQ(calls, 5);
    EXPECT_EQ(last.oldValue, u"other"_s);
    EXPECT_FALSE(other->isObserved() || a->isObserved());

    // Maps on the way are values; their change is that of the key that holds them.
    root->onChangeOf(u"values.colour"_s, KXObservingOptionNew, count());
    root->setValueForKey(u"values"_s, QVariantMap { { u"colour"_s, u"red"_s } });
    EXPECT_EQ(last.newValue, u"red"_s);
    root->setValueForKey(u"list"_s, QVariantList { KXVariantFromRef(b), KXVariantFromRef(other) });
    EXPECT_EQ(root->valueForKeyPath(u"list.name"_s).toList().value(1), u"other"_s);
    root->setValueForKey(u"list"_s, {});
}

TEST_F(Observation, FollowsDependentKeys)
{
    const auto root = node(u"root"_s);
    const auto middle = node(u"middle"_s);
    const auto leaf = node(u"leaf"_s);
    leaf->onChangeOf(u"label"_s, KXObservingOptionNew | KXObservingOptionOld, count());
    leaf->set(u"parent"_s, middle);
    middle->set(u"parent"_s, root);
    EXPECT_EQ(calls, 2);
    EXPECT_EQ(last.newValue, u"leaf/middle/root/"_s);
    root->setValueForKey(u"name"_s, u"top"_s);
    EXPECT_EQ(calls, 3);
    EXPECT_EQ(last.oldValue, u"leaf/middle/root/"_s);
    EXPECT_EQ(last.newValue, u"leaf/middle/top/"_s);
    middle->setValueForKey(u"parent"_s, {});
    EXPECT_EQ(last.newValue, u"leaf/middle/"_s);
    root->setValueForKey(u"name"_s, u"unrelated"_s);
    EXPECT_EQ(calls, 4);
}

TEST_F(Observation, ARingOfDependenciesEnds)
{
    class Ring : public KXObservable
    {
    public:
        QVariant valueForKey(const QString &) const override { return QVariant::fromValue<KXObservable *>(next); }
        QStringList keyPathsForValuesAffectingKey(const QString &key) const override
        {
            return key == u"sum" ? QStringList { u"total"_s, u"next.sum"_s } : QStringList { u"sum"_s };
        }
        KXObservable *next = nullptr;
    };
    Ring one;
    Ring two;
    one.next = &two;
    two.next = &one;
    one.onChangeOf(u"sum"_s, count());
    two.didChangeValueForKey(u"total");
    EXPECT_EQ(calls, 1);
    one.removeKVOBlockObservers();
    EXPECT_FALSE(two.isObserved());
}

TEST_F(Observation, EndsWithEitherSide)
{
    std::shared_ptr<KXObserver> observer;
    const auto leaf = node();
    {
        const auto root = node();
        root->set(u"a"_s, leaf);
        observer = KXObserver::observerFor(root.get(), u"a.name"_s, {}, count());
        EXPECT_EQ(observer->observee(), root.get());
        leaf->setValueForKey(u"name"_s, 1);
        EXPECT_EQ(calls, 1);
    }
    EXPECT_EQ(observer->observee(), nullptr);
    EXPECT_FALSE(leaf->isObserved());
    leaf->setValueForKey(u"name"_s, 2);
    EXPECT_EQ(calls, 1);

    observer = KXObserver::observerFor(leaf.get(), u"name"_s, {}, count());
    observer.reset();
    EXPECT_FALSE(leaf->isObserved());
    EXPECT_EQ(leaf->begins, leaf->ends);
    EXPECT_EQ(KXObserver::observerFor(nullptr, u"x"_s, {}, count())->observee(), nullptr);
}

TEST_F(Observation, ObjectsMayLiveByBeingObserved)
{
    const auto root = node();
    {
        const auto kept = node(u"kept"_s);
        kept->keptWhileObserved = true;
        root->setValueForKey(u"a"_s, QVariant::fromValue<KXObservable *>(kept.get())); // not a handle
        root->onChangeOf(u"a.name"_s, count());
    }
    EXPECT_EQ(Node::living, 2);
    root->setValueForKey(u"a"_s, {});
    EXPECT_EQ(Node::living, 1);
    EXPECT_EQ(calls, 1);
}

TEST_F(Observation, ObserversAreListedAndRemoved)
{
    const auto object = node();
    const auto other = node();
    const auto one = object->onChangeOf(u"name"_s, count());
    const auto two = object->onChangeOf(u"name"_s, count());
    EXPECT_EQ(object->observers().value(u"name"_s).size(), 2);
    object->setValueForKey(u"name"_s, 1);
    EXPECT_EQ(calls, 2);
    other->removeKVOBlockObserver(one); // not its own
    object->removeKVOBlockObserver(nullptr);
    object->removeKVOBlockObserver(one);
    object->removeKVOBlockObserver(one);
    object->setValueForKey(u"name"_s, 2);
    EXPECT_EQ(calls, 3);
    const auto own = KXObserver::observerFor(object.get(), u"name"_s, {}, count());
    other->removeKVOBlockObserver(own);
    EXPECT_EQ(own->observee(), object.get());
    object->removeKVOBlockObserver(own);
    EXPECT_EQ(own->observee(), nullptr);
    object->removeKVOBlockObservers();
    object->removeKVOBlockObservers();
    EXPECT_TRUE(object->observers().isEmpty());
    EXPECT_EQ(two->observee(), nullptr);
    object->setValueForKey(u"name"_s, 3);
    EXPECT_EQ(calls, 3);
}

TEST_F(Observation, ABlockMayRemoveObserversAndEndObjects)
{
    auto object = node();
    std::shared_ptr<KXObserver> self;
    std::shared_ptr<KXObserver> next;
    auto large = std::make_shared<int>(1); // what the block holds must live as long as it runs
    self = object->onChangeOf(u"name"_s, [&, large](const KXKeyValueChange &) {
        ++calls;
        object->removeKVOBlockObserver(self);
        self.reset();
        object->removeKVOBlockObserver(next);
        object->onChangeOf(u"name"_s, count()); // not called for this change
        EXPECT_EQ(*large, 1);
    });
    next = object->onChangeOf(u"name"_s, [&](const KXKeyValueChange &) { FAIL() << "was removed"; });
    object->setValueForKey(u"name"_s, 1);
    EXPECT_EQ(calls, 1);
    object->setValueForKey(u"name"_s, 2);
    EXPECT_EQ(calls, 2);
    next.reset();
    EXPECT_EQ(large.use_count(), 1);

    // The object on the path, and then the observed object itself, end inside a call about them.
    object = node();
    object->set(u"a"_s, node());
    object->onChangeOf(u"a.name"_s, [&](const KXKeyValueChange &) {
        if (++calls == 3)
            object->setValueForKey(u"a"_s, {});
        else
            object.reset();
    });
    static_cast<Node *>(KXObservableFromVariant(object->valueForKey(u"a"_s)))->didChangeValueForKey(u"name");
    EXPECT_FALSE(object);
    EXPECT_EQ(Node::living, 0);

    // An initial call may end the object, too.
    object = node();
    object->onChangeOf(u"name"_s, KXObservingOptionInitial, [&](const KXKeyValueChange &) { object.reset(); });
    EXPECT_EQ(Node::living, 0);
}

TEST_F(Observation, ABlockThatThrowsLeavesTheRestIntact)
{
    const auto object = node();
    const auto bad = object->onChangeOf(u"name"_s, [](const KXKeyValueChange &) { throw std::runtime_error("bad"); });
    EXPECT_THROW(object->setValueForKey(u"name"_s, 1), std::runtime_error);
    object->removeKVOBlockObserver(bad);
    object->onChangeOf(u"name"_s, count());
    object->setValueForKey(u"name"_s, 2);
    EXPECT_EQ(calls, 1);
}

// Random graphs, paths and changes against the plain question "did the value at the path change?".
TEST_F(Observation, AgreesWithAskingForTheValue)
{
    KXTestRandom random;
    const QStringList links { u"a"_s, u"b"_s };
    for (int round = KXTestRandom::scaled(2000); round > 0; --round) {
        std::vector<KXRef<Node>> nodes;
        for (int i = 0; i < 4; ++i)
            nodes.push_back(node(QString::number(i)));
        const auto any = [&] { return nodes[random.between<size_t>(0, nodes.size() - 1)]; };
        QString path;
        for (int i = random.between(1, 3); i > 0; --i)
            path += links[random.between(0, 1)] + u'.';
        path += u"name"_s;
        const auto root = any();
        QVariant told;
        const auto observer = root->onChangeOf(path, KXObservingOptionNew | KXObservingOptionInitial,
            [&](const KXKeyValueChange &change) { told = change.newValue; });
        for (int step = 0; step < 40; ++step) {
            if (random.chance(0.3))
                any()->setValueForKey(u"name"_s, QString::number(step));
            else
                any()->set(links[random.between(0, 1)], random.chance(0.3) ? KXRef<Node>() : any());
            ASSERT_EQ(told, root->valueForKeyPath(path)) << path.toStdString();
        }
        for (const auto &each : nodes) { // rings of handles would never end
            each->setValueForKey(u"a"_s, {});
            each->setValueForKey(u"b"_s, {});
        }
    }
}

class Panel : public KXObject
{
    Q_OBJECT
    Q_PROPERTY(QString title READ title WRITE setTitle)
public:
    QString title() const { return m_title; }
    void setTitle(const QString &title)
    {
        willChangeValueForKey(u"title");
        m_title = title;
        didChangeValueForKey(u"title");
    }

private:
    QString m_title;
};

TEST_F(Observation, QObjectsTakePart)
{
    Panel panel;
    auto inner = std::make_unique<Panel>();
    panel.setProperty("inner", QVariant::fromValue(inner.get()));
    EXPECT_EQ(KXObservableFromVariant(panel.property("inner")), inner.get());
    EXPECT_EQ(KXObservableFromVariant(QVariant::fromValue<QObject *>(inner.get())), inner.get());
    QObject plain;
    EXPECT_EQ(KXObservableFromVariant(QVariant::fromValue(&plain)), nullptr);
    EXPECT_EQ(KXObservableFromVariant(u"text"_s), nullptr);
    panel.onChangeOf(u"inner.title"_s, KXObservingOptionNew, count());
    EXPECT_TRUE(inner->setValueForKey(u"title"_s, u"Hello"_s));
    EXPECT_EQ(last.newValue, u"Hello"_s);
    EXPECT_FALSE(inner->setValueForKey(u"noSuchProperty"_s, 1));
    inner.reset(); // dies unannounced
    panel.setProperty("inner", {});
    panel.didChangeValueForKey(u"inner");
    EXPECT_EQ(calls, 2);
}

TEST_F(Observation, WeakHandlesLetGo)
{
    KXWeakRef<Node> weak;
    EXPECT_FALSE(weak.lock());
    {
        const auto object = node();
        weak = KXWeakRef<Node>(object);
        EXPECT_EQ(weak.lock(), object);
        EXPECT_FALSE(weak.expired());
    }
    EXPECT_FALSE(weak.lock());
    EXPECT_TRUE(weak.expired());

    // While one thread drops the last handle, others try to get one.
    KXTestRandom random;
    for (int round = KXTestRandom::scaled(3000); round > 0; --round) {
        auto object = node();
        const KXWeakRef<Node> handle(object);
        std::thread other([&handle] {
            while (const auto alive = handle.lock())
                EXPECT_GT(alive->referenceCount(), 0);
        });
        object.reset();
        other.join();
    }
}

}

#include "tst_observation.moc"
