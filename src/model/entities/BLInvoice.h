#pragma once

#include "model/entities/gen/BLInvoice.h"

namespace brassline {

// An invoice: counted among a client's documents, holds payments while money is open.
class BLInvoice : public gen::BLInvoice {
public:
    void awakeFromCreate() override;
    void setup() override;
    BLBase* duplicate() override;
    int64_t addToDocumentsCount() const override { return 1; }
    std::vector<std::string> allowedDocuments() const override;
    bool allowsDocuments(const std::vector<BLDocument*>& candidates) const override;

    // Payments below the invoice (direct or deeper), oldest first.
    std::vector<BLPayment*> payments() const override;
    // Payments up to the end of the send day on an issued invoice, all on a draft.
    std::vector<BLPayment*> prePayments() const override;
    std::vector<BLPayment*> prePaymentsForDate(Date date) const;
    // costWithTaxes less the payments, cached; an open amount whose size as a 32-bit
    // float is below 0.06 counts as paid (0). Without payments costWithTaxes.
    Decimal balance() override;
    // costWithTaxes less the prepayments: later payments don't change a reprint.
    Decimal balanceForLayout() override;
    bool balanced() { return balance().isZeroAsFloat(); }
    bool canPay() { return !balance().isZeroAsFloat(); }

    // A payment's share of the tax: with one rule the tax included in its amount, with
    // several the payment's ratio of amountForMetrics applied to each rule's tax.
    Decimal taxOfPayment(const BLPayment& payment) override;
    // The metric sums less those of the issued partial invoices below.
    Decimal amountForMetrics() override;
    Decimal netAmountForMetrics() override;
    Decimal exportTaxesAmount() override;
    // Settled: the payments' amounts (net of their tax share without gross prices); both
    // less the issued partial invoices.
    Decimal costForDashboard() override;
    // `value` less the sum of `key` over the issued partial invoices below.
    Decimal subtractPartialInvoicesFromCost(const Decimal& value, std::string_view key) const;

    // A final invoice stays a draft while a partial invoice is out without lines, and
    // follows its own dateSent once it is balanced with a cost.
    bool isDraft() override;
    // Open, issued, unbalanced and dateDue before the end of today (local time).
    bool isDue();
    // Due and more whole calendar days since dateDue than "invoice.overdueInterval".
    bool isOverDue();
    std::optional<Date> dateOverdue() const;
    // The latest payment date once balanced or settled; nothing otherwise. Cached.
    std::optional<Date> datePaid();
    // The partial invoices among childInvoices.
    std::vector<BLInvoice*> partialInvoices() const;
    bool hasPartialInvoices() const override { return !partialInvoices().empty(); }
    bool canEditCurrency() const override;
    bool canSend() override;
    // Kept as a named list; nothing consults it and unlocking stays possible everywhere.
    static std::vector<std::string> cantUnlockCountries() { return {"de"}; }

    std::string label() override;
    std::string statusImage() override;
    std::string extraStatusImage() override { return recurringValue() ? "recurring" : ""; }
    std::string documentType() override;
    std::string entityNameForNumbering() const override { return "Invoice"; }
    std::string counterPreferenceKey() const override { return "prefsController.invoice.number"; }
    std::string numberResetModeKey() const override { return "prefsController.invoice.numberResetMode"; }
    std::string numberLastResetKey() const override { return "prefsController.invoice.numberLastReset"; }
    std::string mailPrefsKey() override;
    Decimal amount() override { return cost(); }
    bool isInvoice() const override { return true; }
    // The send plug-in's declared type first, else the stored one.
    int16_t currentDeliveryType() const override;
    // Leaves the SEPA queue before the mark is stored.
    void setCompleteMode(std::optional<int16_t> value) override;

protected:
    std::string statusKey(bool forDisplay) override;
};

// The same draft rules for estimates.
bool sendableAcceptsFollowUpOfProject(const std::vector<BLDocument*>& candidates);

}  // namespace brassline
