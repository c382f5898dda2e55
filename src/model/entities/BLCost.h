#pragma once

#include "model/entities/gen/BLCost.h"

namespace brassline {

class BLCatalogItem;
class BLClientGroup;
class BLTaxGroup;
class BLTaxRule;
struct TaxCollection;

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
    void convertFromCurrency(const BLCurrency* from, const BLCurrency* to) override;
    // The discount of the line, rounded to cents whatever the currency.
    Decimal discountAmount();
    Decimal totalDiscount() override;
    Decimal totalWeight() override;
    Decimal margin() override;
    Decimal lineTaxes() override { return taxesForCost(cost()); }
    // The own cost price, else the catalog item's (same currency), else the source's.
    std::optional<Decimal> effectiveCostPrice();
    void incrementQuantity();
    void invertQuantities();

    // Moving a line re-derives, unless syncing: the rate of a time unit, the item group of
    // the container, the tax rule.
    void setParent(brassline::BLContainer* value) override;
    // A missing or zero price on a line whose unit, as typed, is a time unit takes the
    // document's rate ("h" does, "H" doesn't).
    void updateRateIfNeeded();
    // Inside a summary whose tax rule differs, the line takes the summary's item group.
    void updateItemGroupIfNeeded();
    static std::vector<std::string> timeUnits() { return {"h", "std", "std.", "u"}; }
    // The lower-cased unit is a time unit.
    bool hasTimeUnit() const;

    // Money setters store, then reset the sums above unless syncing.
    void setQuantity(std::optional<Decimal> value) override;
    void setUnitPrice(std::optional<Decimal> value) override;
    void setDiscount(std::optional<Decimal> value) override;

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
