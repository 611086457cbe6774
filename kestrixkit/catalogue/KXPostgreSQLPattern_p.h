#pragma once

#include <optional>

#include <QString>

/// Patterns as PostgreSQL reads them.
namespace KXPostgreSQLPattern {

/// Of a pattern with "*", "?" and backslashes, for LIKE.
[[nodiscard]] std::optional<QString> ofLike(const QString &pattern);

/// Of a regular expression for a whole text, for "~"; none where the expression has mistakes, and so fits nothing.
///
/// The two engines agree on what literals, "." , classes, groups, alternatives and "* + ?" mean, but not on letters of
/// another case: a letter becomes the class of all that our own engine takes for it. Throws KXPostgreSQLRule::Refusal
/// for everything else.
[[nodiscard]] std::optional<QString> ofRegularExpression(const QString &pattern, bool caseInsensitive);

}
