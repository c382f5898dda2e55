#include <string>

#include <gtest/gtest.h>

#include "../model/EntityFixture.h"
#include "core/ValueTransformers.h"
#include "lifecycle/LayoutScriptHooks.h"
#include "model/entities/BLClient.h"
#include "model/entities/BLPartialInvoice.h"
#include "plugins/PluginHooks.h"

namespace brassline {
namespace {

class PluginHooksTest : public EntityFixture {
protected:
    void SetUp() override {
        EntityFixture::SetUp();
        installPluginHooks();
    }
    void TearDown() override {
        setNumberFormulaEvaluator(nullptr);
        resetLayoutScriptHooks();
        EntityFixture::TearDown();
    }
    static Decimal dec(const char* text) { return *Decimal::parse(text); }
};

TEST_F(PluginHooksTest, NumberFieldFormulasStayExactAndReachTheEngineOnlyBeyondArithmetic) {
    const NumberTransformer transformer(NumberStyle::Plain);
    struct Row {
        const char* text;
        const char* expected;
    };
    const Row rows[] = {
        // Plain arithmetic: exact decimals, 38 digits.
        {"1/3", "0.33333333333333333333333333333333333333"},
        {"0.1 + 0.2", "0.3"},
        // Beyond arithmetic the engine answers.
        {"Math.round(2.5) * 4", "12"},
        {"Math.abs(-19.99)", "19.99"},
        {"Math.sqrt(16) / 8", "0.5"},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.text);
        const std::optional<Decimal> parsed = transformer.parse(row.text);
        ASSERT_TRUE(parsed.has_value());
        EXPECT_EQ(*parsed, dec(row.expected)) << parsed->toString();
    }
    // Text, an exception and a runaway loop answer nothing rather than a number.
    for (const char* text : {"'abc'", "nosuchname + 1", "while(true){}"}) {
        SCOPED_TRACE(text);
        EXPECT_FALSE(transformer.parse(text).has_value());
    }
}

TEST_F(PluginHooksTest, PartialInvoicePortionsThroughTheHost) {
    EXPECT_EQ(calculatedValue("1/3"), dec("0.33333333333333333333333333333333333333"));
    EXPECT_EQ(calculatedValue("50"), dec("0.5"));
    // The portion text reads a comma as a decimal mark, so engine calls take one argument.
    EXPECT_EQ(calculatedValue("Math.round(33.4)"), dec("0.33"));
    EXPECT_FALSE(calculatedValue("'text'").has_value());
}

TEST_F(PluginHooksTest, LayoutScriptsMathAndBackdrops) {
    auto* client = insert<BLClient>();
    client->setOrganization(std::string("Acme"));
    LayoutScriptHooks& hooks = layoutScriptHooks();
    ASSERT_TRUE(hooks.executeJavaScript);
    struct Row {
        const char* script;
        Value expected;
    };
    const Row rows[] = {
        {"brasslinerecord.organization + ' / ' + brassline_city", Value("Acme / Bern")},
        // A script that answers undefined runs again as a function returning `result`.
        {"var result = self.organization.toUpperCase();", Value("ACME")},
        {"({attributes: {hidden: true}, extra: 'x'})",
         Value(Value::Dictionary{{"attributes", Value(Value::Dictionary{{"hidden", Value(true)}})},
                                 {"extra", Value("x")}})},
        {"throw new Error('no')", Value()},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.script);
        EXPECT_EQ(hooks.executeJavaScript(row.script, client, {{"city", Value("Bern")}}), row.expected);
    }
    EXPECT_EQ(hooks.evaluateMath("2.50 * 3"), "7.5");
    EXPECT_EQ(hooks.evaluateMath("Math.floor(7.9)"), "7");
    EXPECT_FALSE(hooks.evaluateMath("undefined").has_value());
    EXPECT_EQ(hooks.createSVG("function createSVG(w, h) { return '<svg width=\"' + w + '\" height=\"' + h + '\"/>'; }",
                              595, 842),
              "<svg width=\"595\" height=\"842\"/>");
    EXPECT_FALSE(hooks.createSVG("function createSVG() { return 3; }", 1, 1).has_value());
    EXPECT_FALSE(hooks.createSVG("syntax error here", 1, 1).has_value());
}

TEST_F(PluginHooksTest, TheModelReadsInterchangeRecordsThroughItsHook) {
    auto* client = insert<BLClient>();
    client->setCity(std::string("Bern"));
    ASSERT_TRUE(modelHooks().interchangeRecord);
    const std::optional<Value::Dictionary> record = modelHooks().interchangeRecord(*client);
    ASSERT_TRUE(record.has_value());
    EXPECT_EQ(record->at("city"), Value("Bern"));
}

}  // namespace
}  // namespace brassline
