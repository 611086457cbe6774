// Attributes of many objects that are set without making these, beside setting them one by one.

#include <cmath>
#include <random>

#include <QCoreApplication>
#include <QTemporaryDir>
#include <gtest/gtest.h>

#include <kestrixkit/context/KXBatchEditor.h>
#include <kestrixkit/foundation/KXUndoManager.h>

#include "store/Library.h"

using namespace Qt::StringLiterals;

namespace {

using Values = QList<std::pair<QString, QVariant>>;

constexpr int rowTracks = 40;

/// A library, the same for the same seed.
struct RowsLibrary : LibraryTest
{
    explicit RowsLibrary(int seed)
    {
        std::mt19937 random(quint32(seed + 1));
        for (int i = 0; i < rowTracks; ++i) {
            const auto track = this->track(QString::number(i));
            track->setTitle(QString(QChar(u'a' + int(random() % 3))));
            if (random() % 2)
                track->setBpm(double(random() % 3) + 0.5);
            if (random() % 2)
                track->setComment(u"\u00C4%1"_s.arg(random() % 2));
            if (random() % 2)
                track->setYear(int(random() % 2));
            all.append(track);
            keys.push_back(track->objectID().key());
        }
        EXPECT_TRUE(context->save());
        context->setUndoManager(std::make_shared<KXUndoManager>());
    }
    /// As a fresh context and this one have them, which must be the same.
    QStringList described() const
    {
        const auto fresh = KXManagedObjectContext::contextWithPersistentStoreCoordinator(coordinator);
        QStringList lines, here;
        for (const KXRef<Track> &track : all) {
            lines.append(Library::describe(*fresh->objectWithID(track->objectID())));
            here.append(Library::describe(*track));
        }
        EXPECT_EQ(lines, here);
        return lines;
    }

    QList<KXRef<Track>> all;
    std::vector<qint64> keys;
};

/// Its setter does more than to store.
class Loud : public KXManagedObjectOf<Loud>
{
public:
    static constexpr QLatin1StringView entityName { "Loud" };
    KX_ATTRIBUTE(QString, name, setName)
    KX_ATTRIBUTE(QString, echo, setEcho)
    bool setValueForKey(const QString &key, const QVariant &value) override
    {
        if (key == u"name"_s)
            setEcho(value.toString().toUpper());
        return KXManagedObject::setValueForKey(key, value);
    }
};

void comeToRest(const KXBatchEditor &editor)
{
    while (editor.isBusy())
        QCoreApplication::processEvents();
}

/// One by one. What cannot be saved leaves all as it was.
qint64 setByObjects(RowsLibrary &library, const Values &values)
{
    qint64 changed = 0;
    for (const KXRef<Track> &track : library.all) {
        for (const auto &[key, value] : values)
            track->setValueForKey(key, value);
        changed += track->isUpdated();
    }
    if (library.context->save())
        return changed;
    library.context->rollback();
    return 0;
}

}

