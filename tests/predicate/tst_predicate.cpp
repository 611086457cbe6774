// Predicates as trees and text, and what they mean for objects in memory.

#include <limits>

#include <QDateTime>
#include <QJsonDocument>
#include <QJsonObject>
#include <QUrl>
#include <QUuid>
#include <gtest/gtest.h>

#include <kestrixkit/entity/KXManagedObjectID.h>
#include <kestrixkit/foundation/KXDecimal.h>
#include <kestrixkit/foundation/KXError.h>
#include <kestrixkit/foundation/KXException.h>
#include <kestrixkit/foundation/KXObservable.h>
#include <kestrixkit/foundation/KXOperationQueue.h>
#include <kestrixkit/predicate/KXPredicate.h>
#include <kestrixkit/predicate/KXPredicateLists_p.h>

#include "support/KXTestLog.h"
#include "support/KXTestRandom.h"

using namespace Qt::StringLiterals;

namespace {

class Thing : public KXObservable
{
public:
    QVariant valueForKey(const QString &key) const override
    {
        ++reads;
        return values.value(key);
    }
    static inline qint64 reads = 0;
    QVariant asValue() { return QVariant::fromValue(static_cast<KXObservable *>(this)); }
    QVariantMap values;
};

QVariant decimal(const char *text) { return QVariant::fromValue(*KXDecimal::fromString(QLatin1StringView(text))); }

KXPredicate parsed(const QString &text)
{
    KXError error;
    const KXPredicate predicate = KXPredicate::predicateWithText(text, &error);
    EXPECT_TRUE(predicate) << text.toStdString() << ": " << error.localizedDescription().toStdString();
    return predicate;
}

/// Any tree that can be built, whether or not it makes sense.
class RandomTree
{
public:
    explicit RandomTree(KXTestRandom &random)
        : m_random(random)
    {
    }

    KXPredicate predicate(int depth)
    {
        const int kind = depth > 0 ? m_random.below(8) : 7;
        if (kind == 0)
            return m_random.chance(0.5) ? KXPredicate::truePredicate() : KXPredicate::falsePredicate();
        if (kind == 1)
            return KXPredicate::notPredicate(predicate(depth - 1));
        if (kind <= 5) {
            QList<KXPredicate> parts;
            for (int i = m_random.below(5); i > 0; --i)
                parts.append(predicate(depth - 1));
            return kind <= 3 ? KXPredicate::andPredicate(parts) : KXPredicate::orPredicate(parts);
        }
        static constexpr int operators[] = { 0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 99, 100, 42, -7 };
        static constexpr int modifiers[] = { 0, 0, 1, 2, 5, -1 };
        return KXPredicate::comparison(expression(2), KXPredicateOperator(m_random.oneOf(operators)), expression(2),
            KXPredicateModifier(m_random.oneOf(modifiers)), m_random.below(4));
    }

private:
    KXExpression expression(int depth)
    {
        const int kind = m_random.below(depth > 0 ? 8 : 5);
        switch (kind) {
        case 0:
            return KXExpression::expressionForEvaluatedObject();
        case 1:
            return KXExpression::expressionForVariable(text());
        case 2:
            return KXExpression::expressionForKeyPath(keyPath());
        case 5:
            return KXExpression::expressionForFunction(
                expression(depth - 1), u"valueForKeyPath:"_s, { KXExpression::expressionForConstantValue(keyPath()) });
        case 6:
        case 7: {
            QList<KXExpression> elements;
            for (int i = m_random.below(4); i > 0; --i)
                elements.append(expression(depth - 1));
            return KXExpression::expressionForAggregate(elements);
        }
        default:
            return KXExpression::expressionForConstantValue(constant());
        }
    }

    QString text()
    {
        static const QStringList pieces { u"a"_s, u"Name"_s, u"_x1"_s, u"é"_s, u"\U0001F3B5"_s, u" "_s, u"."_s, u"\""_s,
            u"'"_s, u"`"_s, u"\\"_s, u"\n"_s, u"\u0000"_s, u"\u0085"_s, u"%@"_s, u"%K"_s, u"$v"_s, u"@count"_s,
            u"AND"_s, u"nil"_s, u"self"_s, u"in"_s, u"9"_s, u"\\u0041"_s, u"#"_s, QString(QChar(0xD800)),
            QString(QChar(0xDC00)) };
        QString text;
        for (int i = m_random.below(4); i > 0; --i)
            text += m_random.oneOf(pieces);
        return text;
    }

