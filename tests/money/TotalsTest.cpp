#include <gtest/gtest.h>

#include "ItemTestSupport.h"
#include "model/entities/BLDynamicCost.h"
#include "model/entities/BLGroup.h"
#include "model/entities/BLOption.h"
#include "model/entities/BLPayment.h"
#include "model/entities/BLTaxRule.h"
#include "model/entities/BLTitle.h"
#include "model/entities/ModelHooks.h"
#include "money/ItemHooks.h"

namespace brassline {
namespace {

class TotalsTest : public ItemFixture {
protected:
    // A one-slot rule at `percent`, or none for null.
    BLTaxRule* ruleAt(const char* percent) {
        if (percent == nullptr) {
            return nullptr;
        }
        auto* rule = insert<BLTaxRule>();
        rule->setTax1mode(int16_t{1});
        rule->setTax1name(std::string("VAT"));
        rule->setTax1value(dec(percent));
        return rule;
    }
    BLPayment* pay(BLInvoice* invoice, const char* amount, Date date = Date(0)) {
        auto* payment = insert<BLPayment>();
        payment->setAmount(dec(amount));
        payment->setDateCreation(date);
        payment->setParentDocument(invoice);
        invoice->resetCaches();
        return payment;
    }
};

TEST_F(TotalsTest, EmptyDocumentIsZero) {
    BLInvoice* invoice = invoiceIn("EUR");
    EXPECT_EQ(invoice->cost(), Decimal());
    EXPECT_EQ(invoice->tax(), Decimal());
    EXPECT_EQ(invoice->costWithTaxes(), Decimal());
    EXPECT_EQ(invoice->balance(), Decimal());
}

TEST_F(TotalsTest, NetDocumentDiscountAndPayableRounding) {
    struct Row {
        const char* name;
        const char* currency;
        const char* line;
        const char* discount;  // null: none
        const char* taxRate;   // null: no rule
        double sentSeconds;    // 0: draft
        const char* cost;
        const char* costWithTaxes;
    };
    // 2018-01-01 is 536457600 s after the reference date 2001-01-01.
    const double before2018 = 536457600.0 - 86400.0 * 180;
    const double after2018 = 536457600.0 + 86400.0 * 10;
    const Row rows[] = {
        // 10 % of 33.33 is 3.333, deducted as 3.33: 30.00.
        {"EUR discount", "EUR", "33.33", "10", nullptr, 0, "30.00", "30.00"},
        // 100 + 19 % = 119.00.
        {"EUR tax", "EUR", "100", nullptr, "19", 0, "100", "119.00"},
        // CHF line 10.02 at 0 %: the payable sum rounds to 10.00, the net does not.
        {"CHF no tax", "CHF", "10.02", nullptr, "0", 0, "10.02", "10.00"},
        // 7.7 % of 10.00 (the payable base) = 0.77; 10.02 + 0.77 = 10.79 -> x20 = 215.8
        // -> 216 / 20 = 10.80.
        {"CHF with tax", "CHF", "10.02", nullptr, "7.7", 0, "10.02", "10.80"},
        // Draft CHF with 10 %: 10.03 - 1.00 (1.003) = 9.03, net untouched; payable 9.05.
        {"CHF draft discount", "CHF", "10.03", "10", nullptr, 0, "9.03", "9.05"},
        {"CHF issued 2018", "CHF", "10.03", "10", nullptr, after2018, "9.03", "9.05"},
        // Issued before 2018 the net itself takes the 0.05 step: 9.03 -> 9.05.
        {"CHF issued 2017", "CHF", "10.03", "10", nullptr, before2018, "9.05", "9.05"},
        // Yen: 1000 less 15 % = 850; 10 % tax on it 85.
        {"JPY", "JPY", "1000", "15", "10", 0, "850", "935"},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        BLInvoice* invoice = invoiceIn(row.currency);
        addCost(invoice, row.line)->setTaxRule(ruleAt(row.taxRate));
        if (row.discount != nullptr) {
            invoice->setDiscount(dec(row.discount));
        }
        if (row.sentSeconds != 0) {
            invoice->setDateSent(Date(row.sentSeconds));
        }
        EXPECT_EQ(invoice->cost(), dec(row.cost));
        EXPECT_EQ(invoice->costWithTaxes(), dec(row.costWithTaxes));
    }
}

TEST_F(TotalsTest, DiscountDisplayValues) {
    BLInvoice* invoice = invoiceIn("EUR");
    addCost(invoice, "20.00", "1", "5");    // 19.00, line discount 1
    addCost(invoice, "14.33", "1", "1.5");  // 14.33 - 0.21495 = 14.11505 -> 14.12
    invoice->setDiscount(dec("10"));
    // Before the document discount: 19.00 + 14.12 = 33.12; its 10 % is 3.312 -> 3.31.
    EXPECT_EQ(invoice->costBeforeDiscount(), dec("33.12"));
    EXPECT_EQ(invoice->discountAmount(), dec("3.31"));
    EXPECT_EQ(invoice->cost(), dec("29.81"));
    // The lines' own discounts, unrounded: 1 + 0.21495.
    EXPECT_EQ(invoice->totalDiscount(), dec("1.21495"));
}

TEST_F(TotalsTest, GrossDocumentTakesTheTaxOutOfThePayableSum) {
    struct Row {
        const char* name;
        const char* currency;
        const char* line;
        const char* discount;
        const char* taxRate;
        const char* cost;
        const char* costWithTaxes;
    };
    const Row rows[] = {
        // 119.00 gross at 19 %: 119 / 119 x 19 = 19.00 inside.
        {"plain", "EUR", "119.00", nullptr, "19", "100.00", "119.00"},
        // 10 % of 119.00 = 11.90: 107.10 payable, 107.10 / 119 x 19 = 17.10 inside.
        {"discount", "EUR", "119.00", "10", "19", "90.00", "107.10"},
        // CHF 10.02 gross without tax: payable 10.00, and so the net.
        {"CHF", "CHF", "10.02", nullptr, nullptr, "10.00", "10.00"},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        BLInvoice* invoice = invoiceIn(row.currency);
        invoice->setUseGrossPrices(true);
        addCost(invoice, row.line)->setTaxRule(ruleAt(row.taxRate));
        if (row.discount != nullptr) {
            invoice->setDiscount(dec(row.discount));
        }
        EXPECT_EQ(invoice->cost(), dec(row.cost));
        EXPECT_EQ(invoice->costWithTaxes(), dec(row.costWithTaxes));
    }
}

TEST_F(TotalsTest, LineNetAndGrossFollowTheDocumentMode) {
    BLInvoice* invoice = invoiceIn("EUR");
    BLCost* line = addCost(invoice, "80");
    line->setTaxRule(ruleAt("10"));
    invoice->setDiscount(dec("25"));
    // c = 80 x 0.75 = 60. The line's tax is on its cost after the document discount:
    // 10 % of 60 = 6. Net mode: net 60, gross 66.
    EXPECT_EQ(line->net(), dec("60"));
    EXPECT_EQ(line->gross(), dec("66"));
    EXPECT_EQ(line->costWithTaxes(), dec("66"));
    // Gross mode: 60 holds 60 / 110 x 10 = 5.4545 -> 5.45 of tax: net 54.55, gross 60.
    invoice->setUseGrossPrices(true);
    EXPECT_EQ(line->net(), dec("54.55"));
    EXPECT_EQ(line->gross(), dec("60"));
}

TEST_F(TotalsTest, TaxIsPerRuleOnTheSummedLines) {
    BLInvoice* invoice = invoiceIn("EUR");
    BLTaxRule* rule = ruleAt("19");
    addCost(invoice, "0.03")->setTaxRule(rule);
    addCost(invoice, "0.03")->setTaxRule(rule);
    // 19 % of 0.06 = 0.0114 -> 0.01, not 0.01 + 0.01 of the lines; an untaxed line adds
    // to cost only.
    addCost(invoice, "1.00");
    EXPECT_EQ(invoice->tax(), dec("0.01"));
    EXPECT_EQ(invoice->cost(), dec("1.06"));
    EXPECT_EQ(invoice->costWithTaxes(), dec("1.07"));
}

TEST_F(TotalsTest, EstimateLeavesOptionsOutAndInvoiceCountsThem) {
    // 100, option [50], title, 25: an estimate totals 125, an invoice 175.
    auto fill = [this](BLSendable* document) {
        addCost(document, "100");
        add<BLOption>(document);
        addCost(document, "50");
        add<BLTitle>(document);
        addCost(document, "25");
    };
    BLEstimate* estimate = estimateIn("EUR");
    fill(estimate);
    BLInvoice* invoice = invoiceIn("EUR");
    fill(invoice);
    EXPECT_EQ(estimate->nonOptionItems().size(), 2u);
    EXPECT_EQ(estimate->cost(), dec("125"));
    EXPECT_EQ(estimate->costBeforeDiscount(), dec("125"));
    EXPECT_EQ(estimate->costWithTaxes(), dec("125"));
    EXPECT_EQ(estimate->balance(), dec("125"));
    EXPECT_EQ(invoice->cost(), dec("175"));
}

TEST_F(TotalsTest, BalanceToleranceThroughAFloat) {
    struct Row {
        const char* total;
        const char* paid;
        const char* balance;
    };
    // |total - paid| as a float below 0.06 is paid; the float nearest 0.06 lies below the
    // double 0.06, so a difference of exactly 0.06 is paid and 0.07 stays open.
    const Row rows[] = {
        {"100.00", "99.94", "0"},      {"100.00", "99.93", "0.07"},    {"100.00", "100.06", "0"},
        {"100.00", "100.07", "-0.07"}, {"-100.00", "-99.94", "0"},     {"-100.00", "-99.93", "-0.07"},
        {"-100.00", "-100.06", "0"},   {"-100.00", "-100.07", "0.07"}, {"100.00", "0", "100.00"},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(std::string(row.total) + " paid " + row.paid);
        BLInvoice* invoice = invoiceIn("EUR");
        addCost(invoice, row.total);
        pay(invoice, row.paid);
        EXPECT_EQ(invoice->balance(), dec(row.balance));
        EXPECT_EQ(invoice->balanced(), dec(row.balance).isZero());
    }
}

TEST_F(TotalsTest, BalanceForLayoutIgnoresPaymentsAfterTheSendDay) {
    BLInvoice* invoice = invoiceIn("EUR");
    addCost(invoice, "300");
    Date sent = Date::dateWithYear(2026, 3, 10);
    invoice->setDateSent(sent);
    pay(invoice, "100", sent.dateByAddingTimeInterval(3600 * 20));  // same day, evening
    pay(invoice, "50", sent.dateByAddingTimeInterval(86400 * 3));
    // The printed amount keeps only the same-day payment: 300 - 100; the balance takes
    // both: 300 - 150.
    EXPECT_EQ(invoice->prePayments().size(), 1u);
    EXPECT_EQ(invoice->balanceForLayout(), dec("200"));
    EXPECT_EQ(invoice->balance(), dec("150"));
    EXPECT_EQ(invoice->prepaidAmount(), dec("150"));
}

TEST_F(TotalsTest, ChangedLinesReachTheCachedTotals) {
    BLInvoice* invoice = invoiceIn("EUR");
    BLCost* line = addCost(invoice, "10", "2");
    auto* group = add<BLGroup>(invoice);
    BLCost* grouped = addCost(group, "1.005");
    pay(invoice, "5");
    // 20 + 1.01 (the group rounds 1.005 once), paid 5.
    EXPECT_EQ(invoice->cost(), dec("21.01"));
    EXPECT_EQ(invoice->costWithTaxes(), dec("21.01"));
    EXPECT_EQ(invoice->balance(), dec("16.01"));
    ASSERT_TRUE(invoice->holdfastCacheValueForKey("costWithTaxes").has_value());

    line->setQuantity(dec("3"));  // 30 + 1.01
    EXPECT_EQ(invoice->cost(), dec("31.01"));
    EXPECT_EQ(invoice->costWithTaxes(), dec("31.01"));
    EXPECT_EQ(invoice->balance(), dec("26.01"));

    grouped->setUnitPrice(dec("2.004"));  // inside the group: 30 + 2.00
    EXPECT_EQ(invoice->costWithTaxes(), dec("32.00"));
    grouped->setDiscount(dec("50"));  // 30 + 1.002 -> 1.00
    EXPECT_EQ(invoice->costWithTaxes(), dec("31.00"));
    invoice->setDiscount(dec("10"));  // 31.00 - 3.10
    EXPECT_EQ(invoice->costWithTaxes(), dec("27.90"));
}

TEST_F(TotalsTest, AmountsAnswerUnderTheirKeyValueNames) {
    BLInvoice* invoice = invoiceIn("EUR");
    BLCost* taxed = addCost(invoice, "40", "2");
    taxed->setTaxRule(ruleAt("10"));
    BLCost* free = addCost(invoice, "0", "3");
    add<BLTitle>(invoice);
    auto* dynamic = add<BLDynamicCost>(invoice);
    // 2 x 40 = 80 at 10 %: tax 8.00, gross 88.00; the free line and the title count 0.
    // The dynamic line's stored cost of 5 stays writable by name: it adds 5 untaxed.
    dynamic->setValueForKey(Value(dec("5")), "cost");
    invoice->resetCaches();
    struct Row {
        const char* key;
        const char* invoice;
        const char* line;
    };
    const Row rows[] = {
        {"cost", "85", "80"},
        {"net", "85", "80"},
        {"tax", "8.00", "8.00"},
        {"gross", "93.00", "88.00"},
        {"costWithTaxes", "93.00", "88.00"},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.key);
        EXPECT_EQ(invoice->valueForKey(row.key).toDecimal(), dec(row.invoice));
        EXPECT_EQ(taxed->valueForKey(row.key).toDecimal(), dec(row.line));
    }
    EXPECT_EQ(dynamic->valueForKey("cost").toDecimal(), dec("5"));
    EXPECT_EQ(free->valueForKey("costForGroup").toDecimal(), dec("0"));
    // Names a class does not have answer nothing rather than a zero.
    EXPECT_TRUE(invoice->valueForKey("costForGroup").isNull());
    EXPECT_TRUE(taxed->valueForKey("balance").isNull());

