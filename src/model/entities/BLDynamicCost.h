#pragma once

#include <vector>

#include "model/entities/gen/BLDynamicCost.h"

namespace brassline {

// A line whose amount a plug-in computes from the costs above it. The amount is stored;
// the plug-in runs through ModelHooks::runDynamicCost and is skipped while that is empty.
class BLDynamicCost : public gen::BLDynamicCost {
public:
    enum RangeType : int16_t { LastItem = 0, ItemsAbove = 1, ItemsFromLastTitle = 2 };
    static constexpr const char* kDefaultPluginIdentifier = "com.orvane.DynamicPercentage-";

    static void setupClass(EntityDescription& entity);

    void awakeFromFetch() override;
    // The base is the sum of the affected items' cost as they stand now, so a line
    // deleted or changed above counts at once, not at the next recalculation.
    Decimal lineUnitPrice() override { return sum(); }
    // The stored amount, 0 when absent.
    Decimal cost() override { return gen::BLDynamicCost::primitiveCost().value_or(Decimal()); }
    Decimal costForGroup() override { return cost(); }
    // Stores only a different value.
    void setCost(std::optional<Decimal> value) override;
    // The costs above this line that rangeType picks.
    std::vector<BLItem*> affectedItems() override;
    // All affected items share this line's tax rule.
    bool affectedItemsValid();
    // Recomputes unit price and amount; returns at once when called while running.
    // Answers whether anything changed.
    bool calculateDynamicValues(bool flash) override;
    bool calculateDynamicValues() { return calculateDynamicValues(true); }

    void setQuantity(std::optional<Decimal> value) override;
    void setRangeType(std::optional<int16_t> value) override;
    void setPluginIdentifier(std::optional<std::string> value) override;

private:
    bool m_blockCalculations = false;
};

}  // namespace brassline
