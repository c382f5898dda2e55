#pragma once

#include <string>
#include <vector>

#include "model/entities/gen/BLItem.h"

namespace brassline {

class BLCurrency;

// A line of a document's item tree. Its caches feed its parent's sums, so a reset climbs.
// Amounts answer 0 here; priced classes override them. Amount reads may store a missing
// quantity of 1, so they are not const.
class BLItem : public gen::BLItem {
public:
    static void setupClass(EntityDescription& entity);

    void resetCaches() override;

    // Class predicates, all on the exact entity: a catalog item is no cost here.
    static bool itemIsTitle(const BLContainer* item);
    static bool itemIsSectionEnd(const BLContainer* item);
    static bool itemIsContainer(const BLContainer* item);
    static bool itemIsCost(const BLContainer* item);
    // Walks the parent's children up to the item: an option opens the optional state, a
    // plain title ends it; an option itself is optional.
    static bool itemIsOptional(const BLContainer* item);
    // The item's parent is exactly a summary line.
    bool itemIsChildOfSummary() const;
    bool isOptional() const { return itemIsOptional(this); }
    // Entity names that may be dropped or inserted into this item.
    virtual std::vector<std::string> allowedChildren() const { return {}; }
    virtual bool isLeaf() const { return true; }

    // Line amounts. cost is the rounded line, costForGroup the unrounded one a group adds.
    virtual Decimal cost() { return {}; }
    virtual Decimal costForGroup() { return {}; }
    // cost through the document's discount, with or without the line's taxes by the mode.
    virtual Decimal net();
    virtual Decimal gross();
    Decimal costWithTaxes() { return gross(); }
    // 0 for an item inside an option section, cost otherwise.
    Decimal costForPage();
    // The line's price, quantity and discount as the line shows them (a group derives
    // them from its children); the stored attributes of a cost keep their own names.
    virtual Decimal lineUnitPrice() { return {}; }
    virtual Decimal lineQuantity() { return {}; }
    virtual Decimal lineDiscount() { return {}; }
    virtual Decimal margin() { return net(); }
    virtual Decimal totalDiscount() { return {}; }
    // The discount a row shows, q x p / 100 x d rounded plain to cents in any currency.
    virtual Decimal discountAmount() { return {}; }
    virtual Decimal totalWeight() { return {}; }

    // The items a summing line refers to (titles, subtotals, dynamic costs) and their sum.
    virtual std::vector<BLItem*> affectedItems() { return {}; }
    virtual Decimal sum();
    // Recomputes a plug-in's amount (dynamic costs); answers whether anything changed.
    virtual bool calculateDynamicValues(bool flash) {
        (void)flash;
        return false;
    }

    // Position numbers: "3", "4.2", "" for a line that carries none.
    std::string fullIndex() const;
    std::string fullIndexForDocument(const BLContainer* document) const;
    // 1-based position among the costs of `container`'s children; 0 when not among them.
    int64_t indexForDocument(const BLContainer* container) const;

    // The currency that rounds this line: the sendable's, none without a document.
    const BLCurrency* documentCurrency() const;
    // The document's discountFraction, 1 without a document.
    Decimal documentDiscountFraction() const;
    bool documentUsesGrossPrices() const;
    // The line's own taxes (for net and gross display); 0 on items without a rule.
    virtual Decimal lineTaxes() { return {}; }

    // Metrics: the share of the invoice that counts (a partial invoice's portion, else 1),
    // gross and net times that share rounded by the document currency, the net unit rate
    // at that share (2 digits, 0 without a quantity), and gross in the default currency.
    Decimal ratioForMetrics() const;
    virtual Decimal amountForMetrics();
    Decimal netAmountForMetrics();
    virtual Decimal grossAmountForMetrics() { return amountForMetrics(); }
    Decimal finalRate();
    Decimal costInNativeCurrency();
    // Re-prices the item from `from` into `to` (BLCurrency convertValue): a cost converts
    // its unit price, any other item passes the conversion to its item children. Nothing
    // happens without both currencies or when they are the same.
    virtual void convertFromCurrency(const BLCurrency* from, const BLCurrency* to);
    // Takes the values of `other` (a catalog item or a line of any document) as the user's
    // pick from the completion list; items that carry no values ignore it.
    virtual void takeAutoCompletionFrom(BLItem* other) { (void)other; }
    // Adds this item's time in seconds, or its count for lines without a time unit; items
    // without a quantity add nothing.
    virtual void collectDuration(int64_t& seconds) { (void)seconds; }
    virtual void collectQuantity(Decimal& quantity) { (void)quantity; }

protected:
    // The siblings of this item in order, self included; empty without a parent.
    std::vector<BLContainer*> parentChildren() const;
};

// Items only, in order: the children of `container` that are items.
std::vector<BLItem*> itemChildren(const BLContainer& container);

}  // namespace brassline
