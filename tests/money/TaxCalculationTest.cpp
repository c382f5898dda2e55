#include <vector>

#include "TaxTestSupport.h"

namespace brassline {
namespace {

class TaxCalculationTest : public TaxFixture {};

struct SlotRow {
    int16_t mode1;
    const char* value1;
    int16_t mode2;
    const char* value2;
    int16_t mode3;
    const char* value3;
    const char* amount;
    const char* net;    // calculateTaxForAmount with details (slots to cents)
    const char* exact;  // the same without details
    const char* gross;  // calculateIncludedTaxForAmount, no currency (cents)
};

std::string describeSlots(const SlotRow& row) {
    auto slot = [](int16_t mode, const char* value) {
        return std::to_string(mode) + "/" + (value != nullptr ? value : "-");
    };
    return slot(row.mode1, row.value1) + " " + slot(row.mode2, row.value2) + " " + slot(row.mode3, row.value3) +
           " on " + row.amount;
}

TEST_F(TaxCalculationTest, EveryModeAndSlotInNetAndGrossMode) {
    const SlotRow rows[] = {
        // 19 % of 100 = 19; included in 119: 119 ÷ 119 × 19 = 19.
        {1, "19", 0, nullptr, 0, nullptr, "100", "19", "19", "15.97"},
        {1, "19", 0, nullptr, 0, nullptr, "119", "22.61", "22.61", "19"},
        // Slot 1 off: nothing, whatever slot 2 holds.
        {0, "19", 1, "7", 1, "1", "100", "0", "0", "0"},
        // Mode 1 twice: 5 + 10. Gross: 100 ÷ 105 × 5 = 4.7619 → 4.76; 100 ÷ 110 × 10 = 9.0909 → 9.09.
        {1, "5", 1, "10", 0, nullptr, "100", "15", "15", "13.85"},
        // Mode 2: 10 % of 105 = 10.50. Gross: slot 2 on 104.76: 104.76 ÷ 110 × 10 = 9.5236 → 9.52.
        {1, "5", 2, "10", 0, nullptr, "100", "15.5", "15.5", "14.28"},
        // Mode 3 in slot 3 taxes base + slot 1: 1 % of 105 = 1.05. Gross: 4.76 + 9.09 +
        // 104.76 ÷ 101 × 1 = 1.0372 → 1.04.
        {1, "5", 1, "10", 3, "1", "100", "16.05", "16.05", "14.89"},
        // Mode 2 in slot 3: 1 % of 115.5 = 1.155 → 1.16 with details, exact without.
        // Gross: 4.76 + 9.52 + (104.76 + 9.52) ÷ 101 × 1 = 1.1314 → 1.13.
        {1, "5", 2, "10", 2, "1", "100", "16.66", "16.655", "15.41"},
        // Slot 2 off: slot 3 is not read.
        {1, "5", 0, "10", 1, "1", "100", "5", "5", "4.76"},
        // Slot 2 with mode 3 taxes nothing but keeps slot 3 readable.
        {1, "5", 3, "10", 1, "1", "100", "6", "6", "5.75"},
        // Cents: 19 % of 0.03 = 0.0057 → 0.01; included 0.03 ÷ 119 × 19 = 0.0048 → 0.
        {1, "19", 0, nullptr, 0, nullptr, "0.03", "0.01", "0.0057", "0"},
        // Negative percentages: the tax of the same size, negative.
        {1, "-19", 0, nullptr, 0, nullptr, "100", "-19", "-19", "-15.97"},
        {1, "-19", 0, nullptr, 0, nullptr, "119", "-22.61", "-22.61", "-19"},
        // A negative amount.
        {1, "19", 0, nullptr, 0, nullptr, "-119", "-22.61", "-22.61", "-19"},
        // An absent percentage taxes nothing in its slot.
        {1, nullptr, 1, "10", 0, nullptr, "100", "10", "10", "9.09"},
    };
    for (const SlotRow& row : rows) {
        SCOPED_TRACE(describeSlots(row));
        BLTaxRule* taxRule = rule(row.mode1, row.value1, row.mode2, row.value2, row.mode3, row.value3);
        std::vector<BLTaxDetails> details;
        EXPECT_EQ(taxRule->calculateTaxForAmount(dec(row.amount), &details, nullptr).toString(), row.net);
        EXPECT_EQ(taxRule->calculateTaxForAmount(dec(row.amount), nullptr, nullptr).toString(), row.exact);
        std::vector<BLTaxDetails> grossDetails;
        EXPECT_EQ(taxRule->calculateIncludedTaxForAmount(dec(row.amount), &grossDetails, nullptr).toString(),
                  row.gross);
        Decimal sum;
        for (const BLTaxDetails& slot : details) {
            sum += slot.tax;
        }
        EXPECT_EQ(sum.toString(), row.net);
        EXPECT_EQ(details.size(), grossDetails.size());
    }
}

TEST_F(TaxCalculationTest, DetailsNameEachSlotWithItsBase) {
    BLTaxRule* taxRule = rule(1, "5", 2, "10", 3, "1");
    auto* taxGroup = insert<BLTaxGroup>();
    taxGroup->setShortName(std::string("A"));
    taxRule->setTaxGroup(taxGroup);
    std::vector<BLTaxDetails> details;
    taxRule->calculateTaxForAmount(dec("100"), &details, nullptr);
    ASSERT_EQ(details.size(), 3u);
    // Bases: 100, 100 + 5, and for mode 3 again 100 + 5.
    const char* names[] = {"tax1", "tax2", "tax3"};
    const char* bases[] = {"100", "105", "105"};
    const char* taxes[] = {"5", "10.5", "1.05"};
    for (size_t index = 0; index < 3; ++index) {
        SCOPED_TRACE(index);
        EXPECT_EQ(details[index].name, names[index]);
        EXPECT_EQ(details[index].shortName, "A");
        EXPECT_EQ(details[index].amount.toString(), bases[index]);
        EXPECT_EQ(details[index].tax.toString(), taxes[index]);
    }
}

TEST_F(TaxCalculationTest, IncludedTaxRoundsAsPayableInTheDocumentCurrency) {
    BLTaxRule* taxRule = rule(1, "19");
    struct Row {
        const char* code;
        const char* amount;
        const char* tax;
    };
    const Row rows[] = {
        // 10.20 ÷ 119 × 19 = 1.6286: cents in euros, 0.05 in francs, whole yen.
        {"EUR", "10.20", "1.63"},
        {"CHF", "10.20", "1.65"},
        {"JPY", "1020", "163"},
        // A noRounding currency keeps the digits of the gross amount: 10.2 has one.
        {"BTC", "10.2", "1.6"},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(std::string(row.code) + " " + row.amount);
        BLInvoice* document = invoice(row.code, true);
        EXPECT_EQ(taxRule->calculateIncludedTaxForAmount(dec(row.amount), nullptr, document).toString(), row.tax);
    }
}

TEST_F(TaxCalculationTest, TotalPercentageStaysExact) {
    EXPECT_EQ(rule(1, "19")->totalPercentageForDocument(nullptr).toString(), "19");
    EXPECT_EQ(rule(1, "5", 2, "10", 2, "1")->totalPercentageForDocument(nullptr).toString(), "16.655");
    EXPECT_EQ(rule(0, "19", 1, "7")->totalPercentageForDocument(nullptr).toString(), "0");
}

TEST_F(TaxCalculationTest, DocumentDiscountAndModeDecideTheTaxOfASum) {
    BLTaxRule* taxRule = rule(1, "19");
    struct Row {
        const char* code;
        bool gross;
        const char* discount;  // nullptr: none
        const char* amount;
        const char* afterDiscount;
        const char* tax;
    };
    const Row rows[] = {
        // 100 less 10 % = 90; 19 % of 90 = 17.10.
        {"EUR", false, "10", "100", "90", "17.1"},
        // Discount 3 % of 33.33 = 0.9999 → 1.00, so 32.33; tax 6.1427 → 6.14.
        {"EUR", false, "3", "33.33", "32.33", "6.14"},
        // Gross mode: 119 less 10 % = 107.10; included 107.10 ÷ 119 × 19 = 17.10.
        {"EUR", true, "10", "119", "107.1", "17.1"},
        // Francs: 10.12 → 10.10 payable; 19 % = 1.919 → 1.92.
        {"CHF", false, nullptr, "10.12", "10.1", "1.92"},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(std::string(row.code) + " " + row.amount);
        BLInvoice* document = invoice(row.code, row.gross);
        if (row.discount != nullptr) {
            document->setDiscount(dec(row.discount));
        }
        EXPECT_EQ(BLTaxRule::amountAfterDiscount(dec(row.amount), document).toString(), row.afterDiscount);
        EXPECT_EQ(taxRule->taxForAmount(dec(row.amount), document).toString(), row.tax);
    }
}

TEST_F(TaxCalculationTest, PercentageHelpersRoundWithADocument) {
    BLInvoice* document = invoice("EUR");
    // 3 % of 33.33 = 0.9999 → 1.
    EXPECT_EQ(decimalNumberByDeductingPercentage(dec("33.33"), dec("3"), document).toString(), "32.33");
    EXPECT_EQ(decimalNumberByAddingPercentage(dec("33.33"), dec("3"), document).toString(), "34.33");
    EXPECT_EQ(decimalNumberCalculatePercentage(dec("33.33"), Decimal::notANumber(), nullptr).toString(), "0");
}

TEST_F(TaxCalculationTest, NamesRatesCategoriesAndExemptions) {
    struct Row {
        int16_t mode1;
        int16_t mode2;
        int16_t mode3;
        const char* exemption;
        const char* names;
        const char* rates;
        const char* category;
    };
    const Row rows[] = {
        {1, 0, 0, nullptr, "tax1", "19", "S"},
        {1, 1, 0, nullptr, "tax1, tax2", "19+7", "S"},
        {1, 2, 3, nullptr, "tax1, tax2, tax3", "19+7+1", "S"},
        // Slot 2 off hides slot 3.
        {1, 0, 1, nullptr, "tax1", "19", "S"},
        {0, 1, 1, nullptr, "", "0", "E"},
        {0, 0, 0, "vatex-eu-ae", "", "0", "AE"},
        {0, 0, 0, "vatex-eu-o", "", "0", "O"},
        {0, 0, 0, "vatex-eu-ic", "", "0", "K"},
        {0, 0, 0, "vatex-eu-g", "", "0", "G"},
        {0, 0, 0, "vatex-eu-132-1a", "", "0", "E"},
        // A taxed rule is standard whatever code it still carries.
        {1, 0, 0, "vatex-eu-ae", "tax1", "19", "S"},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(std::string(row.names) + " " + (row.exemption ? row.exemption : ""));
        BLTaxRule* taxRule = rule(row.mode1, "19", row.mode2, "7", row.mode3, "1");
        if (row.exemption != nullptr) {
            taxRule->setTaxExemptionCode(std::string(row.exemption));
        }
        EXPECT_EQ(taxRule->taxNames(), row.names);
        EXPECT_EQ(taxRule->taxRates(), row.rates);
        EXPECT_EQ(taxRule->taxCategoryCode(), row.category);
        EXPECT_EQ(taxRule->showTaxExemptions(), row.mode1 == 0);
    }
    EXPECT_EQ(rule(1, "19", 1, "7.5")->tableInfo(), "19% + 7.5%");

    auto exemptions = BLTaxRule::taxExemptions();
    ASSERT_TRUE(exemptions.has_value());
    ASSERT_FALSE(exemptions->empty());
    // Listed last first: the file ends with the French credit-note code.
    EXPECT_EQ(exemptions->front().at("value").toString(), "vatex-fr-cnwvat");
    EXPECT_EQ(exemptions->back().at("value").toString(), "vatex-eu-79-c");
    EXPECT_NE(exemptions->front().at("name").toString().find("(vatex-fr-cnwvat)"), std::string::npos);
}

}  // namespace
}  // namespace brassline
