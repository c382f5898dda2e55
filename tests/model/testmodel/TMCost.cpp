#include "testmodel/TMCost.h"

namespace brassline {

void TMCost::setupClass(EntityDescription& entity) {
    entity.registerDerivedProperty(
        "cost", [](const ManagedObject& object) -> Value { return Value(static_cast<const TMCost&>(object).cost()); });
    entity.registerDerivedProperty("costWithDiscount", [](const ManagedObject& object) -> Value {
        return Value(static_cast<const TMCost&>(object).cost() * Decimal(9) / Decimal(10));
    });
    entity.registerDependentKeys("cost", {"quantity", "unitPrice"});
    entity.registerDependentKeys("costWithDiscount", {"cost"});
}

Decimal TMCost::cost() const {
    if (std::optional<Value> cached = holdfastCacheValueForKey("cost")) {
        return cached->toDecimal();
    }
    Decimal result = quantity().value_or(Decimal()) * unitPrice().value_or(Decimal());
    const_cast<TMCost*>(this)->setHoldfastCacheValue(Value(result), "cost");
    return result;
}

void TMCost::setQuantity(std::optional<Decimal> value) {
    ++m_quantitySetterCalls;
    gen::TMCost::setQuantity(std::move(value));
    holdfastResetCacheValues();
}

}  // namespace brassline
