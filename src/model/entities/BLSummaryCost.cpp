#include "model/entities/BLSummaryCost.h"

#include "model/entities/LineRounding.h"

namespace brassline {

void BLSummaryCost::awakeFromCreate() {
    BLCost::awakeFromCreate();
    setPrimitiveSubtotal(true);
    setPrimitiveDisplayType(int16_t{1});
}

Decimal BLSummaryCost::lineUnitPrice() {
    Decimal total;
    for (BLItem* child : itemChildren(*this)) {
        total += child->cost();
    }
    return total;
}

Decimal BLSummaryCost::cost() {
    Decimal rounded = roundByCurrency(documentCurrency(), lineUnitPrice() * lineQuantity());
    if (std::optional<Decimal> percent = discount()) {
        return rounded - (rounded / Decimal::hundred() * *percent);
    }
    return rounded;
}

Decimal BLSummaryCost::totalWeight() {
    Decimal total;
    for (BLItem* child : itemChildren(*this)) {
        total += child->totalWeight();
    }
    return total;
}

}  // namespace brassline
