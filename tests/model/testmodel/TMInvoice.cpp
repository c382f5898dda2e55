#include "testmodel/TMInvoice.h"

namespace brassline {

void TMInvoice::setupClass(EntityDescription& entity) {
    entity.registerDerivedProperty(
        "total", [](const ManagedObject& object) -> Value { return object.valueForKeyPath("childs.@sum.cost"); });
}

void TMInvoice::awakeFromCreate() {
    TMBase::awakeFromCreate();
    setPrimitiveRecurringMode(3);
}

void TMInvoice::setDiscount(std::optional<Decimal> value) {
    // Discounts above 100 % make no sense: they are capped where they enter.
    if (value && *value > Decimal(100)) {
        value = Decimal(100);
    }
    gen::TMInvoice::setDiscount(std::move(value));
}

}  // namespace brassline