    QString keyPath()
    {
        static const QStringList paths { u"bpm"_s, u"genres.name"_s, u"a.@count"_s, u"selfish.x"_s, u"null.x"_s,
            u"date"_s, u"operator"_s, u"releasegenre."_s, u"self.x"_s, u"IN"_s };
        return m_random.chance(0.6) ? m_random.oneOf(paths) : text();
    }

    QVariant constant()
    {
        static const QVariantList numbers { 0, -1, true, false, std::numeric_limits<qint64>::min(),
            std::numeric_limits<qint64>::max(), std::numeric_limits<quint64>::max(), 0.0, -0.0, 0.1, 1e22, 5.0,
            -1.5e-300, std::numeric_limits<double>::denorm_min(), std::numeric_limits<double>::max(),
            std::numeric_limits<double>::infinity(), -std::numeric_limits<double>::infinity(),
            std::numeric_limits<double>::quiet_NaN(), decimal("5"), decimal("0.10"),
            decimal("-123456789012345678901234567890.5"), decimal("1E+300") };
        switch (m_random.below(9)) {
        case 0:
            return QVariant();
        case 1:
            return QDateTime::fromMSecsSinceEpoch(qint64(m_random.between(-4e14, 4e14)), Qt::UTC);
        case 2:
            return QUrl(u"https://a.b/c%20d?e=f#g"_s);
        case 3:
            return m_random.chance(0.2) ? QUuid()
                                        : QUuid(quint32(m_random.below(1'000'000)), 1, 2, 3, 4, 5, 6, 7, 8, 9, 10);
        case 4:
            return QByteArray("\0\xff\n\"", m_random.below(5));
        case 5:
            return m_random.chance(0.5) ? QVariant(QVariantMap { { u"a"_s, 1 } })
                                        : QVariant::fromValue(KXManagedObjectID::identifierForURIRepresentation(QUrl(
                                            u"x-kestrix-store://a-store/Track/p%1"_s.arg(m_random.between(1, 9)))));
        case 6:
            return text();
        default:
            return m_random.oneOf(numbers);
        }
    }

    KXTestRandom &m_random;
};

}

TEST(Predicate, readsTheUsualText)
{
    const struct
    {
        QString text;
        QString printed; // empty: the same
    } rows[] = {
        { u"bpm >= 120 AND ANY genres.name == \"House\""_s, {} },
        { u"bpm=>120&&some genres.name='House'"_s, u"bpm >= 120 AND ANY genres.name == \"House\""_s },
        { u"a = 1 or b <> 2 and not c =< 3 || !d < 4"_s, u"a == 1 OR (b != 2 AND NOT c <= 3) OR NOT d < 4"_s },
        { u"(a == 1 AND b == 2) AND c == 3"_s, {} }, // the shape of the tree stays
        { u"a == 1 AND b == 2 AND c == 3"_s, {} },
        { u"((a == 1))"_s, u"a == 1"_s },
        { u"AND(OR(a == 1))"_s, {} },
        { u"and() or OR ( a==1 , b==2 )"_s, u"AND() OR (a == 1 OR b == 2)"_s },
        { u"NONE a.b == nil"_s, u"NOT ANY a.b == nil"_s },
        { u"a not in {1, 'x', null,}"_s, u"NOT a IN {1, \"x\", nil}"_s },
        { u"a IN (1, 2)"_s, u"a IN {1, 2}"_s },
        { u"a BETWEEN {$LOW, 10}"_s, {} },
        { u"name beginswith[cd] 'é\\'\\n'"_s, u"name BEGINSWITH[cd] \"é'\\n\""_s },
        { u"name MATCHES '\\d+\\.mp3'"_s, u"name MATCHES \"\\\\d+\\\\.mp3\""_s },
        { u"x == -5 AND y == .5e1 AND z == 99999999999999999999"_s,
            u"x == -5 AND y == 5.0 AND z == DECIMAL(\"99999999999999999999\")"_s },
        { u"SELF == $OBJECT AND self.name == $OBJECT.name.first"_s,
            u"SELF == $OBJECT AND name == $OBJECT.name.first"_s },
        { u"added > date('2026-01-02') AND added < DATE(\"2026-01-02T03:04:05+01:00\")"_s,
            u"added > DATE(\"2026-01-02T00:00:00.000Z\") AND added < DATE(\"2026-01-02T02:04:05.000Z\")"_s },
        { u"`odd key. "_s + u"` == TRUE AND between2 == YES"_s, u"`odd key. ` == TRUE AND between2 == TRUE"_s },
        { u"TRUEPREDICATE OR falsepredicate"_s, u"TRUEPREDICATE OR FALSEPREDICATE"_s },
        { u"albums.@count > 2"_s, {} },
    };
    for (const auto &[text, printed] : rows) {
        const KXPredicate predicate = parsed(text);
        EXPECT_EQ(predicate.predicateFormat(), printed.isEmpty() ? text : printed);
        EXPECT_EQ(parsed(predicate.predicateFormat()), predicate) << text.toStdString();
    }
}

