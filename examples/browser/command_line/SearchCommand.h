#pragma once

#include <QJsonObject>

#include <kestrixkit/context/KXManagedObjectContext.h>

/// Answers to --search.
namespace SearchCommand {

/// How many titles of each group are printed.
inline constexpr qsizetype Titles = 10;

/// {"text", "groups": [{"name", "count", "first": [titles]}]}: what a search for the text finds, in each group the best
/// first. Empty and an error where the store does not answer.
[[nodiscard]] QJsonObject answer(
    const KXManagedObjectContext::Ref &context, const QString &text, KXError *error = nullptr);

} // namespace SearchCommand
