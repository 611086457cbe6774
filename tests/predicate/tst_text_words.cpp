// What a word is, to texts and to terms.

#include <gtest/gtest.h>

#include <kestrixkit/predicate/KXTextWords_p.h>
#include <kestrixkit/search/KXSearchMatches.h>

#include "support/KXTestPrint.h"

using namespace Qt::StringLiterals;

namespace {

QString wordsOf(const QString &text)
{
    KXTextWords::Splitter splitter;
    QStringList words;
    for (const QByteArrayView word : splitter.ofText(text))
        words.append(QString::fromUtf8(word));
    words.sort();
    words.removeDuplicates();
    return words.join(u' ');
}

QString termOf(const QString &term)
{
    QStringList words;
    for (const QByteArray &word : KXTextWords::ofTerm(term))
        words.append(QString::fromUtf8(word));
    return words.join(u' ');
}

bool finds(const QString &term, const QString &text)
{
    return KXTextWords::begin(KXTextWords::ofTerm(term), text.toUtf8());
}

}

TEST(TextWords, ofTextsAndTerms)
{
    struct Row
    {
        QString text, words, term;
    };
    const Row rows[] = {
        { u"Daft Punk"_s, u"daft punk"_s, u"daft punk"_s },
        { u"  (feat. Björk)\t"_s, u"bjork feat"_s, u"bjork feat"_s },
        { u"8A 128.5"_s, u"128 1285 5 8a"_s, u"128 5 8a"_s },
        { u"Don't O’Brien"_s, u"brien dont obrien t"_s, u"dont obrien"_s },
        { u"'quoted'"_s, u"quoted"_s, u"quoted"_s },
        { u"Jay-Z R.E.M. AC/DC"_s, u"ac acdc dc e jay jayz m r rem z"_s, u"ac dc e jay m r z"_s },
        { u"東京タワー"_s, u"タワー ワー ー 京タワー 東京タワ"_s, u"京タワー 東京タワ"_s },
        { u"東京2020"_s, u"2020 京 東京"_s, u"2020 東京"_s },
        { u"ＤＪ Ｋｒｕｓｈ"_s, u"dj krush"_s, u"dj krush"_s },
        { u"STRASSE Straße"_s, u"strasse"_s, u"strasse"_s },
        { u"e\u0301lan"_s, u"elan"_s, u"elan"_s },
        { u"שלום עולם"_s, u"עולם שלום"_s, u"עולם שלום"_s },
        { u"a ab abc"_s, u"a ab abc"_s, u"abc"_s },
        { u" \u00A0\u3000-…!"_s, u""_s, u""_s },
        { u"\u0301"_s, u""_s, u""_s },
        { QString(QChar(0xD83D)), u""_s, u""_s },
        { u"x"_s + QChar(0xDE00) + u"y"_s, u"x xy y"_s, u"x y"_s },
    };
    for (const Row &row : rows) {
        EXPECT_EQ(wordsOf(row.text), row.words) << row.text.toStdString();
        EXPECT_EQ(termOf(row.text), row.term) << row.text.toStdString();
    }
}

TEST(TextWords, findAsPeopleType)
{
    const std::pair<QString, QString> found[] = {
        { u"punk daf"_s, u"Daft Punk"_s },
        { u"dont"_s, u"Don't Stop"_s },
        { u"don't"_s, u"Dont Stop"_s },
        { u"o'brien"_s, u"OBrien"_s },
        { u"brien"_s, u"O'Brien"_s },
        { u"jayz"_s, u"Jay-Z"_s },
        { u"jay z"_s, u"Jay-Z"_s },
        { u"rem"_s, u"R.E.M."_s },
        { u"acdc"_s, u"AC/DC"_s },
        { u"r&b"_s, u"R&B"_s },
        { u"feat. bjo"_s, u"Debut (feat. Björk)"_s },
        { u"8a"_s, u"Key: 8A"_s },
        { u"タワー"_s, u"東京タワー"_s },
        { u"京タワーレ"_s, u"東京タワーレコード"_s },
        { u"ﾀﾜｰ"_s, u"タワー"_s },
        { u"royksopp ae"_s, u"Røyksopp Æther"_s },
    };
    for (const auto &[term, text] : found)
        EXPECT_TRUE(finds(term, text)) << term.toStdString() << " in " << text.toStdString();
    const std::pair<QString, QString> missed[] = {
        { u"aft"_s, u"Daft Punk"_s },
        { u"daft funk"_s, u"Daft Punk"_s },
        { u"東タ"_s, u"東京タワー"_s },
    };
    for (const auto &[term, text] : missed)
        EXPECT_FALSE(finds(term, text)) << term.toStdString() << " in " << text.toStdString();
    // Longer than words are kept.
    EXPECT_TRUE(finds(QString(10'000, u'é'), QString(9'000, u'e')));
    EXPECT_FALSE(finds(QString(10'000, u'x'), u"xx"_s));
}

TEST(TextWords, matchesAreSetOff)
{
    const auto marked = [](QString text, const QString &term) {
        const auto matches = KXSearchMatches(text, term);
        for (auto match = matches.rbegin(); match != matches.rend(); ++match)
            text.insert(match->first + match->second, u']').insert(match->first, u'[');
        return text;
    };
    EXPECT_EQ(marked(u"Daft Punk, daft"_s, u"daf"_s), u"[Daf]t Punk, [daf]t"_s);
    EXPECT_EQ(marked(u"Björk Guðmundsdóttir"_s, u"bjor gudm"_s), u"[Björ]k [Guðm]undsdóttir"_s);
    EXPECT_EQ(marked(u"Don't stop"_s, u"dont s"_s), u"[Don't] [s]top"_s);
    EXPECT_EQ(marked(u"東京タワー"_s, u"京タ"_s), u"東[京タ]ワー"_s);
    EXPECT_EQ(marked(u"love Lover"_s, u"love lover"_s), u"love [Lover]"_s);
    EXPECT_EQ(marked(u"anything"_s, u" "_s), u"anything"_s);
}
