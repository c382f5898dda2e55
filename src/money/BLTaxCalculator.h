#pragma once

#include <optional>
#include <vector>

#include "core/Value.h"
#include "model/entities/BLTaxDetails.h"

namespace brassline {

class BLSendable;
class BLTaxRule;

// The sum of one tax rule within a document: the lines' amounts add up in `amount`, and
// the tax is computed once on that sum after the document's discount. Borrows the rule
// and the document; main thread.
class BLTaxCalculator {
public:
    // Amount 0, no details.
    static BLTaxCalculator taxCalculatorWithRule(BLTaxRule* rule, const BLSendable* document);

    // `amount` less the document's discount, rounded as payable in its currency.
    Decimal amountAfterDiscount() const;
    // preCalculatedTax when set; else the rule's tax on amountAfterDiscount by the
    // document's price mode. Computed once: the slot records go to `details` then.
    Decimal tax();
    // Without the tax: amountAfterDiscount less the tax in a gross-price document.
    Decimal net();
    Decimal gross() { return net() + tax(); }
    Decimal totalPercentage() const;

    // A share of this sum (partial invoices, metrics): amount × r to 2 digits, on the raw
    // amount for a partial invoice; without a document the tax is carried as tax × r.
    BLTaxCalculator taxCalculatorWithRatio(const Decimal& ratio);
    BLTaxCalculator taxCalculatorWithRatio(const Decimal& ratio, const BLSendable* document);

    // The record plug-ins and e-invoices read: net, rate, taxPercentage, gross, tax (each
    // also "...AsString"), name, taxExemptionCode, taxCategoryCode and, with a document,
    // currency.
    Value::Dictionary interchangeDictionary();

    Decimal amount;
    BLTaxRule* taxRule = nullptr;
    const BLSendable* document = nullptr;
    std::vector<BLTaxDetails> details;
    std::optional<Decimal> preCalculatedTax;

private:
    std::optional<Decimal> m_tax;
};

// Three running sums with a label; the first addition of each sets it.
class BLTaxSummarizer {
public:
    void addNet(const Decimal& value) { add(m_net, value); }
    void addGross(const Decimal& value) { add(m_gross, value); }
    void addTax(const Decimal& value) { add(m_tax, value); }
    Decimal net() const { return m_net.value_or(Decimal()); }
    Decimal gross() const { return m_gross.value_or(Decimal()); }
    Decimal tax() const { return m_tax.value_or(Decimal()); }
    std::string label;

private:
    static void add(std::optional<Decimal>& sum, const Decimal& value) { sum = sum ? *sum + value : value; }
    std::optional<Decimal> m_net;
    std::optional<Decimal> m_gross;
    std::optional<Decimal> m_tax;
};

// The tax table of a document from its lines' sums per rule, in the order the rules
// first appear; one calculator per rule.
std::vector<BLTaxCalculator> taxCalculatorsForCollection(const TaxCollection& collection, const BLSendable* document);
// The tax table of a sendable (one calculator per rule over its lines for the total) and
// its records as plug-ins read them.
std::vector<BLTaxCalculator> taxDictionary(BLSendable& sendable);
Value::Array taxesArray(BLSendable& sendable);
// The sum of the table's taxes.
Decimal totalTax(std::vector<BLTaxCalculator>& calculators);

}  // namespace brassline
