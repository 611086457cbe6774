#include <cmath>
#include <memory>

#include <QRegularExpression>

#include <sqlite3.h>

#include <kestrixkit/foundation/KXDecimal.h>
#include <kestrixkit/predicate/KXPredicateEvaluator_p.h>
#include <kestrixkit/predicate/KXTextFolding_p.h>
#include <kestrixkit/predicate/KXTextWords_p.h>
#include <kestrixkit/store/KXPredicateSQL_p.h>

namespace {

QByteArrayView sqlFunctionText(sqlite3_value *value)
{
    const auto *text
        = reinterpret_cast<const char *>(sqlite3_value_text(value)); // before the size, which it may change
    return QByteArrayView(text, text ? sqlite3_value_bytes(value) : 0);
}

/// kx_fold(text, options): the text as comparisons with [c] or [d] see it.
void sqlFunctionFold(sqlite3_context *context, int, sqlite3_value **arguments)
{
    if (sqlite3_value_type(arguments[0]) == SQLITE_NULL)
        return;
    const QByteArray folded = KXTextFolding::folded(sqlFunctionText(arguments[0]), sqlite3_value_int(arguments[1]));
    sqlite3_result_text64(context, folded.constData(), sqlite3_uint64(folded.size()), SQLITE_TRANSIENT, SQLITE_UTF8);
}

bool sqlFunctionMatches(sqlite3_context *context, sqlite3_value **arguments)
{
    using Expression = QRegularExpression;
    constexpr int pattern = 2;
    auto *expression = static_cast<Expression *>(sqlite3_get_auxdata(context, pattern));
    std::unique_ptr<Expression> made;
    if (!expression) {
        made = std::make_unique<Expression>(KXPredicateEvaluator::regularExpression(
            QString::fromUtf8(sqlFunctionText(arguments[pattern])), sqlite3_value_int(arguments[3])));
        expression = made.get();
    }
    const bool matches = expression->match(QString::fromUtf8(sqlFunctionText(arguments[0]))).hasMatch();
    // Kept by SQLite for the statement's next rows where the pattern is constant, else let go at once.
    if (made)
        sqlite3_set_auxdata(
            context, pattern, made.release(), [](void *kept) { delete static_cast<Expression *>(kept); });
    return matches;
}

bool sqlFunctionBeginsWord(sqlite3_context *context, sqlite3_value **arguments)
{
    using Words = std::vector<QByteArray>;
    constexpr int term = 2;
    auto *words = static_cast<Words *>(sqlite3_get_auxdata(context, term));
    std::unique_ptr<Words> made;
    if (!words) {
        made = std::make_unique<Words>(KXTextWords::ofTerm(QString::fromUtf8(sqlFunctionText(arguments[term]))));
        words = made.get();
    }
    const QByteArray number = sqlite3_value_type(arguments[0]) == SQLITE_FLOAT
        ? KXTextWords::textOfNumber(sqlite3_value_double(arguments[0]))
        : QByteArray();
    const bool begins = KXTextWords::begin(*words, number.isNull() ? sqlFunctionText(arguments[0]) : number);
    if (made)
        sqlite3_set_auxdata(context, term, made.release(), [](void *kept) { delete static_cast<Words *>(kept); });
    return begins;
}

/// kx_text(left, code of the operator, right, options): LIKE, MATCHES, BEGINSWITH, ENDSWITH, CONTAINS, BEGINSWORD.
void sqlFunctionCompareText(sqlite3_context *context, int, sqlite3_value **arguments)
{
    const auto code = KXPredicateOperator(sqlite3_value_int(arguments[1]));
    const int type = sqlite3_value_type(arguments[0]);
    const bool isNumber = type == SQLITE_INTEGER || type == SQLITE_FLOAT;
    if (sqlite3_value_type(arguments[2]) != SQLITE_TEXT
        || (type != SQLITE_TEXT && !(isNumber && code == KXPredicateOperator::BeginsWord)))
        return;
    if (code == KXPredicateOperator::BeginsWord)
        return sqlite3_result_int(context, sqlFunctionBeginsWord(context, arguments));
    const QByteArrayView left = sqlFunctionText(arguments[0]);
    const QByteArrayView right = sqlFunctionText(arguments[2]);
    bool result = false;
    switch (code) {
    case KXPredicateOperator::Like:
        result = KXTextFolding::isLike(left, right);
        break;
    case KXPredicateOperator::BeginsWith:
        result = left.startsWith(right);
        break;
    case KXPredicateOperator::EndsWith:
        result = left.endsWith(right);
        break;
    case KXPredicateOperator::Contains:
        result = right.isEmpty() || left.contains(right);
        break;
    case KXPredicateOperator::Matches:
        result = sqlFunctionMatches(context, arguments);
        break;
    default:
        break;
    }
    sqlite3_result_int(context, result);
}

/// kx_decimal(number): the canonical text of a number, to compare with a decimal.
void sqlFunctionDecimal(sqlite3_context *context, int, sqlite3_value **arguments)
{
    QByteArray text;
    if (sqlite3_value_type(arguments[0]) == SQLITE_INTEGER)
        text = QByteArray::number(qint64(sqlite3_value_int64(arguments[0])));
    else if (sqlite3_value_type(arguments[0]) != SQLITE_FLOAT)
        return;
    else if (const double real = sqlite3_value_double(arguments[0]); std::isinf(real))
        text = real > 0 ? "9E+99999" : "-9E+99999"; // beyond all decimals
    else
        text = KXDecimal::fromDouble(real).canonical();
    sqlite3_result_text64(context, text.constData(), sqlite3_uint64(text.size()), SQLITE_TRANSIENT, SQLITE_UTF8);
}

int sqlFunctionCollateDecimals(void *, int sizeA, const void *a, int sizeB, const void *b)
{
    return KXDecimal::compare(
        QByteArrayView(static_cast<const char *>(a), sizeA), QByteArrayView(static_cast<const char *>(b), sizeB));
}

}

