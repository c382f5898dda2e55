#pragma once

#include "core/Decimal.h"

namespace brassline {

class BLCurrency;

// Rounding of line and document amounts by a document's currency, null-safe: without a
// currency (a catalog item has no document) the value stays as it is. roundByCurrency is
// the currency's rounding behaviour (lines keep cents in Swiss francs); roundPayable is
// its roundCost with the 0.05 step for "CHF".
Decimal roundByCurrency(const BLCurrency* currency, const Decimal& value);
Decimal roundPayable(const BLCurrency* currency, const Decimal& value, const Decimal& reference);

}  // namespace brassline
