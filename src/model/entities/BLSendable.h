#pragma once

#include <map>
#include <string>

#include "model/entities/gen/BLSendable.h"

namespace brassline {

class BLItem;
class BLPayment;
struct TaxCollection;
class BLProject;
class BLTranscript;

// A document that is issued: draft while dateSent is absent, issued once it is set.
class BLSendable : public gen::BLSendable {
public:
    using BLBase::cloneWithEntityReplacements;
    static void setupClass(EntityDescription& entity);
    // The key-value names of the totals below ("taxBalance", "costInNativeCurrency", ...).
    static void registerTotalKeys(EntityDescription& entity);
    // The key-value names of the states and words ("status", "displayStatus", "isDue", ...).
    static void registerStateKeys(EntityDescription& entity);

    // The project above (the stored text of the same name is the legacy project name).
    BLProject* project() const { return BLDocument::project(); }
    std::optional<std::string> legacyProjectName() const { return gen::BLSendable::project(); }
    bool isSent() const override { return dateSent().has_value(); }
    bool canDelete() const override { return BLDocument::canDelete() && !dateSent(); }
    // The lines whose "cost" is not 0.
    std::vector<BLContainer*> costsArray() const override;

    // Life cycle. dateSent is the only draft/issued flag; paid, due, settled and canceled
    // are derived when read, from completeMode, the balance and the clock.
    virtual bool isDraft() { return !dateSent(); }
    bool isLocked() const override { return dateSent().has_value(); }
    bool canUnlock() const { return dateSent().has_value(); }
    bool canEditItems() { return isDraft(); }
    bool cantChangeClient() { return !isDraft(); }
    bool hasDocument() const override { return true; }
    // No other object of the same entity has this name (true for a nameless one).
    bool numberIsUnique() const;
    // dateSent, else dateCreation; tableDate likewise, nothing when neither is set.
    std::optional<Date> activityDate() const;
    std::optional<Date> tableDate() const { return activityDate(); }
    bool inInvoice() const { return entityName().find("Invoice") != std::string::npos; }
    // Of dateSent in the current time zone, "2024" and "03"; "" for a draft.
    std::string year() const;
    std::string month() const;
    // completeMode as the closing mark: 0 open, 1 settled (accepted), 2 canceled (declined).
    virtual int16_t state() const { return completeModeValue(); }
    void setState(int16_t value) { setCompleteMode(value); }
    // The plain key ("paid", "draft", "sent", "settled", "canceled", "accepted",
    // "declined") and the localised word of the list; the two test in different orders.
    std::string status() { return statusKey(false); }
    std::string displayStatus();
    // The list icon's name: "creditnote", "completed", "cancelled", "paid", "overdue",
    // "due", or "" for a plain one; extraStatusImage "recurring" or "".
    virtual std::string statusImage() { return ""; }
    virtual std::string extraStatusImage() { return ""; }
    // How the document last left: 0 none, 1 mail, 2 print, 3 saved, 4 network.
    virtual int16_t currentDeliveryType() const { return deliveryTypeValue(); }

    // The words of the document. label is untranslated for plain sendables ("Sendable").
    virtual std::string label() { return "Sendable"; }
    virtual std::string documentType() { return label(); }
    virtual std::string dueLabel() const { return "due date"; }
    // Label, number, subject and the draft mark: "Invoice RE-1 - Roof (draft)".
    std::string displayName() const override;
    // "<client> - <displayName>", or the displayName alone without a client.
    std::string fullDisplayName() const override;
    std::string nameOrDraft() const;
    std::string sendTitle() const;
    // dateDue in the medium date style of the formatting locale; "" without one.
    std::string dateDueAsString() const;
    std::string dateDueAsDays() const;

    // The constants of the kind: numbering keys, mail preferences, capabilities.
    virtual std::string entityNameForNumbering() const { return entityName(); }
    virtual std::string counterPreferenceKey() const { return "prefsController.dummy.number"; }
    virtual std::string numberResetModeKey() const { return "prefsController.estimate.numberResetMode"; }
    virtual std::string numberLastResetKey() const { return "prefsController.estimate.numberLastReset"; }
    virtual std::string mailPrefsKey() { return "sendable"; }
    virtual Decimal amount() { return {}; }
    virtual bool isInvoice() const { return false; }
    virtual bool canAccept() const { return false; }
    virtual bool canSend() { return true; }
    virtual bool canEditCurrency() const { return true; }
    virtual bool hasPartialInvoices() const { return false; }
    virtual bool isPartialInvoice() const { return false; }
    bool useLead() const { return true; }

