#pragma once

#include "model/entities/gen/BLFinancial.h"

namespace brassline {

// Money documents: payments and sendables. New ones are dated now.
class BLFinancial : public gen::BLFinancial {
public:
    static void setupClass(EntityDescription& entity);
    void setup() override;
};

}  // namespace brassline
