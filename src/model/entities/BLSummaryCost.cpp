#include "model/entities/BLSummaryCost.h"

#include "model/entities/LineRounding.h"

namespace brassline {

void BLSummaryCost::setupClass(EntityDescription& entity) {
    // The price is the children's sum whatever is stored; writing it changes nothing.
    entity.registerDerivedProperty(
        "unitPrice",
        [](const ManagedObject& o) -> Value {
            return Value(const_cast<BLSummaryCost&>(static_cast<const BLSummaryCost&>(o)).lineUnitPrice());
        },
        [](ManagedObject& o, const Value& value) { (void)o, (void)value; });
}

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
