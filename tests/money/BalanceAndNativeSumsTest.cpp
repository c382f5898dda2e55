#include <map>

#include <gtest/gtest.h>

#include "ItemTestSupport.h"
#include "model/entities/BLPartialInvoice.h"
#include "model/entities/BLPayment.h"
#include "model/entities/BLTaxRule.h"

namespace brassline {
namespace {

class BalanceAndNativeSumsTest : public ItemFixture {
protected:
    BLTaxRule* ruleAt(const char* percent) {
        auto* rule = insert<BLTaxRule>();
        rule->setTax1mode(int16_t{1});
        rule->setTax1name(std::string("VAT"));
        rule->setTax1value(dec(percent));
        return rule;
    }
    BLPayment* pay(BLInvoice* invoice, const char* amount, Date date) {
        auto* payment = insert<BLPayment>();
        payment->setAmount(dec(amount));
        payment->setDateCreation(date);
        payment->setParentDocument(invoice);
        invoice->resetCaches();
        return payment;
    }
    // The book currency EUR and a foreign one: `rate` euros per unit.
    BLCurrency* foreign(const char* code, const char* rate) {
        BLCurrency* euro = currencyNamed("EUR");
        euro->setRate(dec("1"));
        euro->setIsDefault(true);
        BLCurrency* other = currencyNamed(code);
        other->setRate(dec(rate));
        return other;
    }
};

TEST_F(BalanceAndNativeSumsTest, OneRuleBalancesSplitPaymentsByTheIncludedTax) {
    // 100 at 19 %: 119.00. On the send day 59.50 arrive (9.50 tax inside: 59.50 / 119 x
    // 19), three days later 20.00 (3.19 inside: 3.1932).
    BLInvoice* invoice = invoiceIn("EUR");
    addCost(invoice, "100")->setTaxRule(ruleAt("19"));
    const Date sent = Date::dateWithYear(2026, 5, 4);
    invoice->setDateSent(sent);
    pay(invoice, "59.50", sent.dateByAddingTimeInterval(3600));
    BLPayment* later = pay(invoice, "20.00", sent.dateByAddingDays(3));
    EXPECT_EQ(invoice->taxOfPayment(*later), dec("3.19"));
    struct Row {
        const char* key;
        const char* value;
    };
    const Row rows[] = {
        {"balance", "39.50"},            // 119 - 79.50
        {"balanceForLayout", "59.50"},   // the send day's payment only
        {"balanceAtSendDate", "59.50"},  // the same by subtraction
        {"taxBalance", "9.50"},          // 19.00 - 9.50, prepayments only
        {"netBalance", "33.19"},         // 100 - 50.00 - 16.81, all payments
        {"prepaidAmount", "79.50"},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.key);
        EXPECT_EQ(invoice->valueForKey(row.key).toDecimal(), dec(row.value));
    }
}

TEST_F(BalanceAndNativeSumsTest, SeveralRulesShareThePaymentByItsRatio) {
    // 100 at 19 % and 100 at 7 %: cost 200, tax 26.00, gross 226.00. A draft counts every
    // payment; 113 is half: 9.50 + 3.50 of tax, 100 net.
    BLInvoice* invoice = invoiceIn("EUR");
    addCost(invoice, "100")->setTaxRule(ruleAt("19"));
    addCost(invoice, "100")->setTaxRule(ruleAt("7"));
    BLPayment* half = pay(invoice, "113", Date(0));
    EXPECT_EQ(invoice->taxOfPayment(*half), dec("13.00"));
    EXPECT_EQ(invoice->taxBalance(), dec("13.00"));
    EXPECT_EQ(invoice->netBalance(), dec("100"));
    EXPECT_EQ(invoice->balanceAtSendDate(), dec("113"));
}

TEST_F(BalanceAndNativeSumsTest, PaymentOfAnEmptyInvoiceCarriesNoTax) {
    BLInvoice* invoice = invoiceIn("EUR");
    BLPayment* payment = pay(invoice, "10", Date(0));
    // No amount to share: the payment's tax is 0 and the net balance falls by all of it.
    EXPECT_EQ(invoice->taxOfPayment(*payment), Decimal());
    EXPECT_EQ(invoice->netBalance(), dec("-10"));
}

TEST_F(BalanceAndNativeSumsTest, SumsInTheDefaultCurrencyGoThroughTheRate) {
    // USD at 0.9 EUR: 100 at 10 % is 110.00 USD = 99.00 EUR; net 90.00, tax 9.00. A payment
    // of 55 (5.00 tax inside) leaves 55 = 49.50 EUR open and 50 net = 45.00 EUR.
    BLInvoice* invoice = insert<BLInvoice>();
    invoice->setCurrency(foreign("USD", "0.9"));
    addCost(invoice, "100")->setTaxRule(ruleAt("10"));
    pay(invoice, "55", Date(0));
    struct Row {
        const char* key;
        const char* value;
    };
    const Row rows[] = {
        {"costInNativeCurrency", "99.00"},    {"netCostInNativeCurrency", "90.00"},
        {"taxesInNativeCurrency", "9.00"},    {"taxInNativeCurrency", "9.00"},
        {"balanceInNativeCurrency", "49.50"}, {"netBalanceInNativeCurrency", "45.00"},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.key);
        EXPECT_EQ(invoice->valueForKey(row.key).toDecimal(), dec(row.value));
    }
    // In the book currency nothing changes.
    BLInvoice* home = insert<BLInvoice>();
    home->setCurrency(BLCurrency::defaultItemForContext(context()));
    addCost(home, "12.34");
    EXPECT_EQ(home->costInNativeCurrency(), dec("12.34"));
}

TEST_F(BalanceAndNativeSumsTest, CollectedBalancesCountIssuedOpenInvoices) {
    BLCurrency* dollar = foreign("USD", "0.9");
    auto invoiceFor = [&](BLCurrency* currency, const char* amount, bool issued, int16_t mode) {
        auto* invoice = insert<BLInvoice>();
        invoice->setCurrency(currency);
        addCost(invoice, amount);
        if (issued) {
            invoice->setDateSent(Date(700000000.0));
        }
        invoice->setCompleteMode(mode);
        return invoice;
    };
    BLCurrency* euro = BLCurrency::defaultItemForContext(context());
    std::vector<BLInvoice*> invoices = {
        invoiceFor(euro, "100", true, 0),   // counts 100 EUR
        invoiceFor(euro, "40", true, 1),    // settled: nothing
        invoiceFor(euro, "70", false, 0),   // draft without instalments: nothing
        invoiceFor(dollar, "10", true, 0),  // 10 USD, 9.00 EUR
    };
    // A draft final invoice of 200 with an issued half counts the half: 100 EUR.
    BLInvoice* final = invoiceFor(euro, "200", false, 0);
    auto* half = insert<BLPartialInvoice>();
    half->setCurrency(euro);
    half->setPartialPortion(std::string("50"));
    half->setParentDocument(final);
    half->setDateSent(Date(700000000.0));
    invoices.push_back(final);

    std::map<std::string, Decimal> byCurrency;
    std::map<std::string, Decimal> native;
    for (BLInvoice* invoice : invoices) {
        invoice->collectBalance(byCurrency);
        invoice->collectBalanceInNativeCurrency(native);
    }
    EXPECT_EQ(byCurrency.size(), 2u);
    EXPECT_EQ(byCurrency["EUR"], dec("200"));
    EXPECT_EQ(byCurrency["USD"], dec("10"));
    // 100 + 9.00 + 100 in euros.
    EXPECT_EQ(native["value"], dec("209.00"));
}

}  // namespace
}  // namespace brassline
