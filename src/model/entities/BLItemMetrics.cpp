#include "model/entities/BLCurrency.h"
#include "model/entities/BLInvoice.h"
#include "model/entities/BLItem.h"

namespace brassline {

namespace {

Decimal roundedByCurrency(const BLCurrency* currency, const Decimal& value) {
    return currency != nullptr ? currency->roundCost(value) : value;
}

}  // namespace

Decimal BLItem::ratioForMetrics() const {
    const BLInvoice* invoice = invoiceForMetrics();
    return invoice != nullptr ? invoice->ratioForMetrics() : Decimal(1);
}

Decimal BLItem::amountForMetrics() {
    return roundedByCurrency(documentCurrency(), gross() * ratioForMetrics());
}

Decimal BLItem::netAmountForMetrics() {
    return roundedByCurrency(documentCurrency(), net() * ratioForMetrics());
}

Decimal BLItem::finalRate() {
    Decimal quantity = lineQuantity();
    if (quantity == Decimal()) {
        return {};
    }
    return (net() * ratioForMetrics() / quantity).rounded(2);
}

Decimal BLItem::costInNativeCurrency() {
    // The conversion reads the converter's rates; it doesn't change the currency.
    auto* currency = const_cast<BLCurrency*>(documentCurrency());
    return currency != nullptr ? currency->convertValueToDefaultCurrency(gross()) : gross();
}

}  // namespace brassline
