#pragma once

#include "model/entities/gen/BLImportRule.h"

namespace brassline {

// A rule that files imported lines into an item group.
class BLImportRule : public gen::BLImportRule {
public:
    void setup() override;
};

}  // namespace brassline