    // Back to draft with the number kept: leaves the SEPA queue, records a "Unlocked"
    // transcript holding the current storage, clears dateSent, dateDue, deliveryType and
    // storage. Nothing on a draft; answers the transcript.
    BLTranscript* unlockDocument();
    // Issue flag setter: a nil date drops the storage (unless syncing), then "SentChanged"
    // is posted on the next run-loop turn and the caches are reset.
    void setDateSent(std::optional<Date> value) override;

    void setParentDocument(brassline::BLDocument* value) override;
    // Not while syncing: without a (live) client the contact goes; otherwise a contact that
    // is not the client or one of its contacts becomes the client, and a missing currency
    // is the client's.
    void validateContacts() override;
    // Stores the frozen output; a new one (outside a sync) writes the filing copy.
    void setStorage(brassline::BLSendableStorage* value) override;
    void setup() override;
    void fixMissingValues() override;
    BLBase* clone() override;
    BLBase* cloneWithEntityReplacements(const EntityReplacements& replacements,
                                        const std::vector<std::string>& skip) override;

    // Totals. Amounts are Decimal; cost, costWithTaxes and margin are kept in the
    // per-object cache until resetCaches, which every money setter below reaches.
    // (100 - discount) / 100, an absent discount counting 0.
    Decimal discountFraction() const;
    // The items that count in the total: all children (an estimate drops its options).
    virtual std::vector<BLItem*> itemsForTotal() const;
    // The net sum with the document discount (and in gross mode less the tax).
    virtual Decimal cost();
    Decimal costWithoutTaxes() { return cost(); }
    Decimal costWithoutOptions() { return cost(); }
    // The tax of the document's tax table: per rule on the summed lines, not cached.
    Decimal tax();
    // The lines of itemsForTotal summed per tax rule (a group under its first line's rule).
    TaxCollection collectTaxes() const;
    // The tax table from the lines' sums per rule; a partial invoice takes its share here.
    virtual TaxCollection createTaxDictionary(TaxCollection lines) const;
    // The payable sum, rounded by the currency's payable rule (CHF to 0.05).
    virtual Decimal costWithTaxes();
    Decimal costWithoutOptionsWithTaxes() { return costWithTaxes(); }
    // The lines' summed cost before the document discount; the discount on it in cents.
    Decimal costBeforeDiscount();
    Decimal discountAmount();
    // The lines' unrounded discounts.
    Decimal totalDiscount();
    Decimal margin();
    Decimal totalWeight();
    // Set by partial invoices; 0 here.
    virtual Decimal partialInvoicePercentage() { return {}; }
    Decimal partialInvoiceDeductionPercentage() { return Decimal::hundred() - partialInvoicePercentage(); }
    // Issued after `date`, or not yet issued.
    bool sendableDateAfter(Date date) const;
    // The open amount. On a sendable without payments it is costWithTaxes.
    virtual Decimal balance() { return costWithTaxes(); }
    virtual Decimal balanceForLayout() { return costWithTaxes(); }
    virtual std::vector<BLPayment*> payments() const { return {}; }
    virtual std::vector<BLPayment*> prePayments() const { return {}; }
    Decimal prepaidAmount() { return costWithTaxes() - balance(); }
    // A payment's share of this document's tax and its amount without it: nothing here.
    virtual Decimal taxOfPayment(const BLPayment& payment) {
        (void)payment;
        return {};
    }
    Decimal balanceForFollowUp() { return costWithTaxes(); }
    // costWithTaxes less each prepayment in turn; tax and cost less the payments' shares
    // (tax: prepayments only, net: all payments). No tolerance applies.
    Decimal balanceAtSendDate();
    Decimal taxBalance();
    Decimal netBalance();
    // Open amounts per currency name for the clients view: an issued open invoice adds its
    // balance; a draft with partial invoices hands the question to them.
    virtual void collectBalance(std::map<std::string, Decimal>& balances);
    // Not draft and open: adds costInNativeCurrency under "value" and asks the documents below.
    void collectBalanceInNativeCurrency(std::map<std::string, Decimal>& balances);

