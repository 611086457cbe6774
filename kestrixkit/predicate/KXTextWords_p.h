#pragma once

#include <string>
#include <vector>

#include <QByteArray>
#include <QString>

#include <kestrixkit/foundation/KXGlobal.h>

/// What a word is to a search: the same for texts, terms and predicates, so that all of them agree.
///
/// A word is a run of letters and digits without case, diacritics and differences of width. Apostrophes do not divide
/// ("don't" is "dont"), other punctuation does. Scripts that are written without blanks have no words: there each
/// character begins one of at most four characters.
namespace KXTextWords {

/// Raised when words become others, for indexes that are kept.
inline constexpr quint32 Version = 1;
/// Bytes of UTF-8; longer words are cut, in texts and terms alike.
inline constexpr qsizetype LongestWord = 64;
/// Characters of a word in a script without blanks.
inline constexpr qsizetype LongestOfRun = 4;
/// Characters that a word of a term needs to be looked for inside words.
inline constexpr qsizetype ShortestInside = 3;

/// The words of a term, each once, without those that others begin with. Empty for a term without letters and digits.
[[nodiscard]] KX_CORE_EXPORT std::vector<QByteArray> ofTerm(const QString &term);
/// Whether a word of a term is long enough to be looked for inside words.
[[nodiscard]] KX_CORE_EXPORT bool mayBeInside(QByteArrayView word);
/// A number as people write it.
[[nodiscard]] KX_CORE_EXPORT QByteArray textOfNumber(double number);
/// Whether each word of the term begins a word of the text.
[[nodiscard]] KX_CORE_EXPORT bool begin(const std::vector<QByteArray> &termWords, QByteArrayView utf8);
/// Where in the text, in its own characters, words begin as those of the term do: beginning and length, in order. What
/// folding makes longer or shorter is set off to the end of its word.
struct Range
{
    qsizetype from;
    qsizetype length;
};
[[nodiscard]] KX_CORE_EXPORT std::vector<Range> matches(const QString &text, const QString &term);

/// Splits texts, one after the other, with memory of its own.
class KX_CORE_EXPORT Splitter
{
public:
    /// Words by which the text can be found, some more than once: beside its words the parts between apostrophes, and
    /// what punctuation divides written as one ("Jay-Z" is found as "jay", "z" and "jayz").
    const std::vector<QByteArrayView> &ofText(QByteArrayView utf8);
    const std::vector<QByteArrayView> &ofText(const QString &text);

private:
    friend std::vector<QByteArray> ofTerm(const QString &term);
    enum Class : quint8 { Other, Space, Letter, Apostrophe, Run };
    [[nodiscard]] static Class classOf(char32_t c);
    void split(QByteArrayView folded, bool isTerm);
    void addWord(qsizetype from, qsizetype to);
    void endPiece(bool isTerm);
    void endRun(bool isTerm);
    void endChunk(bool isTerm);

    std::string m_text; // characters of the words, apostrophes left out
    std::vector<std::pair<qsizetype, qsizetype>> m_places; // of words in m_text
    std::vector<QByteArrayView> m_words;
    std::string m_folded;
    // Between blanks.
    qsizetype m_piece = -1; // where the piece between punctuation began
    qsizetype m_part = -1; // where its part between apostrophes began
    bool m_hasParts = false;
    std::vector<std::pair<qsizetype, qsizetype>> m_pieces;
    std::vector<qsizetype> m_run; // where the characters of a script without blanks begin
};

}
