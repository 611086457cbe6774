#pragma once

#include <kestrixkit/predicate/KXPredicate.h>

/// The parts of an OR, with "a == 1 OR a == 2" turned into "a == {1, 2}" in the place of the first: one look into an
/// index, and one parameter, for whoever asks a database. For that alone: ALL is left out, so the list means any of its
/// values. Any thread.
[[nodiscard]] KX_CORE_EXPORT QList<KXPredicate> KXPredicateJoinEqualities(const QList<KXPredicate> &parts);
