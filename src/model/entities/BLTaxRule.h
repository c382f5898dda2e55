#pragma once

#include <optional>
#include <string>
#include <vector>

#include "core/Value.h"
#include "model/entities/BLTaxDetails.h"
#include "model/entities/gen/BLTaxRule.h"

namespace brassline {

class BLSendable;

// The taxes of one client group and tax group pair: up to three stacked slots, each with
// a mode (0 off, 1 on the base, 2 on base and tax so far, 3 on base and slot 1's tax), a
// name and a percentage. Slot 2 counts only while slot 1 is on, slot 3 while slot 2 is.
//
// Items use it through BLCost::taxes() (the tax of the line's own cost) and
// BLCost::collectTax() (the line's cost added to its rule's sum in a document).
class BLTaxRule : public gen::BLTaxRule {
public:
    static void setupClass(EntityDescription& entity);

    // Archived when its client group or its tax group is.
    bool isArchived() const override;
    std::vector<std::string> usageKeys() const override { return {"costs"}; }

    // Tax of a net amount; with `details` every slot that is on appends its record and the
    // slot taxes round to 2 digits, without it they stay exact. 0 when slot 1 is off.
    Decimal calculateTaxForAmount(const Decimal& amount, std::vector<BLTaxDetails>* details,
                                  const BLSendable* document) const;
    // Tax included in a gross amount, each slot rounded by the document's currency (2
    // digits without one); a negative percentage gives the negative of the positive one.
    Decimal calculateIncludedTaxForAmount(const Decimal& amount, std::vector<BLTaxDetails>* details,
                                          const BLSendable* document) const;
    // The total percentage (tax of 100, unrounded).
    Decimal totalPercentageForDocument(const BLSendable* document) const;

    // A sum of lines less the document's discount, rounded as payable in its currency.
    static Decimal amountAfterDiscount(const Decimal& amount, const BLSendable* document);
    // The tax on a sum of lines in `document`, in cents: after discount, included or on
    // top by the document's price mode; appends the slot records to `details` when given.
    Decimal taxForAmount(const Decimal& amount, const BLSendable* document,
                         std::vector<BLTaxDetails>* details = nullptr) const;

    std::string taxNames() const;
    std::string taxRates() const;
    std::string tableInfo() const;
    bool showTaxExemptions() const { return tax1modeValue() == 0; }
    // The EN 16931 VAT category code: "S" while taxed, else by the exemption code.
    std::string taxCategoryCode() const;
    static std::string taxCategoryCodeForExemption(const std::optional<std::string>& exemptionCode);
    // {"name", "value"} per VATEX record, last first; nothing when the file is unreadable.
    static std::optional<std::vector<Value::Dictionary>> taxExemptions();
    // Whether no line of an issued document uses the rule.
    bool canEditTax() const;

    // Changing a percentage or a mode re-derives the rules of the rule's lines.
    void setTax1mode(std::optional<int16_t> value) override;
    void setTax2mode(std::optional<int16_t> value) override;
    void setTax3mode(std::optional<int16_t> value) override;
    void setTax1value(std::optional<Decimal> value) override;
    void setTax2value(std::optional<Decimal> value) override;
    void setTax3value(std::optional<Decimal> value) override;

    // The rule with slot 1 named `code` at `percentage` (mode 1), made when missing.
    static BLTaxRule* taxRuleForPercentage(const Decimal& percentage, const std::string& code,
                                           ManagedObjectContext& context);
    // The tax matrix cell of a client group and a tax group; null when either is missing or
    // the pair has no rule.
    static BLTaxRule* matrixCell(const BLClientGroup* clientGroup, const BLTaxGroup* taxGroup);

private:
    void triggerCosts();
};

// The gross-price percentage step: the tax included in `amount` at `percentage`, rounded
// as payable in the document's currency with `amount` as reference; 0 for a not-a-number
// percentage. Fills `details` (amount, percentage, tax) when given.
Decimal decimalNumberCalculateIncludedPercentage(const Decimal& amount, const Decimal& percentage,
                                                 BLTaxDetails* details, const BLSendable* document);
// The net percentage step: x ÷ 100 × p, rounded to 2 digits when `details` is given and
// then written to it (amount, percentage, tax).
Decimal decimalNumberCalculatePercentage(const Decimal& amount, const Decimal& percentage, BLTaxDetails* details);
// `value` less or plus its percentage, rounded to 2 digits (the forms with a document).
Decimal decimalNumberByDeductingPercentage(const Decimal& value, const Decimal& percentage, const BLSendable* document);
Decimal decimalNumberByAddingPercentage(const Decimal& value, const Decimal& percentage, const BLSendable* document);

}  // namespace brassline
