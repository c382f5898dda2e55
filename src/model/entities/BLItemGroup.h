#pragma once

#include "model/entities/gen/BLItemGroup.h"

namespace brassline {

// A revenue group of lines, taxed through its tax group.
class BLItemGroup : public gen::BLItemGroup {
public:
    void awakeFromCreate() override;
    void setup() override;
    std::vector<std::string> usageKeys() const override { return {"costs"}; }
    bool canDelete() const override { return costs().empty() && importRules().empty(); }
};

}  // namespace brassline
