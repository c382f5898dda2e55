// The sums of a sendable: net, tax, gross, discounts, payable rounding.
#include "core/ValueTransformers.h"
#include "model/EntityDescription.h"
#include "model/entities/BLClient.h"
#include "model/entities/BLCost.h"
#include "model/entities/BLCurrency.h"
#include "model/entities/BLGroup.h"
#include "model/entities/BLItem.h"
#include "model/entities/BLPayment.h"
#include "model/entities/BLSendable.h"
#include "model/entities/BLTaxDetails.h"
#include "model/entities/BLTaxRule.h"
#include "model/entities/LineRounding.h"
#include "model/entities/ModelHooks.h"
#include "model/entities/ModelStrings.h"

namespace brassline {

namespace {

// The Swiss rule that the 5-rappen step no longer touches the net value applies to
// documents issued from this day on.
const Date kSwissNetRoundingStart = Date::dateWithYear(2018, 1, 1);

// The lines' summed cost and their sums per tax rule, gathered in one walk: a line's cost
// walks up to the document for its currency, so a cold total must not ask for it twice.
struct LineSums {
    Decimal cost;
    TaxCollection taxes;
};

LineSums sumLines(const std::vector<BLItem*>& items) {
    LineSums sums;
    for (BLItem* item : items) {
        const Decimal lineCost = item->cost();
        sums.cost += lineCost;
        if (item->entityName() == "Group") {
            // A group is taxed as one amount under its first line's rule.
            std::vector<BLCost*> lines = static_cast<BLGroup*>(item)->costs();
            if (!lines.empty()) {
                lines.front()->collectTaxForCost(lineCost, sums.taxes);
            }
        } else if (BLItem::itemIsCost(item)) {
            static_cast<BLCost*>(item)->collectTaxForCost(lineCost, sums.taxes);
        }
    }
    return sums;
}

// Per rule on the summed lines, never per line: rounding happens once per rule.
Decimal taxOfCollection(const TaxCollection& taxes, const BLSendable* sendable) {
    Decimal total;
    for (const TaxCollection::Entry& entry : taxes.entries) {
        total += entry.rule->taxForAmount(entry.amount, sendable);
    }
    return total;
}

// The net sum from the lines' sums: the document discount, and in gross mode the payable
// rounding of the gross sum less its tax.
Decimal netOfLines(BLSendable& sendable, const LineSums& sums) {
    Decimal sum = sums.cost;
    std::optional<Decimal> percent = sendable.discount();
    if (!sendable.useGrossPricesValue()) {
        if (!percent) {
            return sum;
        }
        const BLCurrency* currency = sendable.currency();
        if (currency != nullptr && currency->name().value_or("") == "CHF" &&
            sendable.sendableDateAfter(kSwissNetRoundingStart)) {
            return BLSendable::deductingPercentage(sum, *percent);
        }
        return sendable.roundCost(BLSendable::deductingPercentage(sum, *percent), sum);
    }
    if (percent) {
        sum = sendable.roundCost(BLSendable::deductingPercentage(sum, *percent), sum);
    }
    if (Decimal partial = sendable.partialInvoicePercentage(); partial > Decimal()) {
        sum = sendable.roundCost(BLSendable::deductingPercentage(sum, partial), sum);
    }
    sum = sendable.roundCost(sum, sum);
    return sum - taxOfCollection(sums.taxes, &sendable);
}

}  // namespace

Decimal BLSendable::deductingPercentage(const Decimal& value, const Decimal& percent) {
    return value - value.decimalNumberCalculatePercentage(percent).fixedValue();
}

Decimal BLSendable::discountFraction() const {
    return (Decimal::hundred() - discount().value_or(Decimal())) / Decimal::hundred();
}

std::vector<BLItem*> BLSendable::itemsForTotal() const {
    return itemChildren(*this);
}

Decimal BLSendable::itemsCost() const {
    Decimal total;
    for (BLItem* item : itemsForTotal()) {
        total += item->cost();
    }
    return total;
}

std::optional<Decimal> BLSendable::cachedDecimal(std::string_view key) const {
    std::optional<Value> value = holdfastCacheValueForKey(key);
    if (value && value->decimal() != nullptr) {
        return *value->decimal();
    }
    return std::nullopt;
}

void BLSendable::cacheDecimal(const Decimal& value, std::string_view key) {
    setHoldfastCacheValue(Value(value), key);
}

Decimal BLSendable::roundCost(const Decimal& value, const Decimal& reference) const {
    return roundPayable(currency(), value, reference);
}

bool BLSendable::sendableDateAfter(Date date) const {
    return !dateSent() || dateSent()->timeIntervalSinceReferenceDate() >= date.timeIntervalSinceReferenceDate();
}

namespace {

// The lines' sums with the document's own tax table (a partial invoice takes its share).
LineSums documentLineSums(const BLSendable& sendable) {
    LineSums sums = sumLines(sendable.itemsForTotal());
    sums.taxes = sendable.createTaxDictionary(std::move(sums.taxes));
    return sums;
}

}  // namespace

Decimal BLSendable::cost() {
    if (std::optional<Decimal> cached = cachedDecimal("cost")) {
        return *cached;
    }
    Decimal result = netOfLines(*this, documentLineSums(*this));
    cacheDecimal(result, "cost");
    return result;
}

TaxCollection BLSendable::createTaxDictionary(TaxCollection lines) const {
    return lines;
}

TaxCollection BLSendable::collectTaxes() const {
    return documentLineSums(*this).taxes;
}

Decimal BLSendable::tax() {
    return taxOfCollection(collectTaxes(), this);
}

Decimal BLSendable::costWithTaxes() {
    if (std::optional<Decimal> cached = cachedDecimal("costWithTaxes")) {
        return *cached;
    }
    std::optional<Decimal> stored = cachedCostWithTaxes();
    if (dateSent() && stored && *stored > Decimal()) {
        return *stored;
    }
    Decimal result;
    if (!useGrossPricesValue()) {
        // A cold read takes net and tax from the same walk over the lines.
        Decimal net;
        Decimal taxTotal;
        if (std::optional<Decimal> cachedNet = cachedDecimal("cost")) {
            net = *cachedNet;
            taxTotal = tax();
        } else {
            LineSums sums = documentLineSums(*this);
            net = netOfLines(*this, sums);
            cacheDecimal(net, "cost");
            taxTotal = taxOfCollection(sums.taxes, this);
        }
        result = roundCost(net + taxTotal, net);
    } else {
        result = itemsCost();
        if (std::optional<Decimal> percent = discount()) {
            result = deductingPercentage(result, *percent);
        }
        if (Decimal partial = partialInvoicePercentage(); partial > Decimal()) {
            result = deductingPercentage(result, partial);
        }
        result = roundCost(result, result);
        if (dateSent() && result.isZero() && stored) {
            return *stored;
        }
    }
    cacheDecimal(result, "costWithTaxes");
    return result;
}

Decimal BLSendable::costBeforeDiscount() {
    return itemsCost();
}

Decimal BLSendable::discountAmount() {
    return costBeforeDiscount().decimalNumberCalculatePercentage(discount().value_or(Decimal())).fixedValue();
}

Decimal BLSendable::totalDiscount() {
    Decimal total;
    for (BLItem* item : itemChildren(*this)) {
        total += item->totalDiscount();
    }
    return total;
}

Decimal BLSendable::margin() {
    if (std::optional<Decimal> cached = cachedDecimal("margin")) {
        return *cached;
    }
    Decimal total;
    for (BLItem* item : itemChildren(*this)) {
        total += item->margin();
    }
    cacheDecimal(total, "margin");
    return total;
}

Decimal BLSendable::totalWeight() {
    Decimal total;
    for (BLItem* item : itemChildren(*this)) {
        total += item->totalWeight();
    }
    return total;
}

void BLSendable::resetCaches() {
    if (!dateSent()) {
        for (BLItem* item : itemChildren(*this)) {
            item->calculateDynamicValues(true);
        }
    }
    // Values carried from older files are dropped once anything may have changed.
    if (cachedBalance()) {
        setPrimitiveCachedBalance(std::nullopt);
    }
    if (cachedCostWithTaxes()) {
        setPrimitiveCachedCostWithTaxes(std::nullopt);
    }
    if (cachedCost()) {
        setPrimitiveCachedCost(std::nullopt);
    }
    BLDocument::resetCaches();
}

void BLSendable::setDiscount(std::optional<Decimal> value) {
    gen::BLSendable::setDiscount(std::move(value));
    resetCaches();
}

void BLSendable::setUseGrossPrices(std::optional<bool> value) {
    gen::BLSendable::setUseGrossPrices(value);
    resetCaches();
}

void BLSendable::setChilds(const std::vector<ManagedObject*>& values) {
    gen::BLSendable::setChilds(values);
    resetCaches();
}

// Balances.

Decimal BLSendable::balanceAtSendDate() {
    Decimal open = costWithTaxes();
    for (const BLPayment* payment : prePayments()) {
        open = open - payment->amount().value_or(Decimal());
    }
    return open;
}

Decimal BLSendable::taxBalance() {
    Decimal open = tax();
    for (const BLPayment* payment : prePayments()) {
        open = open - taxOfPayment(*payment);
    }
    return open;
}

Decimal BLSendable::netBalance() {
    // All payments here, not only those up to the send day: the books, not the page.
    Decimal open = cost();
    for (const BLPayment* payment : payments()) {
        open = open - (payment->amount().value_or(Decimal()) - taxOfPayment(*payment));
    }
    return open;
}

void BLSendable::collectBalance(std::map<std::string, Decimal>& balances) {
    if (isKindOfEntity("Invoice") && dateSent()) {
        if (completeModeValue() == 0) {
            // Keyed by the ISO name; a document without a currency owes in its client's.
            const BLCurrency* own = currency();
            if (own == nullptr && client() != nullptr) {
                own = client()->currency();
            }
            balances[own != nullptr ? fixedAttribute(own->name()) : std::string()] += balance();
        }
        return;
    }
    // A draft counts nothing itself; its issued partial invoices are what is owed. Other
    // documents only pass the question on.
    for (BLDocument* document : documents()) {
        if (auto* below = dynamic_cast<BLSendable*>(document)) {
            below->collectBalance(balances);
        }
    }
}

void BLSendable::collectBalanceInNativeCurrency(std::map<std::string, Decimal>& balances) {
    if (isKindOfEntity("Invoice") && dateSent() && completeModeValue() == 0) {
        balances["value"] += costInNativeCurrency();
    }
    // An invoice's own amount already leaves out its issued partial invoices, so they
    // add theirs without counting twice.
    for (BLDocument* document : documents()) {
        if (auto* below = dynamic_cast<BLSendable*>(document)) {
            below->collectBalanceInNativeCurrency(balances);
        }
    }
}

Decimal BLSendable::costForCashDiscount() {
    if (entityName() == "Invoice" || entityName() == "Estimate") {
        return costWithTaxes();
    }
    return {};
}

Decimal BLSendable::convertToDefaultCurrency(const Decimal& value) {
    BLCurrency* own = currency();
    return own != nullptr ? own->convertValueToDefaultCurrency(value) : value;
}

Decimal BLSendable::costForDashboard() {
    return convertToDefaultCurrency(userDefaultIsOn(kDashboardUseGrossPricesDefault) ? costWithTaxes() : cost());
}

std::string BLSendable::balanceWithoutCurrency() {
    Decimal open = balance();
    if (const ValueTransformer* transformer = valueTransformerForName("ZPNumberTransformer")) {
        Value formatted = transformer->transformedValue(Value(open));
        if (const std::string* text = formatted.string()) {
            return *text;
        }
    }
    return open.toString();
}

std::string BLSendable::amountDecimal() {
    return balance().toString();
}

namespace {

// Totals fill the per-object cache, so the const object of a getter is read mutably.
BLSendable& totalsOf(const ManagedObject& object) {
    return const_cast<BLSendable&>(static_cast<const BLSendable&>(object));
}

}  // namespace

void BLSendable::registerTotalKeys(EntityDescription& entity) {
    entity.registerDerivedProperty(
        "balanceForLayout", [](const ManagedObject& o) -> Value { return Value(totalsOf(o).balanceForLayout()); });
    entity.registerDerivedProperty(
        "balanceAtSendDate", [](const ManagedObject& o) -> Value { return Value(totalsOf(o).balanceAtSendDate()); });
    entity.registerDerivedProperty(
        "balanceForFollowUp", [](const ManagedObject& o) -> Value { return Value(totalsOf(o).balanceForFollowUp()); });
    entity.registerDerivedProperty("prepaidAmount",
                                   [](const ManagedObject& o) -> Value { return Value(totalsOf(o).prepaidAmount()); });
    entity.registerDerivedProperty("taxBalance",
                                   [](const ManagedObject& o) -> Value { return Value(totalsOf(o).taxBalance()); });
    entity.registerDerivedProperty("netBalance",
                                   [](const ManagedObject& o) -> Value { return Value(totalsOf(o).netBalance()); });
    entity.registerDerivedProperty(
        "costBeforeDiscount", [](const ManagedObject& o) -> Value { return Value(totalsOf(o).costBeforeDiscount()); });
    entity.registerDerivedProperty(
        "discountFraction", [](const ManagedObject& o) -> Value { return Value(totalsOf(o).discountFraction()); });
    entity.registerDerivedProperty(
        "amountForMetrics", [](const ManagedObject& o) -> Value { return Value(totalsOf(o).amountForMetrics()); });
    entity.registerDerivedProperty("netAmountForMetrics", [](const ManagedObject& o) -> Value {
        return Value(totalsOf(o).netAmountForMetrics());
    });
    entity.registerDerivedProperty("grossAmountForMetrics", [](const ManagedObject& o) -> Value {
        return Value(totalsOf(o).grossAmountForMetrics());
    });
    entity.registerDerivedProperty("taxAmountForMetrics", [](const ManagedObject& o) -> Value {
        return Value(totalsOf(o).taxAmountForMetrics());
    });
    entity.registerDerivedProperty(
        "exportTaxesAmount", [](const ManagedObject& o) -> Value { return Value(totalsOf(o).exportTaxesAmount()); });
    entity.registerDerivedProperty(
        "ratioForMetrics", [](const ManagedObject& o) -> Value { return Value(totalsOf(o).ratioForMetrics()); });
    entity.registerDerivedProperty("costForCashDiscount", [](const ManagedObject& o) -> Value {
        return Value(totalsOf(o).costForCashDiscount());
    });
    entity.registerDerivedProperty("balanceInNativeCurrency", [](const ManagedObject& o) -> Value {
        return Value(totalsOf(o).balanceInNativeCurrency());
    });
    entity.registerDerivedProperty("netBalanceInNativeCurrency", [](const ManagedObject& o) -> Value {
        return Value(totalsOf(o).netBalanceInNativeCurrency());
    });
    entity.registerDerivedProperty("taxInNativeCurrency", [](const ManagedObject& o) -> Value {
        return Value(totalsOf(o).taxInNativeCurrency());
    });
    entity.registerDerivedProperty("costInNativeCurrency", [](const ManagedObject& o) -> Value {
        return Value(totalsOf(o).costInNativeCurrency());
    });
    entity.registerDerivedProperty("netCostInNativeCurrency", [](const ManagedObject& o) -> Value {
        return Value(totalsOf(o).netCostInNativeCurrency());
    });
    entity.registerDerivedProperty("taxesInNativeCurrency", [](const ManagedObject& o) -> Value {
        return Value(totalsOf(o).taxesInNativeCurrency());
    });
    entity.registerDerivedProperty("partialInvoicePercentage", [](const ManagedObject& o) -> Value {
        return Value(totalsOf(o).partialInvoicePercentage());
    });
    entity.registerDerivedProperty("partialInvoiceDeductionPercentage", [](const ManagedObject& o) -> Value {
        return Value(totalsOf(o).partialInvoiceDeductionPercentage());
    });
    entity.registerDerivedProperty(
        "costForDashboard", [](const ManagedObject& o) -> Value { return Value(totalsOf(o).costForDashboard()); });
    entity.registerDerivedProperty("balanceForDashboard", [](const ManagedObject& o) -> Value {
        return Value(totalsOf(o).balanceForDashboard());
    });
    entity.registerDerivedProperty("balanceWithoutCurrency", [](const ManagedObject& o) -> Value {
        return Value(totalsOf(o).balanceWithoutCurrency());
    });
    entity.registerDerivedProperty("amountDecimal",
                                   [](const ManagedObject& o) -> Value { return Value(totalsOf(o).amountDecimal()); });
    entity.registerDerivedProperty("includeInDashboard", [](const ManagedObject& o) -> Value {
        return Value(static_cast<const BLSendable&>(o).includeInDashboard());
    });
    entity.registerDerivedProperty(
        "costWithoutTaxes", [](const ManagedObject& o) -> Value { return Value(totalsOf(o).costWithoutTaxes()); });
    entity.registerDerivedProperty(
        "costWithoutOptions", [](const ManagedObject& o) -> Value { return Value(totalsOf(o).costWithoutOptions()); });
    entity.registerDerivedProperty("costWithoutOptionsWithTaxes", [](const ManagedObject& o) -> Value {
        return Value(totalsOf(o).costWithoutOptionsWithTaxes());
    });
    entity.registerDerivedProperty("taxes", [](const ManagedObject& o) -> Value { return Value(totalsOf(o).tax()); });
    entity.registerDerivedProperty(
        "itemsForTotal", [](const ManagedObject& o) -> Value { return objectListValue(totalsOf(o).itemsForTotal()); });
    entity.registerDerivedProperty(
        "payments", [](const ManagedObject& o) -> Value { return objectListValue(totalsOf(o).payments()); });
    entity.registerDerivedProperty(
        "prePayments", [](const ManagedObject& o) -> Value { return objectListValue(totalsOf(o).prePayments()); });
    // An invoice's questions about its balance; a plain sendable answers them the same way.
    entity.registerDerivedProperty("canPay", [](const ManagedObject& o) -> Value {
        return Value(totalsOf(o).isKindOfEntity("Invoice") && !totalsOf(o).balance().isZeroAsFloat());
    });
    entity.registerDerivedProperty("exportBalance",
                                   [](const ManagedObject& o) -> Value { return Value(totalsOf(o).balance()); });
}

}  // namespace brassline
