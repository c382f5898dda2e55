// The open amount of an invoice against its payments.
#include <algorithm>
#include <cmath>

#include "model/entities/BLInvoice.h"
#include "model/entities/BLPayment.h"
#include "model/entities/BLTaxDetails.h"
#include "model/entities/BLTaxRule.h"
#include "model/entities/ModelHooks.h"
#include "model/entities/ModelStrings.h"

namespace brassline {

namespace {

// Fully paid below this, in any currency: the tolerance is fixed, not scaled.
constexpr double kBalanceTolerance = 0.06;

double sortDate(const BLPayment* payment) {
    std::optional<Date> date = payment->dateCreation();
    return date ? date->timeIntervalSinceReferenceDate() : 0.0;
}

Decimal sumOfAmounts(const std::vector<BLPayment*>& payments) {
    Decimal total;
    for (const BLPayment* payment : payments) {
        total += payment->amount().value_or(Decimal());
    }
    return total;
}

}  // namespace

std::vector<BLPayment*> BLInvoice::payments() const {
    std::vector<BLPayment*> result;
    for (BLDocument* document : collectDocumentsWithEntityName("Payment")) {
        result.push_back(static_cast<BLPayment*>(document));
    }
    std::stable_sort(result.begin(), result.end(),
                     [](const BLPayment* a, const BLPayment* b) { return sortDate(a) < sortDate(b); });
    return result;
}

std::vector<BLPayment*> BLInvoice::prePaymentsForDate(Date date) const {
    double end = date.dayEnd().timeIntervalSinceReferenceDate();
    std::vector<BLPayment*> result;
    for (BLPayment* payment : payments()) {
        std::optional<Date> made = payment->dateCreation();
        if (made && made->timeIntervalSinceReferenceDate() <= end) {
            result.push_back(payment);
        }
    }
    return result;
}

std::vector<BLPayment*> BLInvoice::prePayments() const {
    return dateSent() ? prePaymentsForDate(*dateSent()) : payments();
}

Decimal BLInvoice::balance() {
    if (std::optional<Decimal> cached = cachedDecimal("balance")) {
        return *cached;
    }
    std::vector<BLPayment*> received = payments();
    Decimal result = costWithTaxes();
    if (!received.empty()) {
        Decimal paid = sumOfAmounts(received);
        if (!paid.isNaN()) {
            result = result - paid;
            // Read through a 32-bit float on purpose: the float nearest 0.06 lies just
            // below the double 0.06, so a difference of exactly 0.06 counts as paid.
            auto size = static_cast<double>(std::fabs(result.toFloat()));
            if (size < kBalanceTolerance) {
                result = Decimal();
            }
        }
    }
    cacheDecimal(result, "balance");
    return result;
}

Decimal BLInvoice::balanceForLayout() {
    return costWithTaxes() - sumOfAmounts(prePayments());
}

Decimal BLInvoice::taxOfPayment(const BLPayment& payment) {
    const Decimal whole = amountForMetrics();
    if (whole.toFloat() == 0.0F) {
        return {};
    }
    const Decimal paid = payment.amount().value_or(Decimal());
    TaxCollection table = collectTaxes();
    if (table.entries.size() == 1) {
        // One rule: the payment is a gross amount of that rule, so its tax is the one
        // included, without the invoice's currency step (tax of a payment is in cents).
        const BLTaxRule* rule = table.entries.front().rule;
        return rule != nullptr ? rule->calculateIncludedTaxForAmount(paid, nullptr, nullptr) : Decimal();
    }
    const Decimal ratio = (paid / whole).validNumber();
    Decimal share;
    for (const TaxCollection::Entry& entry : table.entries) {
        if (entry.rule != nullptr) {
            share += (entry.rule->taxForAmount(entry.amount, this) * ratio).fixedValue();
        }
    }
    return share;
}

Decimal BLInvoice::subtractPartialInvoicesFromCost(const Decimal& value, std::string_view key) const {
    Decimal result = value;
    for (BLDocument* document : documents()) {
        if (document->isKindOfEntity("PartialInvoice") && static_cast<BLInvoice*>(document)->dateSent()) {
            result = result - document->valueForKey(key).toDecimal().validNumber();
        }
    }
    return result;
}

Decimal BLInvoice::amountForMetrics() {
    return subtractPartialInvoicesFromCost(BLSendable::amountForMetrics(), "amountForMetrics");
}

Decimal BLInvoice::netAmountForMetrics() {
    return subtractPartialInvoicesFromCost(BLSendable::netAmountForMetrics(), "netAmountForMetrics");
}

Decimal BLInvoice::exportTaxesAmount() {
    return subtractPartialInvoicesFromCost(BLSendable::exportTaxesAmount(), "exportTaxesAmount");
}

Decimal BLInvoice::costForDashboard() {
    if (completeModeValue() != 1) {
        return subtractPartialInvoicesFromCost(BLSendable::costForDashboard(), "costForDashboard");
    }
    // A settled invoice may have been closed short of its total: what came in counts.
    const bool gross = userDefaultIsOn(kDashboardUseGrossPricesDefault);
    Decimal received;
    for (BLPayment* payment : payments()) {
        Decimal amount = payment->amount().value_or(Decimal());
        received = received + (gross ? amount : amount - taxOfPayment(*payment));
    }
    return subtractPartialInvoicesFromCost(convertToDefaultCurrency(received), "costForDashboard");
}

}  // namespace brassline
