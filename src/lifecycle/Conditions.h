#pragma once

#include <string>

#include "lifecycle/Substitution.h"

namespace brassline {

class BLSendable;

// The terms text of a document: the archived texts and tokens of its payment type (the
// client's when the document has none), or of its type for a follow-up. Texts have their
// tags filled from `soFar`; a token with an option is evaluated for the document (the due
// date, cash discounts, amounts); a plain field reads the document's own key ("termDays",
// "due", "sent", "label", "amountdue" as the open balance, "name" as the number). "" when
// there are no terms or they don't read. Main thread.
std::string conditionStringWithDictionary(BLSendable& document, const SubstitutionDictionary& soFar);
// The terms of the document's parent document (a follow-up's invoice) as the parent's own
// dictionary gives them; "" without one.
std::string originalConditionsString(BLSendable& document);

}  // namespace brassline
