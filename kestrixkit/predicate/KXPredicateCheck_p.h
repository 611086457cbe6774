#pragma once

#include <kestrixkit/predicate/KXPredicate.h>

class KXEntityDescription;

/// What a model says against a predicate.
namespace KXPredicateCheck {

/// Of a comparison in it that can never be meant: of a number with a text, or of a date with either; by =, !=, <, <=,
/// >, >=, IN and BETWEEN. It would let nothing or everything through. Empty where there is none. Keys that the model
/// does not know, and values that may be of any type, are passed over.
[[nodiscard]] KX_CORE_EXPORT QString misfit(const KXPredicate &predicate, const KXEntityDescription &entity);

}
