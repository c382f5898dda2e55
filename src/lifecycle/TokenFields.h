#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

#include "lifecycle/NumberPattern.h"

namespace brassline {

// The option lists of the numbering token fields ("invoicenumbers", "estimatenumbers",
// "clientnumbers", "projectnumbers", "conditions"), by tag, in menu order: the first
// entry is a new token's default, "-" is a separator. A follow-up type's field
// (`prefsKey` "followUpType.<uid>") takes the invoice lists with its own five counters.
// Empty for an unknown list or tag.
std::vector<std::string> tokenOptions(std::string_view settingsName, std::string_view tag,
                                      std::string_view prefsKey = {});
// The tags a numbering field offers: "invoice", "estimate", "client", "project", "path".
std::vector<std::string> tokenFieldTags(std::string_view field);

// Inserts dragged or pasted tokens at `index` (clamped): each token without a uid gets a
// fresh one. Counter and auto increment exclude each other: added tokens holding both add
// nothing (false); adding one removes the other kind from the field.
bool addTokens(NumberPattern& field, NumberPattern added, size_t index);

// Whether the pattern has no counter token, which hides the counter in the settings (an
// auto increment alone hides it too).
bool hasNoIncrement(const NumberPattern& pattern);

}  // namespace brassline
