#pragma once

#include "model/entities/gen/BLCost.h"

namespace brassline {

class BLCatalogItem;
class BLClientGroup;
class BLTaxGroup;
class BLTaxRule;
struct TaxCollection;

// Posted with the completed line as object once takeAutoCompletionFrom has run.
inline constexpr const char* kDidAutoCompleteNotification = "BLDidAutoComplete";

// A priced line: quantity, unit price, tax rule and item group.
class BLCost : public gen::BLCost {
public:
    using BLBase::cloneWithEntityReplacements;
    static void setupClass(EntityDescription& entity);

    // The catalog item this line was made from, up the derivates chain.
    BLCatalogItem* catalogItem();
    void awakeFromCreate() override;
    void setup() override;
    void fixMissingValues() override;
    bool canDelete() const override;
    BLBase* cloneWithEntityReplacements(const EntityReplacements& replacements,
                                        const std::vector<std::string>& skip) override;
    void hasBeenClonedFrom(BLBase* source) override;

    // Line arithmetic: p unit price, q quantity (a missing one reads 1 and is stored),
    // d discount percent. costForGroup = q*p - q*p/100*d unrounded; cost rounds it by
    // the document's currency (unrounded without one).
    Decimal lineUnitPrice() override { return unitPrice().value_or(Decimal()); }
    Decimal lineQuantity() override;
    Decimal lineDiscount() override { return discount().value_or(Decimal()); }
    Decimal undiscountedAmount() { return lineUnitPrice() * lineQuantity(); }
    Decimal costForGroup() override;
    Decimal cost() override;
    // A line's metric amounts are its cost and costWithTaxes at the invoice's share, unrounded.
    Decimal amountForMetrics() override { return cost() * ratioForMetrics(); }
    Decimal grossAmountForMetrics() override { return costWithTaxes() * ratioForMetrics(); }
    void convertFromCurrency(const BLCurrency* from, const BLCurrency* to) override;
    // The discount of the line, rounded to cents whatever the currency.
    Decimal discountAmount() override;
    Decimal totalDiscount() override;
    Decimal totalWeight() override;
    Decimal margin() override;
    Decimal lineTaxes() override { return taxesForCost(cost()); }
    // The own cost price, else the catalog item's (same currency), else the source's.
    std::optional<Decimal> effectiveCostPrice();
    void incrementQuantity();
    void invertQuantities();

    // Completion from a catalog item or another line: name, notes, image, the price (in
    // this document's price mode, converted by the default tax of the source's item
    // group where the modes differ), weight, a catalog item's default quantity, unit and
    // item group. A completion from a catalog item makes it the line's source.
    void takeAutoCompletionFrom(BLItem* other) override;
    // Repeats the completion from the line's catalog item; false when it has none.
    bool updateFromSource() override;

    // Moving a line re-derives, unless syncing: the rate of a time unit, the item group of
    // the container, the tax rule.
    void setParent(brassline::BLContainer* value) override;
    // A missing or zero price on a line whose unit, as typed, is a time unit takes the
    // document's rate ("h" does, "H" doesn't).
    void updateRateIfNeeded();
    // Inside a summary whose tax rule differs, the line takes the summary's item group.
    void updateItemGroupIfNeeded();
    // "h", "std", "std.", "u", after the lower-cased preference "timeImporter.unit" when
    // the document's store sets one.
    std::vector<std::string> timeUnits() const;
    // The lower-cased unit is a time unit.
    bool hasTimeUnit() const;
    // The unit's UN/ECE recommendation 20 code: "HUR" for a time unit, "C62" otherwise.
    std::string quantityUnitCode() const { return hasTimeUnit() ? "HUR" : "C62"; }
    // A time line adds its quantity in seconds (through a 32-bit float, truncated); any
    // other line adds its quantity, so durations and counts stay apart.
    void collectDuration(int64_t& seconds) override;
    void collectQuantity(Decimal& quantity) override;

    // The legacy price: the value through a 32-bit float, rounded plainly to 4 digits.
    void setRate(float value);
    Decimal rate() { return lineUnitPrice(); }
    // Typed text read by the number transformer (a discount may carry "%"); text that
    // doesn't read as a number changes nothing and answers false.
    bool setFastQuantity(std::string_view text);
    bool setFastDiscount(std::string_view text);
    // The catalog item's cost price, else the line's own; the setter writes to the catalog
    // item when the line has one.
    std::optional<Decimal> catalogCostPrice();
    void setCatalogCostPrice(std::optional<Decimal> value);

    // Money setters store, then reset the sums above unless syncing.
    void setQuantity(std::optional<Decimal> value) override;
    void setUnitPrice(std::optional<Decimal> value) override;
    void setDiscount(std::optional<Decimal> value) override;
    // A new unit may make the line a time line that takes the document's rate.
    void setUnit(std::optional<std::string> value) override;
    // No-op for the same group. Unless syncing the rule follows; inside a group or summary
    // the siblings with another rule take the same item group, and the container updates.
    void setItemGroup(brassline::BLItemGroup* value) override;

    // Taxes. The line's rule is the matrix cell of its client's group and its item group's
    // tax group. updateTaxRule leaves issued documents and lines without a parent alone
    // and registers no undo; the internal step does the lookup (not while syncing).
    void updateTaxRule();
    void updateTaxRuleInternal();
    // A default item group for a line without one; a rule that has a uid stays.
    void updateTaxRuleIfMissing();
    // The cell for another tax group, stored as the line's rule.
    BLTaxRule* taxRuleForTaxGroup(BLTaxGroup* taxGroup);
    // The line's own tax when its cost is `lineCost` (0 without a rule): what net and gross
    // show. The document's tax comes from the summed lines per rule instead.
    Decimal taxesForCost(const Decimal& lineCost) const;
    // Adds `lineCost` to the sum of the line's rule; no rule (or one without uid): nothing.
    void collectTaxForCost(const Decimal& lineCost, TaxCollection& collection) const;
    BLClientGroup* taxClientGroup() const;
};

}  // namespace brassline
