#pragma once

#include <string>
#include <vector>

#include "model/entities/gen/BLSummaryCost.h"

namespace brassline {

// A line that sums the lines it holds: its unit price is their summed cost.
class BLSummaryCost : public gen::BLSummaryCost {
public:
    static void setupClass(EntityDescription& entity);

    void awakeFromCreate() override;
    bool isLeaf() const override { return false; }
    std::vector<std::string> allowedChildren() const override { return {"Cost", "Note"}; }

    // The children's summed cost; a stored price is ignored and setUnitPrice does nothing.
    Decimal lineUnitPrice() override;
    void setUnitPrice(std::optional<Decimal> value) override { (void)value; }
    // unitPrice x quantity rounded by the currency, then less the discount percentage of
    // that rounded value, which is not rounded again.
    Decimal cost() override;
    Decimal costForGroup() override { return cost(); }
    Decimal totalWeight() override;
    // After a line's completion: the display type, the closing subtotal flag and clones of
    // the other summary's children, appended below this one.
    void takeAutoCompletionFrom(BLItem* other) override;
    // After the line's rule, every child with another tax rule takes the same item group;
    // the children and then the summary re-derive their rules.
    void setItemGroup(brassline::BLItemGroup* value) override;
};

}  // namespace brassline
