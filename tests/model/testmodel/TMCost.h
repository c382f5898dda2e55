#pragma once

#include "testmodel/gen/TMCost.h"

namespace brassline {

// A line with a derived cost (quantity × unit price, absent parts as 0) that depends on
// both stored values, and a quantity setter with a side effect.
class TMCost : public gen::TMCost {
public:
    static void setupClass(EntityDescription& entity);

    Decimal cost() const;
    // Stores, then drops the cached cost: the side effect hand-written setters carry.
    void setQuantity(std::optional<Decimal> value) override;
    int quantitySetterCalls() const { return m_quantitySetterCalls; }

private:
    int m_quantitySetterCalls = 0;
};

}  // namespace brassline
