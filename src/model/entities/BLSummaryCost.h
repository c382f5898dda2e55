#pragma once

#include "model/entities/gen/BLSummaryCost.h"

namespace brassline {

// A line that sums the lines it holds.
class BLSummaryCost : public gen::BLSummaryCost {
public:
    void awakeFromCreate() override;
};

}  // namespace brassline