int KXPredicateSQL::registerFunctions(sqlite3 *database)
{
    constexpr int flags = SQLITE_UTF8 | SQLITE_DETERMINISTIC | SQLITE_INNOCUOUS;
    int code = sqlite3_create_function_v2(
        database, "kx_fold", 2, flags, nullptr, sqlFunctionFold, nullptr, nullptr, nullptr);
    if (code == SQLITE_OK)
        code = sqlite3_create_function_v2(
            database, "kx_text", 4, flags, nullptr, sqlFunctionCompareText, nullptr, nullptr, nullptr);
    if (code == SQLITE_OK)
        code = sqlite3_create_function_v2(
            database, "kx_decimal", 1, flags, nullptr, sqlFunctionDecimal, nullptr, nullptr, nullptr);
    if (code == SQLITE_OK)
        code = sqlite3_create_collation_v2(
            database, "KX_DECIMAL", SQLITE_UTF8, nullptr, sqlFunctionCollateDecimals, nullptr);
    return code;
}

int KXPredicateSQL::bind(sqlite3_stmt *statement, int first) const
{
    int code = SQLITE_OK;
    for (size_t i = 0; i < values.size() && code == SQLITE_OK; ++i) {
        const KXSQLValue &value = values[i];
        const int parameter = first + int(i);
        const char *bytes = value.bytes.isNull() ? "" : value.bytes.constData(); // a null pointer would bind NULL
        switch (value.type) {
        case KXSQLValue::Integer:
            code = sqlite3_bind_int64(statement, parameter, value.integer);
            break;
        case KXSQLValue::Real:
            code = sqlite3_bind_double(statement, parameter, value.real);
            break;
        case KXSQLValue::Text:
            code = sqlite3_bind_text64(
                statement, parameter, bytes, sqlite3_uint64(value.bytes.size()), SQLITE_STATIC, SQLITE_UTF8);
            break;
        case KXSQLValue::Blob:
            code = sqlite3_bind_blob64(statement, parameter, bytes, sqlite3_uint64(value.bytes.size()), SQLITE_STATIC);
            break;
        }
    }
    return code;
}
