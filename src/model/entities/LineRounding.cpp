#include "model/entities/LineRounding.h"

#include "model/entities/BLCurrency.h"

namespace brassline {

Decimal roundByCurrency(const BLCurrency* currency, const Decimal& value) {
    return currency != nullptr && !value.isNaN() ? currency->round(value) : value;
}

Decimal roundPayable(const BLCurrency* currency, const Decimal& value, const Decimal& reference) {
    return currency != nullptr && !value.isNaN() ? currency->roundCost(value, reference) : value;
}

}  // namespace brassline
