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
    // A price converted between the price modes by the default client group's rule for
    // this group's tax group, rounded up to cents: plus its tax, or less the tax it
    // includes. A missing value answers 0; without a rule the value is unchanged.
    Decimal addDefaultTaxTo(const std::optional<Decimal>& value) const;
    Decimal subtractDefaultTaxFrom(const std::optional<Decimal>& value) const;
};

}  // namespace brassline
