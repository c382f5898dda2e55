#pragma once

#include <optional>
#include <string>
#include <vector>

#include "model/entities/gen/BLGroup.h"

namespace brassline {

class BLCost;

// One line for several costs that share a tax rule. Its cost adds the children's
// unrounded amounts and rounds once to cents, so it can differ from the sum of its
// lines; price, quantity and discount are derived from the children.
class BLGroup : public gen::BLGroup {
public:
    static std::string tableCellIdentifier() { return "GroupEditor"; }
    bool isLeaf() const override { return false; }
    std::vector<std::string> allowedChildren() const override { return {"Cost"}; }

    // The children that are costs (a group holds nothing else that counts).
    static void setupClass(EntityDescription& entity);

    std::vector<BLCost*> costs() const;
    Decimal cost() override;
    Decimal costForGroup() override { return cost(); }
    Decimal lineUnitPrice() override;
    Decimal lineQuantity() override;
    Decimal lineDiscount() override;
    Decimal undiscountedAmount();
    // The discount the group's row shows: its undiscounted amount at its discount, in cents.
    Decimal discountAmount() override;
    // The one unit of the children while they share at most one price, else "".
    std::string unitText() const;
    Decimal totalWeight() override;
    Decimal totalDiscount() override;
    Decimal margin() override;
    Decimal lineTaxes() override;
    std::optional<Date> minimumDate() const;
    std::optional<Date> maximumDate() const;
    // The distinct non-empty notes of the children joined by `separator`.
    std::string collectNotes(const std::string& separator) const;
    void insertNote(const std::string& separator) { setNotes(collectNotes(separator)); }
    void invertQuantities();
};

}  // namespace brassline
