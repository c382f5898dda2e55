#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "model/entities/gen/BLPartialInvoice.h"

namespace brassline {

// A portion text made ready for evaluation: trimmed, a decimal comma read as a point,
// percent signs dropped ("33,3 %" becomes "33.3").
std::string stringReadyToBeCalculated(std::string_view text);
// Whether a portion's result stands as a share of the whole rather than a percentage: the
// text divides ("1/3") and the result is at most 1 in size ("100/4" is 25 percent).
bool calulatesAsFraction(std::string_view text, const Decimal& result);
// The share a portion text stands for: "50" is 0.5, "1/3" one third. The script host
// evaluates it once installed (hook calculatePortion), plain decimal arithmetic before.
// Nothing for empty, malformed or non-numeric text, and for a division by zero.
std::optional<Decimal> calculatedValue(std::string_view text);

// A part of an invoice's amount, invoiced on its own. Until it has items of its own (a
// draft) it computes everything from the final invoice above, scaled by its portion.
class BLPartialInvoice : public gen::BLPartialInvoice {
public:
    BLBase* duplicate() override;

    // The parent document when it is an invoice, else null.
    BLInvoice* finalInvoice() const;
    // calculatedValue of partialPortion.
    std::optional<Decimal> portionValue() const { return calculatedValue(partialPortion().value_or("")); }
    // 100 - 100 x the portion's value: the share deducted from the whole; 100 when the
    // portion can't be computed.
    Decimal partialInvoicePercentage() override;

    // The final invoice's items while this has none of its own.
    std::vector<BLItem*> itemsForTotal() const override;
    // Each rule's sum scaled by the portion (0 when it can't be computed), on the raw sum:
    // the discount is applied afterwards with this document's own. Tax stays per rule.
    TaxCollection createTaxDictionary(TaxCollection lines) const override;
    // A draft: the invoice's cost (costWithTaxes, then rounded as payable) less
    // partialInvoicePercentage. With own items: the sendable's cost, in net mode the sum
    // of its tax table's net; costWithTaxes the payable sum of the table's gross.
    Decimal cost() override;
    Decimal costWithTaxes() override;
    // 0 once the final invoice is issued (its sums then stand alone), the portion before.
    Decimal ratioForMetrics() const override;
    Decimal costForCashDiscount() override { return {}; }

private:
    // The table's amounts after this document's discount, and its taxes, per rule.
    Decimal tableNet();
    Decimal tableGross();
    // Payable rounding in the final invoice's currency, which a partial invoice always uses.
    Decimal roundInInvoiceCurrency(const Decimal& value) const;
};

}  // namespace brassline