TEST(Predicate, saysWhereTextIsWrong)
{
    const struct
    {
        QString text;
        int character;
    } rows[] = {
        { u""_s, 1 },
        { u"bpm"_s, 4 },
        { u"bpm > "_s, 7 },
        { u"bpm > 5 5"_s, 9 },
        { u"(bpm > 5"_s, 9 },
        { u"bpm > 5)"_s, 8 },
        { u"name == \"x"_s, 9 },
        { u"bpm > 12abc"_s, 7 },
        { u"bpm > 1e999"_s, 7 },
        { u"a.@max > 1"_s, 3 },
        { u"a..b == 1"_s, 3 },
        { u"a. == 1"_s, 3 },
        { u"a == DATE('x')"_s, 6 },
        { u"a == nonsense(1)"_s, 6 },
        { u"a ==[x] 1"_s, 6 },
        { u"in == 1"_s, 1 },
        { u"a == %@"_s, 6 },
        { u"a == {1"_s, 8 },
        { u"$ == 1"_s, 1 },
        { u"a == FUNCTION(b, 'max:', 'c')"_s, 30 },
        { u"a LIKE #"_s, 8 },
        { u"ANY ALL a == 1"_s, 5 },
    };
    for (const auto &[text, character] : rows) {
        KXError error;
        EXPECT_TRUE(KXPredicate::predicateWithText(text, &error).isNull()) << text.toStdString();
        EXPECT_EQ(error.code(), KXPredicate::TextError);
        EXPECT_TRUE(error.localizedDescription().startsWith(u"Character %1 of the predicate: "_s.arg(character)))
            << text.toStdString() << ": " << error.localizedDescription().toStdString();
    }
}

TEST(Predicate, takesArguments)
{
    EXPECT_EQ(KXPredicate::predicateWithFormat("counts.%K > %ld AND %K IN %@ AND a == %@ AND b LIKE '%@'", "x y", 3L,
                  u"and"_s, QStringList { u"p"_s, u"q"_s }, std::optional<QString>())
                  .predicateFormat(),
        u"`counts.x y` > 3 AND `and` IN {\"p\", \"q\"} AND a == nil AND b LIKE \"%@\""_s);
    EXPECT_EQ(KXPredicate::predicateWithFormat(
                  "a == %@ OR a == %f OR a == %@ OR a == %@", true, 0.5f, *KXDecimal::fromString(u"0.50"_s), nullptr)
                  .predicateFormat(),
        u"a == TRUE OR a == 0.5 OR a == DECIMAL(\"0.5\") OR a == nil"_s);
    EXPECT_THROW(KXPredicate::predicateWithFormat("a == %@"), KXException);
    EXPECT_THROW(KXPredicate::predicateWithFormat("a == 1", 2), KXException);
    EXPECT_THROW(KXPredicate::predicateWithFormat("a === 1"), KXException);
}

