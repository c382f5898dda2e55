#include "money/BLTaxCalculator.h"

#include "model/entities/BLCurrency.h"
#include "model/entities/BLSendable.h"
#include "model/entities/BLTaxRule.h"

namespace brassline {

namespace {

// Amounts in records carry cents; the text is the canonical decimal of that figure.
Value amountText(const Decimal& value) {
    return Value(value.validNumber().fixedValue().toString());
}

}  // namespace

BLTaxCalculator BLTaxCalculator::taxCalculatorWithRule(BLTaxRule* rule, const BLSendable* document) {
    BLTaxCalculator calculator;
    calculator.taxRule = rule;
    calculator.document = document;
    return calculator;
}

Decimal BLTaxCalculator::amountAfterDiscount() const {
    return BLTaxRule::amountAfterDiscount(amount, document);
}

Decimal BLTaxCalculator::tax() {
    if (preCalculatedTax) {
        return *preCalculatedTax;
    }
    if (!m_tax) {
        m_tax = taxRule != nullptr ? taxRule->taxForAmount(amount, document, &details) : Decimal();
    }
    return *m_tax;
}

Decimal BLTaxCalculator::net() {
    const Decimal base = amountAfterDiscount();
    return document != nullptr && document->useGrossPricesValue() ? base - tax() : base;
}

Decimal BLTaxCalculator::totalPercentage() const {
    return taxRule != nullptr ? taxRule->totalPercentageForDocument(document) : Decimal();
}

BLTaxCalculator BLTaxCalculator::taxCalculatorWithRatio(const Decimal& ratio) {
    return taxCalculatorWithRatio(ratio, nullptr);
}

BLTaxCalculator BLTaxCalculator::taxCalculatorWithRatio(const Decimal& ratio, const BLSendable* target) {
    const Decimal share = ratio.validNumber();
    BLTaxCalculator result = taxCalculatorWithRule(taxRule, target);
    // A partial invoice applies the discount itself, so it takes its share of the raw sum.
    if (target != nullptr && target->isKindOfEntity("PartialInvoice")) {
        result.amount = (amount * share).fixedValue();
    } else {
        result.amount = (amountAfterDiscount() * share).fixedValue();
    }
    if (target == nullptr) {
        result.preCalculatedTax = (tax() * share).fixedValue();
    }
    return result;
}

Value::Dictionary BLTaxCalculator::interchangeDictionary() {
    Value::Dictionary record;
    const Decimal taxValue = tax();
    const Decimal netValue = net();
    const Decimal grossValue = netValue + taxValue;
    const Decimal percentage = totalPercentage();
    record["net"] = Value(netValue);
    record["netAsString"] = amountText(netValue);
    record["rate"] = Value(percentage);
    record["rateAsString"] = Value(percentage.validNumber().toString());
    record["taxPercentage"] = Value(percentage);
    record["taxPercentageAsString"] = Value(percentage.validNumber().toString());
    record["gross"] = Value(grossValue);
    record["grossAsString"] = amountText(grossValue);
    record["tax"] = Value(taxValue);
    record["taxAsString"] = amountText(taxValue);
    if (taxRule != nullptr) {
        record["name"] = Value(taxRule->taxNames());
        record["taxExemptionCode"] = Value(BLBase::fixedAttribute(taxRule->taxExemptionCode()));
        record["taxCategoryCode"] = Value(taxRule->taxCategoryCode());
    }
    if (document != nullptr) {
        const BLCurrency* currency = document->currency();
        record["currency"] = Value(currency != nullptr ? BLBase::fixedAttribute(currency->name()) : std::string());
    }
    return record;
}

std::vector<BLTaxCalculator> taxCalculatorsForCollection(const TaxCollection& collection, const BLSendable* document) {
    std::vector<BLTaxCalculator> result;
    result.reserve(collection.entries.size());
    for (const TaxCollection::Entry& entry : collection.entries) {
        BLTaxCalculator calculator = BLTaxCalculator::taxCalculatorWithRule(entry.rule, document);
        calculator.amount = entry.amount;
        result.push_back(std::move(calculator));
    }
    return result;
}

std::vector<BLTaxCalculator> taxDictionary(BLSendable& sendable) {
    return taxCalculatorsForCollection(sendable.collectTaxes(), &sendable);
}

Value::Array taxesArray(BLSendable& sendable) {
    Value::Array records;
    for (BLTaxCalculator& calculator : taxDictionary(sendable)) {
        records.emplace_back(calculator.interchangeDictionary());
    }
    return records;
}

Decimal totalTax(std::vector<BLTaxCalculator>& calculators) {
    Decimal sum;
    for (BLTaxCalculator& calculator : calculators) {
        sum += calculator.tax();
    }
    return sum;
}

}  // namespace brassline