    // The lines whose cost is not 0, found through the key.
    std::vector<BLContainer*> priced = invoice->costsArray();
    ASSERT_EQ(priced.size(), 2u);
    EXPECT_EQ(priced[0], taxed);
    EXPECT_EQ(priced[1], dynamic);
}

TEST_F(TotalsTest, IssuedDocumentKeepsItsStoredGrossSum) {
    BLInvoice* invoice = invoiceIn("EUR");
    addCost(invoice, "10");
    // Issuing resets the caches, so the value an older file carries is stored afterwards.
    invoice->setDateSent(Date(700000000.0));
    invoice->setPrimitiveCachedCostWithTaxes(dec("12.34"));
    EXPECT_EQ(invoice->costWithTaxes(), dec("12.34"));
    // A reset drops the carried value, and the lines answer again.
    invoice->resetCaches();
    EXPECT_FALSE(invoice->cachedCostWithTaxes().has_value());
    EXPECT_EQ(invoice->costWithTaxes(), dec("10"));
}

TEST_F(TotalsTest, InstalledHookAnswersTheInvoiceBalance) {
    installItemHooks();
    BLInvoice* invoice = invoiceIn("EUR");
    addCost(invoice, "40");
    pay(invoice, "15");
    ASSERT_TRUE(modelHooks().invoiceBalance);
    EXPECT_EQ(modelHooks().invoiceBalance(*invoice), dec("25"));
    // With money open the invoice accepts payments.
    auto allowed = invoice->allowedDocuments();
    EXPECT_NE(std::find(allowed.begin(), allowed.end(), "BLPayment"), allowed.end());
}

}  // namespace
}  // namespace brassline
