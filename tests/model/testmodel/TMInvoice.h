#pragma once

#include "testmodel/gen/TMInvoice.h"

namespace brassline {

// An invoice whose total sums its lines through a collection operator.
class TMInvoice : public gen::TMInvoice {
public:
    static void setupClass(EntityDescription& entity);
    void awakeFromCreate() override;
    void setDiscount(std::optional<Decimal> value) override;
};

}  // namespace brassline
