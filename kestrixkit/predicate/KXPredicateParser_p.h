#pragma once

#include <QString>
#include <QVariant>

#include <kestrixkit/predicate/KXPredicate.h>

/// Reads one predicate from text.
class KXPredicateParser
{
public:
    /// With arguments "%@" and its like stand for them, without them "%" has no meaning.
    KXPredicateParser(const QString &text, const QVariantList *arguments)
        : m_text(text)
        , m_arguments(arguments)
    {
    }

    /// Absent, with a problem, when the text is no predicate.
    [[nodiscard]] KXPredicate parse();
    /// What is wrong and at which character, counted from 1.
    [[nodiscard]] const QString &problem() const { return m_problem; }

    /// Whether the key path reads back as itself without quotes.
    [[nodiscard]] static bool isPlainKeyPath(QStringView keyPath);
    /// Whether a variable's name does.
    [[nodiscard]] static bool isPlainName(QStringView name);
    /// The constant that a call such as DATE("2024-…") stands for. Invalid for an unknown name and for an argument that
    /// is no such value.
    [[nodiscard]] static QVariant valueFromCall(const QString &name, const QVariant &argument);

private:
    enum class Token : quint8 { End, Word, KeyPath, Variable, Value, Symbol };
    struct Failure
    {
        QString what;
        qsizetype at;
    };
    /// One more level of parentheses, lists or NOTs; ends the reading before the stack does.
    class Level
    {
    public:
        explicit Level(KXPredicateParser &parser);
        ~Level() { --m_parser.m_level; }

    private:
        KXPredicateParser &m_parser;
    };

    [[nodiscard]] static bool isEqual(QStringView text, QLatin1StringView word)
    {
        return text.compare(word, Qt::CaseInsensitive) == 0;
    }
    void next();
    void readWord();
    void readNumber();
    void readQuoted(QChar quote);
    void readPercent();
    void readVariable();
    [[nodiscard]] const QVariant &nextArgument();
    [[noreturn]] void fail(const QString &what);
    [[nodiscard]] bool isWord(QLatin1StringView word) const;
    [[nodiscard]] bool isBeforeParenthesis() const;
    bool takeWord(QLatin1StringView word);
    bool takeSymbol(QLatin1StringView symbol);
    void expectSymbol(QLatin1StringView symbol);
    int takeCode();

    KXPredicate readOr();
    KXPredicate readAnd();
    KXPredicate readNot();
    KXPredicate readPrimary();
    KXPredicate readCompound(KXPredicateType type);
    KXPredicate readComparison();
    KXPredicateOperator readOperator();
    KXExpression readExpression();
    KXExpression readList(QLatin1StringView closing);
    KXExpression readCall(const QString &name);

    const QString m_text;
    const QVariantList *m_arguments;
    qsizetype m_argumentsUsed = 0;
    qsizetype m_at = 0; ///< where the next token may begin
    int m_level = 0;
    QString m_problem;

    // The token in hand.
    Token m_token = Token::End;
    qsizetype m_tokenAt = 0;
    QString m_tokenText; ///< a word, key path, variable or symbol
    QVariant m_value;
    QString m_variableKeyPath; ///< what follows the name of a variable
};
