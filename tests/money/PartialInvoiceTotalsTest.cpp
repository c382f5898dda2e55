#include <gtest/gtest.h>

#include "ItemTestSupport.h"
#include "model/entities/BLPartialInvoice.h"
#include "model/entities/BLTaxRule.h"
#include "model/entities/ModelHooks.h"
#include "money/MetricsTaxes.h"

namespace brassline {
namespace {

class PartialInvoiceTotalsTest : public ItemFixture {
protected:
    BLTaxRule* ruleAt(const char* percent) {
        auto* rule = insert<BLTaxRule>();
        rule->setTax1mode(int16_t{1});
        rule->setTax1name(std::string("VAT"));
        rule->setTax1value(dec(percent));
        return rule;
    }
    BLPartialInvoice* partialOf(BLInvoice* invoice, const char* portion) {
        auto* partial = insert<BLPartialInvoice>();
        partial->setCurrency(invoice->currency());
        partial->setPartialPortion(std::string(portion));
        partial->setParentDocument(invoice);
        return partial;
    }
    // 100 at 19 % and 33.33 at 7 %: cost 133.33, tax 19.00 + 2.33 (2.3331), gross 154.66.
    BLInvoice* twoRateInvoice(const std::string& code = "EUR") {
        BLInvoice* invoice = invoiceIn(code);
        addCost(invoice, "100")->setTaxRule(ruleAt("19"));
        addCost(invoice, "33.33")->setTaxRule(ruleAt("7"));
        return invoice;
    }
};

TEST_F(PartialInvoiceTotalsTest, PortionTextsGiveTheirShare) {
    const Decimal third = Decimal(1) / Decimal(3);
    struct Row {
        const char* text;
        std::optional<Decimal> share;
    };
    const Row rows[] = {
        {"50", dec("0.5")},
        {"25", dec("0.25")},
        {" 12.5 ", dec("0.125")},
        // A decimal comma and a percent sign are read as written by hand.
        {"33,3 %", dec("0.333")},
        // A fraction of the whole stands as it is; a quotient above 1 is a percentage.
        {"1/3", third},
        {"-1/3", -third},
        {"100/4", dec("0.25")},
        {"(10+15)*2", dec("0.5")},
        {"", std::nullopt},
        {"half", std::nullopt},
        {"1/0", std::nullopt},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(std::string("\"") + row.text + "\"");
        EXPECT_EQ(calculatedValue(row.text), row.share);
    }
}

TEST_F(PartialInvoiceTotalsTest, ScriptHookTakesOverTheEvaluation) {
    std::string seen;
    modelHooks().calculatePortion = [&seen](std::string_view text) -> std::optional<Decimal> {
        seen = std::string(text);
        return text == "Math.round(39.6)" ? std::optional<Decimal>(Decimal(40)) : std::nullopt;
    };
    // The hook gets the prepared text and its result becomes a percentage share.
    EXPECT_EQ(calculatedValue(" Math.round(39.6) "), dec("0.4"));
    EXPECT_EQ(seen, "Math.round(39.6)");
    EXPECT_EQ(calculatedValue("50"), std::nullopt);
}

TEST_F(PartialInvoiceTotalsTest, DraftTakesItsShareOfTheFinalInvoice) {
    struct Row {
        const char* portion;
        const char* percentage;  // partialInvoicePercentage, null: one third's
        const char* cost;
        const char* costWithTaxes;
        const char* tax;
        const char* ratio;  // null: one third
    };
    const Row rows[] = {
        // Half: 133.33 less 66.67 (66.665) = 66.66; 154.66 less 77.33 = 77.33. Tax per rule
        // on the halved sums: 50.00 x 19 % = 9.50, 16.67 (16.665) x 7 % = 1.17 (1.1669).
        {"50", "50", "66.66", "77.33", "10.67", "0.5"},
        // A third: 66.67 percent deducted. 133.33 x 0.6667 = 88.89 (88.8867): 44.44;
        // 154.66 x 0.6667 = 103.11 (103.1067): 51.55. Tax: 33.33 x 19 % = 6.33 (6.3327),
        // 11.11 x 7 % = 0.78 (0.7777).
        {"1/3", nullptr, "44.44", "51.55", "7.11", nullptr},
        // A portion that can't be computed deducts everything and scales the table to 0.
        {"abc", "100", "0", "0", "0", "0"},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.portion);
        BLInvoice* invoice = twoRateInvoice();
        ASSERT_EQ(invoice->costWithTaxes(), dec("154.66"));
        BLPartialInvoice* partial = partialOf(invoice, row.portion);
        const Decimal third = Decimal(1) / Decimal(3);
        EXPECT_EQ(partial->partialInvoicePercentage(),
                  row.percentage != nullptr ? dec(row.percentage) : Decimal::hundred() - third * Decimal::hundred());
        EXPECT_EQ(partial->cost(), dec(row.cost));
        EXPECT_EQ(partial->costWithTaxes(), dec(row.costWithTaxes));
        EXPECT_EQ(partial->tax(), dec(row.tax));
        EXPECT_EQ(partial->ratioForMetrics(), row.ratio != nullptr ? dec(row.ratio) : third);
        // Once the final invoice is issued its sums stand alone in the metrics.
        invoice->setDateSent(Date(700000000.0));
        EXPECT_EQ(partial->ratioForMetrics(), Decimal());
    }
}

TEST_F(PartialInvoiceTotalsTest, DraftFollowsChangesOfTheFinalInvoice) {
    BLInvoice* invoice = invoiceIn("EUR");
    BLCost* line = addCost(invoice, "40");
    BLPartialInvoice* partial = partialOf(invoice, "25");
    EXPECT_EQ(partial->costWithTaxes(), dec("10.00"));
    // 3 x 40 = 120, a quarter 30: the cached share is dropped with the invoice's.
    line->setQuantity(dec("3"));
    EXPECT_EQ(partial->cost(), dec("30.00"));
    EXPECT_EQ(partial->costWithTaxes(), dec("30.00"));
    partial->setPartialPortion(std::string("50"));
    partial->resetCaches();
    EXPECT_EQ(partial->costWithTaxes(), dec("60.00"));
}

TEST_F(PartialInvoiceTotalsTest, DraftRoundsThePayableShareInTheInvoiceCurrency) {
    // CHF 10.00 untaxed, a third: 10.00 less 6.67 (6.6667) = 3.33, payable 3.35.
    BLInvoice* invoice = invoiceIn("CHF");
    addCost(invoice, "10.00");
    BLPartialInvoice* partial = partialOf(invoice, "1/3");
    EXPECT_EQ(partial->cost(), dec("3.33"));
    EXPECT_EQ(partial->costWithTaxes(), dec("3.35"));
}

TEST_F(PartialInvoiceTotalsTest, OwnItemsAreTotalledThroughTheScaledTaxTable) {
    struct Row {
        const char* name;
        bool gross;
        const char* price;
        const char* cost;
        const char* costWithTaxes;
    };
    const Row rows[] = {
        // Net: 100 at 19 % halved is 50.00 with 9.50 tax; the untaxed 20 is in no table
        // row and so billed by no portion: cost 50.00, gross 59.50.
        {"net", false, "100", "50.00", "59.50"},
        // Gross: 119 halved is 59.50 payable holding 59.50 / 119 x 19 = 9.50 of tax. The
        // sendable's rule counts the untaxed 20 too: (139 less 50 %) = 69.50, less 9.50.
        {"gross", true, "119", "60.00", "59.50"},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        BLInvoice* invoice = invoiceIn("EUR");
        BLPartialInvoice* partial = partialOf(invoice, "50");
        partial->setUseGrossPrices(row.gross);
        addCost(partial, row.price)->setTaxRule(ruleAt("19"));
        addCost(partial, "20");
        // The final invoice's own (empty) lines no longer matter.
        EXPECT_EQ(partial->itemsForTotal().size(), 2u);
        EXPECT_EQ(partial->tax(), dec("9.50"));
        EXPECT_EQ(partial->cost(), dec(row.cost));
        EXPECT_EQ(partial->costWithTaxes(), dec(row.costWithTaxes));
    }
}

TEST_F(PartialInvoiceTotalsTest, FinalInvoiceMetricsLeaveOutIssuedInstalments) {
    // 100 at 19 %: cost 100, tax 19.00, gross 119.00. The issued third bills cost 33.33
    // (100 less 66.67), gross 39.67 (119 less 79.33) and tax 6.33 (33.33 x 19 %); the
    // open half counts nowhere yet.
    BLInvoice* invoice = invoiceIn("EUR");
    addCost(invoice, "100")->setTaxRule(ruleAt("19"));
    BLPartialInvoice* third = partialOf(invoice, "1/3");
    third->setDateSent(Date(700000000.0));
    partialOf(invoice, "50");
    EXPECT_EQ(third->amountForMetrics(), dec("39.67"));
    struct Row {
        const char* key;
        const char* value;
    };
    const Row rows[] = {
        {"amountForMetrics", "79.33"},        // 119.00 - 39.67
        {"netAmountForMetrics", "66.67"},     // 100 - 33.33
        {"grossAmountForMetrics", "119.00"},  // not reduced
        {"taxAmountForMetrics", "12.66"},     // 79.33 - 66.67
        {"exportTaxesAmount", "12.67"},       // 19.00 - 6.33
        {"costForCashDiscount", "119.00"},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.key);
        EXPECT_EQ(invoice->valueForKey(row.key).toDecimal(), dec(row.value));
    }
    // Cash discounts are offered on the final invoice, never on an instalment.
    EXPECT_EQ(third->valueForKey("costForCashDiscount").toDecimal(), Decimal());
}