TEST(Predicate, printsWhatItReadsBack)
{
    KXTestRandom random;
    RandomTree trees(random);
    for (int round = KXTestRandom::scaled(100'000); round > 0; --round) {
        const KXPredicate tree = trees.predicate(4);
        const QString text = tree.predicateFormat();
        KXError error;
        const KXPredicate back = KXPredicate::predicateWithText(text, &error);
        ASSERT_EQ(back, tree) << text.toStdString() << "\n"
                              << error.localizedDescription().toStdString() << "\n"
                              << back.predicateFormat().toStdString();
        ASSERT_EQ(qHash(back), qHash(tree));
        ASSERT_EQ(back.countOfComparisons(), tree.countOfComparisons());

        const QByteArray json = QJsonDocument(tree.toJSON()).toJson(QJsonDocument::Compact);
        const KXPredicate fromJSON = KXPredicate::predicateWithJSON(QJsonDocument::fromJson(json).object(), &error);
        ASSERT_EQ(fromJSON, tree) << json.toStdString() << "\n" << error.localizedDescription().toStdString();
    }
}

TEST(Predicate, saysWhereJSONIsWrong)
{
    const struct
    {
        const char *json;
        QString place;
    } rows[] = {
        { R"({"and": [{"always": true}, {"or": {"always": true}}]})", u"/and/1/or of"_s },
        { R"({"not": {"always": 1}})", u"/not/always of"_s },
        { R"({"not": {}})", u"/not of"_s },
        { R"({"and": [], "or": []})", u"/ of"_s },
        { R"({"left": 1, "operator": "~", "right": 2})", u"\"operator\""_s },
        { R"({"left": 1, "operator": 4.5, "right": 2})", u"\"operator\""_s },
        { R"({"left": 1, "operator": "<", "right": 2, "modifier": "some"})", u"\"modifier\""_s },
        { R"({"left": 1, "operator": "<", "right": 2, "options": "c"})", u"\"options\""_s },
        { R"({"left": 1, "operator": "<"})", u"\"right\""_s },
        { R"({"left": {"keyPath": 5}, "operator": "<", "right": 2})", u"/left of"_s },
        { R"({"left": {"self": true}, "operator": "in", "right": {"list": [1, {"date": "Sunday"}]}})",
            u"/right/list/1 of"_s },
        { R"({"left": 1, "operator": "in", "right": [1, {"object": "file:///a"}]})", u"/right/1 of"_s },
        { R"({"left": {"valueForKeyPath": "a", "of": {}}, "operator": "<", "right": 2})", u"/left/of of"_s },
    };
    for (const auto &row : rows) {
        KXError error;
        EXPECT_FALSE(KXPredicate::predicateWithJSON(QJsonDocument::fromJson(row.json).object(), &error)) << row.json;
        EXPECT_TRUE(error.localizedDescription().contains(row.place))
            << row.json << ": " << error.localizedDescription().toStdString();
    }
    // What somebody writes by hand.
    const QByteArray byHand = R"({"left": {"keyPath": "bpm"}, "operator": "BETWEEN", "right": [120, 128.5]})";
    EXPECT_EQ(KXPredicate::predicateWithJSON(QJsonDocument::fromJson(byHand).object()),
        parsed(u"bpm BETWEEN {120, 128.5}"_s));

    QJsonObject deep { { u"always"_s, true } };
    for (int i = 0; i < 3 * KXPredicate::MaximumDepth; ++i)
        deep = { { u"not"_s, deep } };
    EXPECT_FALSE(KXPredicate::predicateWithJSON(deep));
}

TEST(Predicate, survivesAnyText)
{
    KXTestRandom random;
    static const QStringList pieces { u"AND"_s, u"OR"_s, u"NOT"_s, u"ANY"_s, u"("_s, u")"_s, u"{"_s, u"}"_s, u","_s,
        u"a"_s, u"b.c"_s, u"=="_s, u"<"_s, u"IN"_s, u"BETWEEN"_s, u"[cd]"_s, u"["_s, u"1"_s, u"-"_s, u"1.5e"_s,
        u"'x'"_s, u"\""_s, u"`"_s, u"\\"_s, u"$V"_s, u"SELF"_s, u"nil"_s, u"FUNCTION("_s, u"DATE("_s, u"%K"_s, u"%@"_s,
        u"%"_s, u"MODIFIER("_s, u"OPERATOR(4)"_s, u"."_s, u"@count"_s, u"TRUEPREDICATE"_s, u"\u0000"_s,
        QString(QChar(0xD800)) };
    const Thing thing;
    for (int round = KXTestRandom::scaled(100'000); round > 0; --round) {
        QString text;
        for (int i = random.below(14); i >= 0; --i)
            text += random.oneOf(pieces) + (random.chance(0.8) ? u" "_s : QString());
        if (const KXPredicate predicate = KXPredicate::predicateWithText(text); predicate && !text.contains(u'$'))
            static_cast<void>(predicate.evaluateWithObject(&thing));
        try {
            static_cast<void>(KXPredicate::predicateWithFormat(text, u"k"_s, 5));
        } catch (const KXException &) { // what is expected of most
        }
    }
}

TEST(Predicate, limitsDepthAndNotLength)
{
    const auto nested = [](int depth, const QString &open, const QString &core, const QString &close) {
        return KXPredicate::predicateWithText(open.repeated(depth) + core + close.repeated(depth));
    };
    EXPECT_TRUE(nested(400, u"("_s, u"a == 1"_s, u")"_s));
    for (const QString &open :
        { u"("_s, u"NOT "_s, u"!"_s, u"AND("_s, u"a == 1 OR (b == 1 AND ("_s, u"a == {"_s, u"a == FUNCTION("_s })
        EXPECT_FALSE(nested(1'000'000, open, u"a == 1"_s, u")"_s));

    KXPredicate deep = KXPredicate::truePredicate();
    for (int i = 1; i < KXPredicate::MaximumDepth; ++i)
        deep = i % 3 ? KXPredicate::notPredicate(deep)
                     : KXPredicate::orPredicate({ KXPredicate::falsePredicate(), deep });
    EXPECT_EQ(parsed(deep.predicateFormat()), deep);
    EXPECT_EQ(
        KXPredicate::predicateWithJSON(QJsonDocument::fromJson(QJsonDocument(deep.toJSON()).toJson()).object()), deep);
    EXPECT_EQ(deep.evaluateWithObject(nullptr), deep.predicateFormat().count(u"NOT"_s) % 2 == 0);
    EXPECT_THROW(KXPredicate::notPredicate(deep), KXException);

    QString wide = u"bpm == 0"_s;
    for (int i = 1; i < 100'000; ++i)
        wide += u" OR bpm == "_s + QString::number(i);
    EXPECT_EQ(parsed(wide).countOfComparisons(), 100'000);
    EXPECT_EQ(parsed(wide).depth(), 2);
}

TEST(Predicate, replacesVariables)
{
    Thing thing;
    thing.values = { { u"name"_s, u"x"_s }, { u"tags"_s, QVariantList { 1, 2 } } };
    const KXPredicate predicate = KXPredicate::predicateWithFormat(
        "a == $A AND $T.tags CONTAINS b.c AND d BETWEEN {$A, 9} AND e.f LIKE $T.name");
    const QVariantMap variables { { u"A"_s, 5 }, { u"T"_s, thing.asValue() } };
    const KXPredicate replaced = predicate.predicateWithSubstitutionVariables(variables);
    EXPECT_EQ(replaced.predicateFormat(), u"a == 5 AND {1, 2} CONTAINS b.c AND d BETWEEN {5, 9} AND e.f LIKE \"x\""_s);
    EXPECT_EQ(predicate.keyPaths(), (QStringList { u"a"_s, u"b.c"_s, u"d"_s, u"e.f"_s }));
    EXPECT_THROW(predicate.predicateWithSubstitutionVariables({ { u"A"_s, 5 } }), KXException);
    EXPECT_THROW(static_cast<void>(predicate.evaluateWithObject(&thing)), KXException);
    EXPECT_FALSE(predicate.evaluateWithObject(&thing, variables));
}

/// A track and what it refers to, and conditions that hold for it.
class PredicateMeaning : public ::testing::Test
{
protected:
    PredicateMeaning()
    {
        house.values = { { u"name"_s, u"House"_s }, { u"rank"_s, 1 } };
        techno.values = { { u"name"_s, u"Techno"_s }, { u"rank"_s, 2 }, { u"parent"_s, house.asValue() } };
        artist.values = { { u"name"_s, u"Álex"_s }, { u"albums"_s, QVariantList { album.asValue() } } };
        album.values = { { u"title"_s, u"One"_s }, { u"artist"_s, artist.asValue() },
            { u"tracks"_s, QVariantList { track.asValue(), bare.asValue() } } };
        track.values = { { u"title"_s, u"\U0001F3B5 Straße*"_s }, { u"bpm"_s, 128.0 }, { u"year"_s, 2001 },
            { u"plays"_s, qint64(9'007'199'254'740'993) }, { u"price"_s, decimal("0.1") }, { u"loved"_s, true },
            { u"added"_s, QDateTime::fromMSecsSinceEpoch(1500, Qt::UTC) }, { u"file"_s, QUrl(u"file:///a%20b"_s) },
            { u"empty"_s, u""_s }, { u"album"_s, album.asValue() }, { u"none"_s, QVariantList() },
            { u"genres"_s, QVariantList { house.asValue(), techno.asValue() } },
            { u"counts"_s, QVariantMap { { u"com.example.list"_s, 7 } } } };
    }
    void hold(std::initializer_list<const char *> conditions)
    {
        for (const char *text : conditions)
            EXPECT_TRUE(KXPredicate::predicateWithFormat(text).evaluateWithObject(&track)) << text;
    }

    Thing house, techno, artist, album, track, bare;
};

TEST_F(PredicateMeaning, absentValuesAreEqualToNilAlone)
{
    hold({
        "missing == nil",
        "NOT missing != nil",
        "title != nil",
        "NOT missing < 5",
        "NOT missing > 5",
        "missing != 5",
        "NOT missing IN {nil, 5}",
        "NOT missing LIKE '*'",
        "NOT missing BETWEEN {0, 9}",
        "NOT bpm < nil",
        "NOT bpm BETWEEN {nil, 200}",
        "NOT empty == nil",
        "empty == ''",
        "album.missing.further == nil",
        "missing.further.title == nil",
        "`album.` == nil",
        "`` == nil",
        "title.further == nil",
        "AND()",
        "NOT OR()",
    });
}

TEST_F(PredicateMeaning, numbersOfAllKindsCompareExactly)
{
    hold({
        "bpm == 128",
        "bpm BETWEEN {128, 128}",
        "bpm > 127.5 AND bpm < DECIMAL('128.01')",
        "loved == 1",
        "loved == TRUE",
        "year IN {2001.0}",
        "price == 0.1",
        "price < DECIMAL('0.1000000000000000055')",
        "plays > 9007199254740992.0",
        "plays == DECIMAL('9007199254740993')",
        "plays != 9007199254740992.0",
        "NOT bpm == DOUBLE('nan')",
        "bpm != DOUBLE('nan')",
        "NOT bpm < DOUBLE('nan')",
        "bpm < DOUBLE('inf')",
        "120 <= bpm",
    });
}

TEST_F(PredicateMeaning, whatCannotBeComparedIsOnlyUnequal)
{
    hold({
        "NOT year == '2001'",
        "year != '2001'",
        "NOT year < '3000'",
        "NOT title > 5",
        "NOT bpm LIKE '*'",
        "NOT added > 0",
        "NOT album < album",
        "album == album",
    });
}

TEST_F(PredicateMeaning, textsCompareAsTheirModifiersSay)
{
    hold({
        "title > '\\uff5e'",
        "title CONTAINS 'Straße'",
        "title ENDSWITH 'e*'",
        "title LIKE '?*\\\\*'",
        "title LIKE '? S*'",
        "NOT title LIKE '* s*'",
        "title LIKE[c] '* STRAßE?'",
        "album.artist.name ==[cd] 'ALEX'",
        "NOT album.artist.name ==[c] 'alex'",
        "album.artist.name BEGINSWITH[d] 'A'",
        "title MATCHES[c] '. STRA.E\\\\*'",
        "NOT title MATCHES 'Str'",
        "NOT title MATCHES '('",
        "album.title IN 'OneTwo'",
        "file == 'file:///a%20b'",
        "title CONTAINS ''",
    });
}

TEST_F(PredicateMeaning, datesCompareToTheMillisecond)
{
    hold({
        "added > DATE('1970-01-01T00:00:01.499Z')",
        "added == DATE(1500)",
    });
}

TEST_F(PredicateMeaning, toManyPathsHoldForAnyUnlessForAll)
{
    hold({
        "ANY genres.name == 'House'",
        "genres.name == 'Techno'",
        "ALL genres.rank > 0",
        "NOT ALL genres.rank > 1",
        "ANY genres.rank != 1",
        "NOT ALL genres.rank != 1",
        "ALL none.rank > 99",
        "NOT ANY none.rank == nil",
        "NOT none.rank != 5",
        "genres.@count == 2",
        "none.@count == 0",
        "missing.none.@count == nil",
        "album.artist.albums.tracks.@count == 2",
        "genres.name CONTAINS 'House'",
        "NOT genres.name CONTAINS 'ous'",
        "ANY genres.name CONTAINS 'ous'",
        "'House' IN genres.name",
        "genres.parent.name == nil",
        "ANY genres.name IN {'House', 'x'}",
        "NOT ANY genres.name IN {}",
        "ALL genres.name IN {'House', 'Techno'}",
        "album.tracks.title == title",
        "ANY genres CONTAINS[c] 'x' OR SELF IN album.tracks",
        "ANY album.tracks == SELF",
        "genres.rank BETWEEN {2, 3}",
        "bpm == {1, 128}",
        "counts.com.example.list == 7",
        "FUNCTION(album, 'valueForKeyPath:', 'artist.name') BEGINSWITH 'Á'",
        "NOT bpm OPERATOR(42) 5",
        "MODIFIER(9) bpm == 128",
    });
}

TEST_F(PredicateMeaning, argumentsMayBeObjectsAndLongLists)
{
    EXPECT_TRUE(KXPredicate().evaluateWithObject(&track));
    EXPECT_TRUE(KXPredicate::predicateWithFormat("a.b == nil AND SELF == nil").evaluateWithObject(nullptr));
    EXPECT_TRUE(
        KXPredicate::predicateWithFormat("ANY genres == %@ AND SELF IN %@", &house, QList<Thing *> { &bare, &track })
            .evaluateWithObject(&track));

    QVariantList many;
    for (int i = 0; i < 1000; ++i)
        many << i + 0.5 << QString::number(i) << decimal("128") << QVariant();
    const KXPredicate inMany
        = KXPredicate::predicateWithFormat("bpm IN %@ AND NOT year IN %@ AND NOT missing IN %@", many, many, many);
    EXPECT_TRUE(inMany.evaluateWithObject(&track));
}

TEST(Predicate, goesToEachObjectOnceHoweverManyWaysThereAre)
{
    constexpr int size = 40;
    std::vector<Thing> artists(size), tracks(size);
    QVariantList allArtists, allTracks;
    for (int i = 0; i < size; ++i) {
        allArtists.append(QVariant::fromValue(static_cast<KXObservable *>(&artists[size_t(i)])));
        allTracks.append(QVariant::fromValue(static_cast<KXObservable *>(&tracks[size_t(i)])));
    }
    for (int i = 0; i < size; ++i) {
        artists[size_t(i)].values = { { u"tracks"_s, allTracks }, { u"name"_s, i } };
        tracks[size_t(i)].values = { { u"artists"_s, allArtists }, { u"title"_s, u"x"_s } };
    }
    const char *const path = "artists.tracks.artists.tracks.artists.tracks.artists.tracks.artists.name";
    for (const auto &[text, answer] :
        { std::pair("ANY %1 == -1", false), std::pair("ALL %1 >= 0", true), std::pair("-1 IN %1", false),
            std::pair("ANY %1 == 39", true), std::pair("title == %1", false), std::pair("%1 CONTAINS 7", true) }) {
        const KXPredicate predicate = parsed(QString::fromLatin1(text).arg(QLatin1StringView(path)));
        Thing::reads = 0;
        KXError error;
        EXPECT_EQ(predicate.evaluateWithObject(&tracks[0], {}, &error), answer) << text;
        EXPECT_FALSE(error);
        EXPECT_LE(Thing::reads, 20 * size) << text;
    }
    // A list of values keeps what it meets twice.
    EXPECT_EQ(KXExpression::expressionForKeyPath(u"artists.tracks.title"_s).expressionValueWithObject(&tracks[0]),
        QVariant(QVariantList(size * size, u"x"_s)));
}

TEST(Predicate, isGivenUpAfterTooManyStepsOrWhenTheOperationIsCancelled)
{
    constexpr int size = 5000;
    QVariantList numbers, others;
    for (int i = 0; i < size; ++i) {
        numbers << i;
        others << -1 - i;
    }
    struct Cancelling : Thing
    {
        QVariant valueForKey(const QString &key) const override
        {
            if (cancels)
                KXAbstractOperation::current()->cancel();
            return Thing::valueForKey(key);
        }
        bool cancels = false;
    } thing;
    thing.values = { { u"numbers"_s, numbers }, { u"others"_s, others } };
    const KXPredicate predicate = parsed(u"NOT ANY numbers == others"_s); // 25 million pairs
    KXTestLog log;
    EXPECT_FALSE(predicate.evaluateWithObject(&thing));
    EXPECT_TRUE(log.contains(u"takes more than 10000000 steps"_s));
    KXError error;
    EXPECT_FALSE(predicate.evaluateWithObject(&thing, {}, &error));
    EXPECT_EQ(error.code(), KXPredicate::StepsError);

    thing.cancels = true;
    KXOperationQueue queue;
    for (const bool isLate : { false, true }) {
        error = {};
        bool fits = true;
        queue.addBlock([&](KXAbstractOperation &operation) {
            if (isLate)
                operation.cancel(); // it has chosen to go on
            fits = predicate.evaluateWithObject(&thing, {}, &error);
        });
        queue.waitUntilAllOperationsAreFinished();
        EXPECT_FALSE(fits);
        EXPECT_EQ(error.code(), isLate ? KXPredicate::StepsError : 1116);
    }
}

TEST(Predicate, longTextsAreFoldedInPartsAsIfTheyWereWhole)
{
    // Letters that grow, that join with what follows, and marks; so placed that every part ends among each of them.
    const QStringList pieces { u"Ä"_s, u"A\u0308"_s, u"ß"_s, u"\u0344"_s, u"각"_s, u"\u1100\u1161\u11A8"_s, u"İ"_s,
        u"\U0001D15F"_s, u"x"_s, u"\u0bc6\u0bbe"_s, u"\U00010400"_s };
    KXTestRandom random;
    Thing thing;
    for (int round = KXTestRandom::scaled(300); round > 0; --round) {
        QStringList parts;
        for (int i = 0; i < 700; ++i)
            parts.append(pieces[random.below(int(pieces.size()))]);
        const QString text = parts.join(QString());
        QString plain = text.normalized(QString::NormalizationForm_D);
        plain.removeIf([](QChar c) { return c.category() == QChar::Mark_NonSpacing; });
        plain = plain.toCaseFolded().normalized(QString::NormalizationForm_C);
        thing.values[u"text"_s] = text;
        EXPECT_TRUE(KXPredicate::comparison(u"text"_s, KXPredicateOperator::Equal, plain, KXPredicateModifier::Direct,
            KXCaseInsensitive | KXDiacriticInsensitive)
                        .evaluateWithObject(&thing));
    }
    // A million of each take a moment: the time grows with the length, not with the square of it.
    for (const QString &piece : pieces) {
        thing.values[u"text"_s] = piece.repeated(1'000'000);
        EXPECT_TRUE(parsed(u"NOT text ==[cd] 'y'"_s).evaluateWithObject(&thing));
    }
}

TEST(Predicate, equalitiesOfOneKeyPathBecomeOneWithAList)
{
    const std::pair<const char *, const char *> rows[] = {
        { "a == 1 OR a == 2", "a == {1, 2}" },
        { "a == 1 OR b > 2 OR a == 'x' OR b == 3 OR a == nil", "a == {1, 'x', nil} OR b > 2 OR b == 3" },
        { "ANY a.b == 1 OR ANY a.b == 2", "ANY a.b == {1, 2}" },
        // What means something else stays as it is.
        { "a == 1 OR a ==[c] 2", "a == 1 OR a ==[c] 2" },
        { "ALL a == 1 OR ALL a == 2", "ALL a == 1 OR ALL a == 2" },
        { "a == {1, 2} OR a == 3", "a == {1, 2} OR a == 3" },
        { "a == b OR a == c OR 1 == a OR a != 1", "a == b OR a == c OR 1 == a OR a != 1" },
    };
    for (const auto &[text, joined] : rows) {
        const QList<KXPredicate> parts
            = KXPredicateJoinEqualities(KXPredicate::predicateWithText(QString::fromLatin1(text)).subpredicates());
        const KXPredicate expected = KXPredicate::predicateWithText(QString::fromLatin1(joined));
        EXPECT_EQ(parts.size() == 1 ? parts.first() : KXPredicate::orPredicate(parts), expected)
            << text << " became " << qPrintable(KXPredicate::orPredicate(parts).predicateFormat());
    }
}
