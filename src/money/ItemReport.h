#pragma once

#include <string>

namespace brassline {

class BLSendable;

// Text reports of a document for the command line. The tree lists every item with its
// position number, quantity, unit price and line amount, children indented; the totals
// give net, tax, gross, document discount and balance. `json` gives one JSON object.
std::string itemTreeReport(BLSendable& document, bool json);
std::string totalsReport(BLSendable& document, bool json);

}  // namespace brassline
