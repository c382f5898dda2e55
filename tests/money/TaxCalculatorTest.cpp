#include <vector>

#include "TaxTestSupport.h"
#include "model/entities/BLPartialInvoice.h"
#include "money/BLTaxCalculator.h"

namespace brassline {
namespace {

class TaxCalculatorTest : public TaxFixture {
protected:
    BLCost* taxedLine(BLInvoice* document, BLTaxRule* taxRule, const char* price) {
        BLCost* cost = line(document, nullptr, price);
        cost->setTaxRule(taxRule);
        return cost;
    }
};

TEST_F(TaxCalculatorTest, TaxComesFromTheSumPerRuleNotFromTheLines) {
    BLTaxRule* standard = rule(1, "19");
    BLTaxRule* reduced = rule(1, "7");
    BLInvoice* document = invoice("EUR");
    BLCost* first = taxedLine(document, standard, "0.03");
    BLCost* second = taxedLine(document, standard, "0.03");
    taxedLine(document, reduced, "10");
    // A line without a rule is taxed nowhere.
    line(document, nullptr, "100");

    // Each line alone: 19 % of 0.03 = 0.0057 → 0.01.
    EXPECT_EQ(first->lineTaxes().toString(), "0.01");
    EXPECT_EQ(second->lineTaxes().toString(), "0.01");
    std::vector<BLTaxCalculator> table = taxDictionary(*document);
    ASSERT_EQ(table.size(), 2u);
    // Summed first: 19 % of 0.06 = 0.0114 → 0.01, where the lines make 0.02.
    EXPECT_EQ(table[0].taxRule, standard);
    EXPECT_EQ(table[0].amount.toString(), "0.06");
    EXPECT_EQ(table[0].tax().toString(), "0.01");
    EXPECT_EQ(table[1].tax().toString(), "0.7");
    EXPECT_EQ(totalTax(table).toString(), "0.71");
    // Asking again neither recomputes nor appends slot records.
    EXPECT_EQ(table[0].tax().toString(), "0.01");
    EXPECT_EQ(table[0].details.size(), 1u);
}

TEST_F(TaxCalculatorTest, NetAndGrossByPriceModeAfterDiscount) {
    struct Row {
        bool gross;
        const char* discount;
        const char* amount;
        const char* net;
        const char* tax;
        const char* total;
    };
    const Row rows[] = {
        // Net prices: 200 less 5 % = 190; 19 % = 36.10.
        {false, "5", "200", "190", "36.1", "226.1"},
        // Gross prices: 238 less 5 % = 226.10, of which 36.10 is tax.
        {true, "5", "238", "190", "36.1", "226.1"},
        // No discount; negative sums (credit notes) mirror the figures.
        {false, nullptr, "-100", "-100", "-19", "-119"},
        {true, nullptr, "-119", "-100", "-19", "-119"},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(std::string(row.gross ? "gross " : "net ") + row.amount);
        BLInvoice* document = invoice("EUR", row.gross);
        if (row.discount != nullptr) {
            document->setDiscount(dec(row.discount));
        }
        BLTaxCalculator calculator = BLTaxCalculator::taxCalculatorWithRule(rule(1, "19"), document);
        calculator.amount = dec(row.amount);
        EXPECT_EQ(calculator.net().toString(), row.net);
        EXPECT_EQ(calculator.tax().toString(), row.tax);
        EXPECT_EQ(calculator.gross().toString(), row.total);
    }
}

TEST_F(TaxCalculatorTest, RatiosShareTheDiscountedOrRawSum) {
    BLTaxRule* taxRule = rule(1, "19");
    BLInvoice* document = invoice("EUR");
    document->setDiscount(dec("10"));
    BLTaxCalculator whole = BLTaxCalculator::taxCalculatorWithRule(taxRule, document);
    whole.amount = dec("333.33");
    // After discount: 333.33 − 33.33 = 300; tax 57.
    ASSERT_EQ(whole.amountAfterDiscount().toString(), "300");

    // A third with no document: 100 and a carried tax of 57 ÷ 3 = 19.
    BLTaxCalculator third = whole.taxCalculatorWithRatio(dec("0.3333333"));
    EXPECT_EQ(third.amount.toString(), "100");
    EXPECT_EQ(third.tax().toString(), "19");

    // Into another invoice: the discounted share, taxed there (no discount of its own).
    BLInvoice* other = invoice("EUR");
    BLTaxCalculator share = whole.taxCalculatorWithRatio(dec("0.5"), other);
    EXPECT_EQ(share.amount.toString(), "150");
    EXPECT_EQ(share.tax().toString(), "28.5");

    // A partial invoice takes the raw sum and applies the discount itself.
    auto* partial = insert<BLPartialInvoice>();
    partial->setCurrency(currency("EUR"));
    BLTaxCalculator part = whole.taxCalculatorWithRatio(dec("0.5"), partial);
    EXPECT_EQ(part.amount.toString(), "166.67");

    // Not-a-number counts as 0.
    EXPECT_EQ(whole.taxCalculatorWithRatio(Decimal::notANumber()).amount.toString(), "0");
}

TEST_F(TaxCalculatorTest, InterchangeRecordAndSummarizer) {
    BLTaxRule* taxRule = rule(1, "5", 2, "10");
    taxRule->setTaxExemptionCode(std::string("vatex-eu-ae"));
    BLTaxCalculator calculator = BLTaxCalculator::taxCalculatorWithRule(taxRule, invoice("CHF"));
    calculator.amount = dec("100");
    Value::Dictionary record = calculator.interchangeDictionary();
    // 5 % + 10 % of 105 = 15.50 on 100.
    EXPECT_EQ(record.at("net").toString(), "100");
    EXPECT_EQ(record.at("tax").toString(), "15.5");
    EXPECT_EQ(record.at("taxAsString").toString(), "15.5");
    EXPECT_EQ(record.at("gross").toString(), "115.5");
    EXPECT_EQ(record.at("rate").toString(), "15.5");
    EXPECT_EQ(record.at("taxPercentage").toString(), "15.5");
    EXPECT_EQ(record.at("name").toString(), "tax1, tax2");
    EXPECT_EQ(record.at("taxExemptionCode").toString(), "vatex-eu-ae");
    EXPECT_EQ(record.at("taxCategoryCode").toString(), "S");
    EXPECT_EQ(record.at("currency").toString(), "CHF");

    BLTaxSummarizer summary;
    EXPECT_EQ(summary.net().toString(), "0");
    summary.addNet(dec("-5"));
    summary.addNet(dec("7.5"));
    summary.addTax(dec("1.25"));
    EXPECT_EQ(summary.net().toString(), "2.5");
    EXPECT_EQ(summary.tax().toString(), "1.25");
    EXPECT_EQ(summary.gross().toString(), "0");
}

}  // namespace
}  // namespace brassline