TEST_F(PartialInvoiceTotalsTest, MetricsTaxTableLeavesOutIssuedInstalmentsPerRule) {
    // 100 at 19 % and 100 at 7 %. The issued third bills 33.33 per rule with 6.33 (6.3327)
    // and 2.33 (2.3331) of tax; the invoice keeps 66.67 with 12.67 and 66.67 with 4.67.
    BLInvoice* invoice = invoiceIn("EUR");
    addCost(invoice, "100")->setTaxRule(ruleAt("19"));
    addCost(invoice, "100")->setTaxRule(ruleAt("7"));
    EXPECT_EQ(taxDictionaryForMetrics(*invoice).front().tax(), dec("19.00"));
    BLPartialInvoice* third = partialOf(invoice, "1/3");
    partialOf(invoice, "50");  // open: not deducted
    third->setDateSent(Date(700000000.0));
    std::vector<BLTaxCalculator> table = taxDictionaryForMetrics(*invoice);
    ASSERT_EQ(table.size(), 2u);
    EXPECT_EQ(table[0].amount, dec("66.67"));
    EXPECT_EQ(table[0].tax(), dec("12.67"));
    EXPECT_EQ(table[1].amount, dec("66.67"));
    EXPECT_EQ(table[1].tax(), dec("4.67"));
    // The instalment's own table is its plain one.
    std::vector<BLTaxCalculator> own = taxDictionaryForMetrics(*third);
    ASSERT_EQ(own.size(), 2u);
    EXPECT_EQ(own[0].tax(), dec("6.33"));
}

