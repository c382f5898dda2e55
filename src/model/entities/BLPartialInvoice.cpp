#include "model/entities/BLPartialInvoice.h"

#include <algorithm>

#include "core/DecimalFormula.h"
#include "core/Log.h"
#include "model/entities/BLCurrency.h"
#include "model/entities/BLItem.h"
#include "model/entities/BLTaxDetails.h"
#include "model/entities/BLTaxRule.h"
#include "model/entities/LineRounding.h"
#include "model/entities/ModelHooks.h"

namespace brassline {

std::string stringReadyToBeCalculated(std::string_view text) {
    std::string ready;
    ready.reserve(text.size());
    for (char c : text) {
        if (c == ',') {
            ready.push_back('.');
        } else if (c != '%') {
            ready.push_back(c);
        }
    }
    auto isSpace = [](unsigned char c) { return std::isspace(c) != 0; };
    ready.erase(ready.begin(), std::find_if_not(ready.begin(), ready.end(), isSpace));
    ready.erase(std::find_if_not(ready.rbegin(), ready.rend(), isSpace).base(), ready.end());
    return ready;
}

bool calulatesAsFraction(std::string_view text, const Decimal& result) {
    return text.find('/') != std::string_view::npos && result.absoluteNumber() <= Decimal(1);
}

std::optional<Decimal> calculatedValue(std::string_view text) {
    const std::string ready = stringReadyToBeCalculated(text);
    if (ready.empty()) {
        return std::nullopt;
    }
    std::optional<Decimal> result;
    if (modelHooks().calculatePortion) {
        result = modelHooks().calculatePortion(ready);
    } else {
        std::string error;
        result = evaluateDecimalFormula(ready, &error);
        if (!result) {
            logMessage("Portion \"%@\" is no formula: %@", ready, error);
        }
    }
    if (!result || result->isNaN()) {
        return std::nullopt;
    }
    return calulatesAsFraction(ready, *result) ? *result : *result / Decimal::hundred();
}

BLBase* BLPartialInvoice::duplicate() {
    BLBase* copy = BLInvoice::duplicate();
    if (modelHooks().updatePartialInvoices) {
        modelHooks().updatePartialInvoices(*this);
    }
    return copy;
}

BLInvoice* BLPartialInvoice::finalInvoice() const {
    BLDocument* owner = parentDocument();
    return owner != nullptr && owner->isKindOfEntity("Invoice") ? static_cast<BLInvoice*>(owner) : nullptr;
}

Decimal BLPartialInvoice::partialInvoicePercentage() {
    std::optional<Decimal> portion = portionValue();
    return portion ? Decimal::hundred() - *portion * Decimal::hundred() : Decimal::hundred();
}

std::vector<BLItem*> BLPartialInvoice::itemsForTotal() const {
    if (childs().empty()) {
        if (const BLInvoice* invoice = finalInvoice()) {
            return invoice->itemsForTotal();
        }
    }
    return BLInvoice::itemsForTotal();
}

TaxCollection BLPartialInvoice::createTaxDictionary(TaxCollection lines) const {
    const Decimal ratio = portionValue().value_or(Decimal()).validNumber();
    for (TaxCollection::Entry& entry : lines.entries) {
        entry.amount = (entry.amount * ratio).fixedValue();
    }
    return lines;
}

Decimal BLPartialInvoice::roundInInvoiceCurrency(const Decimal& value) const {
    const BLInvoice* invoice = finalInvoice();
    return roundPayable(invoice != nullptr ? invoice->currency() : currency(), value, value);
}

Decimal BLPartialInvoice::tableNet() {
    Decimal sum;
    for (const TaxCollection::Entry& entry : collectTaxes().entries) {
        Decimal net = BLTaxRule::amountAfterDiscount(entry.amount, this);
        if (useGrossPricesValue() && entry.rule != nullptr) {
            net = net - entry.rule->taxForAmount(entry.amount, this);
        }
        sum += net;
    }
    return sum;
}

Decimal BLPartialInvoice::tableGross() {
    Decimal sum;
    for (const TaxCollection::Entry& entry : collectTaxes().entries) {
        Decimal gross = BLTaxRule::amountAfterDiscount(entry.amount, this);
        if (!useGrossPricesValue() && entry.rule != nullptr) {
            gross += entry.rule->taxForAmount(entry.amount, this);
        }
        sum += gross;
    }
    return sum;
}

Decimal BLPartialInvoice::cost() {
    if (std::optional<Decimal> cached = cachedDecimal("cost")) {
        return *cached;
    }
    Decimal result;
    BLInvoice* invoice = finalInvoice();
    if (childs().empty() && invoice != nullptr) {
        result = deductingPercentage(invoice->cost(), partialInvoicePercentage());
    } else if (useGrossPricesValue()) {
        result = BLInvoice::cost();
    } else {
        // Only what the tax table holds: a line without a rule is billed by no portion.
        result = tableNet();
    }
    cacheDecimal(result, "cost");
    return result;
}

Decimal BLPartialInvoice::costWithTaxes() {
    if (std::optional<Decimal> cached = cachedDecimal("costWithTaxes")) {
        return *cached;
    }
    Decimal result;
    BLInvoice* invoice = finalInvoice();
    if (childs().empty() && invoice != nullptr) {
        result = roundInInvoiceCurrency(deductingPercentage(invoice->costWithTaxes(), partialInvoicePercentage()));
    } else {
        result = roundInInvoiceCurrency(tableGross());
    }
    cacheDecimal(result, "costWithTaxes");
    return result;
}

Decimal BLPartialInvoice::ratioForMetrics() const {
    const BLInvoice* invoice = finalInvoice();
    if (invoice != nullptr && invoice->dateSent()) {
        return {};
    }
    return portionValue().value_or(Decimal());
}

}  // namespace brassline
