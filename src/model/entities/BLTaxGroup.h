#pragma once

#include "model/entities/gen/BLTaxGroup.h"

namespace brassline {

// A group of item groups taxed alike; one tax rule per client group.
class BLTaxGroup : public gen::BLTaxGroup {
public:
    void awakeFromCreate() override;
    void setup() override;
    BLBase* duplicate() override;
};

}  // namespace brassline
