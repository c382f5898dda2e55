#include "model/entities/LineRounding.h"

#include <unicode/ucurr.h>

#include <string>

#include "model/entities/BLCurrency.h"

namespace brassline {

namespace {

// The minor units of ISO 4217 as the locale data has them; a code the data doesn't know
// keeps cents.
int currencyDigits(const BLCurrency& currency) {
    std::string code = currency.name().value_or("");
    if (code.size() != 3) {
        return currency.format().value_or("") == "nodecimals" ? 0 : 2;
    }
    UChar isoCode[4] = {static_cast<UChar>(code[0]), static_cast<UChar>(code[1]), static_cast<UChar>(code[2]), 0};
    UErrorCode status = U_ZERO_ERROR;
    int32_t digits = ucurr_getDefaultFractionDigits(isoCode, &status);
    return U_FAILURE(status) ? 2 : digits;
}

}  // namespace

Decimal roundByCurrency(const BLCurrency* currency, const Decimal& value) {
    if (currency == nullptr || value.isNaN()) {
        return value;
    }
    return value.rounded(currencyDigits(*currency));
}

Decimal roundPayable(const BLCurrency* currency, const Decimal& value, const Decimal& reference) {
    (void)reference;
    if (currency != nullptr && currency->name().value_or("") == "CHF" && !value.isNaN()) {
        // Five rappen: twenty steps to the franc.
        return (value * Decimal(20)).rounded(0) / Decimal(20);
    }
    return roundByCurrency(currency, value);
}

}  // namespace brassline
