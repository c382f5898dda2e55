#include <gtest/gtest.h>

#include "core/DecimalFormula.h"

namespace brassline {

TEST(DecimalFormulaTest, EvaluatesInExactDecimalsWithPrecedence) {
    struct Case {
        const char* formula;
        const char* expected;
    };
    // Worked out by hand; 0.1 + 0.2 is exactly 0.3 in decimal, unlike binary floating point.
    const Case cases[] = {
        {"0.1 + 0.2", "0.3"},  {"19.99 * 3", "59.97"}, {"2 + 3 * 4", "14"},
        {"(2 + 3) * 4", "20"}, {"10 - 4 - 3", "3"},    {"100 / 8 / 5", "2.5"},
        {"-(1.5 - 2)", "0.5"}, {"--2", "2"},           {"+3 * -2", "-6"},
        {"1e3 / 4", "250"},    {" 7 ", "7"},           {"1 / 3 * 3", "0.99999999999999999999999999999999999999"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.formula);
        std::optional<Decimal> result = evaluateDecimalFormula(c.formula);
        ASSERT_TRUE(result.has_value());
        EXPECT_EQ(result->toString(), c.expected);
    }
}

TEST(DecimalFormulaTest, DivisionByZeroIsNotANumberNotAnError) {
    std::optional<Decimal> result = evaluateDecimalFormula("5 / (2 - 2)");
    ASSERT_TRUE(result.has_value());
    EXPECT_TRUE(result->isNaN());
}

TEST(DecimalFormulaTest, MalformedFormulasAnswerAReasonWithPosition) {
    struct Case {
        const char* formula;
        const char* error;
    };
    const Case cases[] = {
        {"", "unexpected end of formula at position 1"}, {"1 +", "unexpected end of formula at position 4"},
        {"(1 + 2", "missing ')' at position 7"},         {"1 + 2)", "unexpected ')' at position 6"},
        {"2 * x", "expected a number at position 5"},    {"1.2.3", "malformed number '1.2.3' at position 1"},
        {"3 4", "unexpected '4' at position 3"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.formula);
        std::string error;
        EXPECT_FALSE(evaluateDecimalFormula(c.formula, &error).has_value());
        EXPECT_EQ(error, c.error);
    }
}

TEST(DecimalFormulaTest, DeepNestingIsRefusedWithoutExhaustingTheStack) {
    std::string formula(100000, '(');
    formula += "1";
    std::string error;
    EXPECT_FALSE(evaluateDecimalFormula(formula, &error).has_value());
    EXPECT_NE(error.find("nested too deeply"), std::string::npos);
    std::string minus(100000, '-');
    EXPECT_FALSE(evaluateDecimalFormula(minus + "1", &error).has_value());
}

}  // namespace brassline
