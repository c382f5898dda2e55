#pragma once

#include "model/entities/gen/BLTaxRule.h"

namespace brassline {

// The taxes of one client group and tax group pair.
class BLTaxRule : public gen::BLTaxRule {
public:
    // Archived when its client group or its tax group is.
    bool isArchived() const override;
    std::vector<std::string> usageKeys() const override { return {"costs"}; }
};

}  // namespace brassline
