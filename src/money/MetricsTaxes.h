#pragma once

#include <vector>

#include "money/BLTaxCalculator.h"

namespace brassline {

// The tax table that metrics count for a sendable: its taxDictionary, and on an invoice
// with issued partial invoices below, each rule's amount and tax less theirs (the tax then
// carried as preCalculatedTax), so that instalments are not counted twice.
std::vector<BLTaxCalculator> taxDictionaryForMetrics(BLSendable& sendable);

}  // namespace brassline