    // Metrics. amountForMetrics is costWithTaxes; the net, gross and tax amounts count
    // only when includeInDashboard; an invoice deducts its issued partial invoices from
    // amountForMetrics and netAmountForMetrics.
    virtual bool includeInDashboard() const { return true; }
    virtual Decimal amountForMetrics() { return costWithTaxes(); }
    virtual Decimal netAmountForMetrics() { return includeInDashboard() ? cost() : Decimal(); }
    Decimal grossAmountForMetrics() { return includeInDashboard() ? costWithTaxes() : Decimal(); }
    Decimal taxAmountForMetrics() {
        return includeInDashboard() ? amountForMetrics() - netAmountForMetrics() : Decimal();
    }
    virtual Decimal exportTaxesAmount() { return tax(); }
    // The share of the sums that metrics count: 1, a partial invoice's portion.
    virtual Decimal ratioForMetrics() const { return Decimal(1); }
    // The payable sum that cash-discount amounts start from: costWithTaxes on invoices and
    // estimates, 0 on other documents.
    virtual Decimal costForCashDiscount();

    // Sums in the default currency, through the currency's conversion (unchanged without a
    // currency or in the default one).
    Decimal convertToDefaultCurrency(const Decimal& value);
    Decimal balanceInNativeCurrency() { return convertToDefaultCurrency(balance()); }
    Decimal netBalanceInNativeCurrency() { return convertToDefaultCurrency(netBalance()); }
    Decimal taxInNativeCurrency() { return convertToDefaultCurrency(tax()); }
    Decimal costInNativeCurrency() { return convertToDefaultCurrency(amountForMetrics()); }
    Decimal netCostInNativeCurrency() { return convertToDefaultCurrency(netAmountForMetrics()); }
    Decimal taxesInNativeCurrency() { return convertToDefaultCurrency(taxAmountForMetrics()); }
    // The dashboard's figure: costWithTaxes or cost by the setting "dashboardUseGrossPrices",
    // in the default currency. A settled invoice counts what its payments brought in.
    virtual Decimal costForDashboard();
    Decimal balanceForDashboard() { return balanceInNativeCurrency(); }
    // balance as the two-digit amount text of the formatting locale, without currency.
    std::string balanceWithoutCurrency();
    // balance as machine-readable decimal text ("1234.5").
    std::string amountDecimal();
    // Money rounding of this document: the line and the payable rule of its currency.
    Decimal roundCost(const Decimal& value, const Decimal& reference) const;
    // value less the percentage of it, the percentage rounded to cents.
    static Decimal deductingPercentage(const Decimal& value, const Decimal& percent);

    void resetCaches() override;
    void setDiscount(std::optional<Decimal> value) override;
    void setUseGrossPrices(std::optional<bool> value) override;
    // Re-prices every line from the old currency into the new one, as one undoable step,
    // and tells the documents above that the amounts changed. While syncing or for nil it
    // only stores; from no currency there is nothing to convert.
    void setCurrency(brassline::BLCurrency* value) override;
    void setChilds(const std::vector<ManagedObject*>& values) override;

protected:
    // The status key; the display form tests isDraft first (an invoice's order differs).
    virtual std::string statusKey(bool forDisplay);
    // A preference label (for example "invoice.label"), translated for the client's
    // language when a translation is known; the localised fallback word when the
    // preference is empty.
    std::string preferredLabel(std::string_view prefKey, std::string_view fallback);
    // The sum of cost over itemsForTotal.
    Decimal itemsCost() const;
    // A cached decimal of this object, or nothing.
    std::optional<Decimal> cachedDecimal(std::string_view key) const;
    void cacheDecimal(const Decimal& value, std::string_view key);

    // The duplicate of invoices and estimates: a fresh draft beside the original.
    BLBase* duplicateAsDraft(const std::vector<std::string>& skip);
};

}  // namespace brassline