TEST(BatchRows, getWhatObjectsWouldMakeOfTheValues)
{
    const QDateTime date(QDate(2021, 2, 3), QTime(4, 5), Qt::UTC);
    const QVariant none;
    const Values rows[] = { { { u"title"_s, u"b"_s } }, { { u"title"_s, none } }, { { u"title"_s, QString() } },
        { { u"comment"_s, none } }, { { u"comment"_s, u"\u00C40"_s } }, { { u"comment"_s, QString(QChar(0xD800)) } },
        { { u"bpm"_s, 1.5 } }, { { u"bpm"_s, 1 } }, { { u"bpm"_s, std::nan("") } }, { { u"bpm"_s, u"fast"_s } },
        { { u"year"_s, 1 } }, { { u"year"_s, u"1"_s } }, { { u"year"_s, 40'000 } }, { { u"plays"_s, qint64(1) << 40 } },
        { { u"loved"_s, true } }, { { u"loved"_s, 0 } }, { { u"added"_s, date } },
        { { u"price"_s, QVariant::fromValue(*KXDecimal::fromString(u"1.50"_s)) } },
        { { u"file"_s, QUrl(u"file:///a b"_s) } }, { { u"uuid"_s, QUuid::createUuidV5({}, u"x"_s) } },
        { { u"cover"_s, QByteArray("\0x", 2) } }, { { u"extra"_s, QVariantList { qint64(1), u"x"_s } } },
        { { u"scratch"_s, u"kept nowhere"_s } }, { { u"title"_s, u"a"_s }, { u"bpm"_s, 0.5 } },
        { { u"bpm"_s, 2.5 }, { u"year"_s, none } } };
    int seed = 0;
    for (const Values &values : rows) {
        SCOPED_TRACE(values.first().first.toStdString() + " " + values.first().second.toString().toStdString());
        RowsLibrary ours(++seed), theirs(seed);
        const QStringList before = ours.described();
        ASSERT_EQ(before, theirs.described());
        QHash<QString, int> told;
        const auto token = KXManagedObjectContext::onChange(ours.context.get(), [&](const KXObjectsDidChange &did) {
            for (const QSet<QString> &names : did.changedKeys) {
                for (const QString &name : names)
                    ++told[name];
            }
        });
        KXBatchEditor editor(ours.context);
        KXBatchOutcome outcome;
        QObject::connect(&editor, &KXBatchEditor::finished, [&](const KXBatchOutcome &done) { outcome = done; });
        editor.setValues(values, u"Track"_s, ours.keys, u"Edit"_s);
        comeToRest(editor);
        const qint64 changed = setByObjects(theirs, values);
        const QStringList after = theirs.described();
        EXPECT_EQ(ours.described(), after);
        if (values.first().first != u"scratch"_s)
            EXPECT_EQ(outcome.changed, changed);
        for (const auto &[key, value] : values) {
            int differ = 0;
            for (int i = 0; i < rowTracks && key != u"scratch"_s; ++i)
                differ += before[i].section(key + u'=', 1).section(u' ', 0, 0)
                    != after[i].section(key + u'=', 1).section(u' ', 0, 0);
            EXPECT_GE(told.value(key), differ) << "all are told of";
        }
        ours.context->undoManager()->undo();
        comeToRest(editor);
        EXPECT_EQ(ours.described(), before);
        ours.context->undoManager()->redo();
        comeToRest(editor);
        EXPECT_EQ(ours.described(), after);
    }
}

TEST(BatchRows, ofAClassThatDoesMoreThanToStoreAreSetByTheirObjects)
{
    Loud::registerEntity();
    using Property = KXPropertyDescription;
    const auto model
        = KXManagedObjectModel::make({ KXEntityDescription(u"Loud"_s)
                                           .add(Property::attribute(u"name"_s, KXAttributeType::String))
                                           .add(Property::attribute(u"echo"_s, KXAttributeType::String)) });
    const QTemporaryDir folder;
    const auto context = KXManagedObjectContext::contextWithPersistentStoreCoordinator(
        KXPersistentStoreCoordinator::persistentStoreCoordinatorWithStoreURL(
            QUrl::fromLocalFile(folder.filePath(u"loud.db"_s)), model));
    std::vector<qint64> keys;
    for (int i = 0; i < 3; ++i)
        keys.push_back(Loud::createInContext(*context)->objectID().key());
    ASSERT_TRUE(context->save());
    KXBatchEditor editor(context);
    editor.setValue(u"hello"_s, u"name"_s, u"Loud"_s, keys, u"Call"_s);
    comeToRest(editor);
    const auto fresh
        = KXManagedObjectContext::contextWithPersistentStoreCoordinator(context->persistentStoreCoordinator());
    EXPECT_EQ(
        fresh->countForEntity(u"Loud"_s, KXPredicate::predicateWithFormat("name == 'hello' AND echo == 'HELLO'")), 3);
}