// Lines count in metrics at their invoice's share. A draft half instalment with its own
// line of 3 x 33.33 (no tax): cost 99.99, so amountForMetrics 49.995 (a line's cost at the
// share, unrounded), netAmountForMetrics 50.00 (rounded in EUR), finalRate 49.995 / 3 =
// 16.665, 16.67. The same line on a plain invoice counts whole; without quantity no rate.
TEST_F(PartialInvoiceTotalsTest, LinesCountInMetricsAtTheirInvoicesShare) {
    BLInvoice* invoice = invoiceIn("EUR");
    addCost(invoice, "100");
    BLPartialInvoice* half = partialOf(invoice, "50");
    BLCost* line = addCost(half, "33.33", "3");
    struct Row {
        const char* key;
        const char* value;
    };
    const Row rows[] = {
        {"ratioForMetrics", "0.5"},       {"amountForMetrics", "49.995"}, {"grossAmountForMetrics", "49.995"},
        {"netAmountForMetrics", "50.00"}, {"finalRate", "16.67"},         {"costInNativeCurrency", "99.99"},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.key);
        EXPECT_EQ(line->valueForKey(row.key).toDecimal(), dec(row.value));
    }
    BLCost* whole = addCost(invoice, "33.33", "3");
    EXPECT_EQ(whole->valueForKey("netAmountForMetrics").toDecimal(), dec("99.99"));
    EXPECT_EQ(whole->valueForKey("finalRate").toDecimal(), dec("33.33"));
    EXPECT_EQ(addCost(invoice, "10", "0")->valueForKey("finalRate").toDecimal(), Decimal());
}

}  // namespace
}  // namespace brassline
