#pragma once

#include "core/Decimal.h"

namespace brassline {

class BLCurrency;

// Rounding of line and document amounts by a document's currency. A null currency leaves
// the value as it is (a catalog item has no document). Plain rounding to the currency's
// minor digits; roundPayable adds the Swiss 0.05 step for "CHF".
Decimal roundByCurrency(const BLCurrency* currency, const Decimal& value);
Decimal roundPayable(const BLCurrency* currency, const Decimal& value, const Decimal& reference);

}  // namespace brassline
