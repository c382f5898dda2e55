#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "../money/TaxTestSupport.h"
#include "model/FetchRequest.h"
#include "money/ItemHooks.h"
#include "plugins/BLJSContext.h"
#include "plugins/BLJSLogger.h"

namespace brassline {
namespace {

namespace fs = std::filesystem;

class ScriptHostTest : public TaxFixture {
protected:
    void SetUp() override {
        TaxFixture::SetUp();
        installItemHooks();
        BLJSLogger::sharedLogger().reset("test.plugin");
    }
    void TearDown() override {
        m_script.reset();
        TaxFixture::TearDown();
    }
    BLJSContext& script() {
        if (!m_script) {
            m_script = std::make_unique<BLJSContext>();
            m_script->setupForPlugin({{"uid", Value("test.plugin")}, {"type", Value("Test")}}, &context());
        }
        return *m_script;
    }
    size_t countOf(const std::string& entity) { return context().executeFetchRequest(FetchRequest(entity))->size(); }
    std::unique_ptr<BLJSContext> m_script;
};

TEST_F(ScriptHostTest, ValuesCrossBothWaysWithoutLoss) {
    BLJSContext bare;
    struct Row {
        const char* script;
        Value expected;
        bool undefined;
    };
    const Row rows[] = {
        {"1 + 2", Value(int64_t{3}), false},
        // The number a script computed arrives as the decimal of its shortest text.
        {"0.1 + 0.2", Value(*Decimal::parse("0.30000000000000004")), false},
        {"0.1", Value(*Decimal::parse("0.1")), false},
        // Text stays text, digit for digit.
        {"'0.30000000000000000000000000001'", Value("0.30000000000000000000000000001"), false},
        {"null", Value(), false},
        {"undefined", Value(), true},
        {"'Grüße ✓ 😀'", Value("Grüße ✓ 😀"), false},
        {"[1, 'a', true]", Value(Value::Array{Value(int64_t{1}), Value("a"), Value(true)}), false},
        {"({b: 1, a: {c: 'x'}})",
         Value(Value::Dictionary{{"a", Value(Value::Dictionary{{"c", Value("x")}})}, {"b", Value(int64_t{1})}}), false},
        {"new Date(Date.UTC(2001, 0, 1, 0, 0, 10))", Value(Date(10.0)), false},
        {"1e308 * 10", Value(std::numeric_limits<double>::infinity()), false},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.script);
        const Value result = bare.evaluateScript(row.script);
        EXPECT_TRUE(bare.lastOutcome().succeeded());
        EXPECT_EQ(bare.lastOutcome().isUndefined, row.undefined);
        EXPECT_EQ(result, row.expected) << result.description();
    }
    // And into the engine: a decimal, a date, bytes and nested records come back equal.
    const Value nested(Value::Dictionary{{"amount", Value(*Decimal::parse("19.99"))},
                                         {"when", Value(Date(86400.0))},
                                         {"data", Value(Bytes{0, 1, 255})},
                                         {"list", Value(Value::Array{Value("x"), Value()})}});
    bare.setObjectForKeyedSubscript(nested, "input");
    EXPECT_EQ(bare.evaluateScript("input"), nested);
    EXPECT_EQ(bare.evaluateScript("input.when instanceof Date && input.amount === 19.99"), Value(true));
}

TEST_F(ScriptHostTest, ExceptionsReportTheirLine) {
    const Value result = script().evaluateScript("var a = 1;\nvar b = 2;\nnull.x;\n");
    EXPECT_TRUE(result.isNull());
    EXPECT_EQ(script().lastOutcome().kind, ScriptOutcome::Kind::Exception);
    EXPECT_EQ(script().lastOutcome().line, 3);
    EXPECT_NE(script().lastOutcome().message.find("TypeError"), std::string::npos);
    const std::vector<std::string> log = BLJSLogger::sharedLogger().entries("test.plugin");
    ASSERT_FALSE(log.empty());
    EXPECT_EQ(log.back().rfind("Line 3: TypeError", 0), 0u) << log.back();

    script().evaluateScript("function f() {\n  throw new Error('boom');\n}\nf();");
    EXPECT_EQ(script().lastOutcome().line, 2);
    EXPECT_EQ(script().lastOutcome().message, "Error: boom");
    script().evaluateScript("this is not javascript");
    EXPECT_EQ(script().lastOutcome().kind, ScriptOutcome::Kind::Exception);
    EXPECT_EQ(script().lastOutcome().line, 1);
}

TEST_F(ScriptHostTest, ATimeLimitStopsARunawayScriptAndKeepsTheDocument) {
    script().setTimeLimit(0.3);
    const size_t clientsBefore = countOf("Client");
    script().evaluateScript("insertRecord('Client').name = 'Runaway'; while (true) {}");
    EXPECT_EQ(script().lastOutcome().kind, ScriptOutcome::Kind::TimedOut);
    EXPECT_EQ(countOf("Client"), clientsBefore);
    EXPECT_NE(BLJSLogger::sharedLogger().entries("test.plugin").back().find("stopped"), std::string::npos);
    // The context still works afterwards, on a fresh private context.
    EXPECT_EQ(script().evaluateScript("insertRecord('Client').name = 'Calm'; 6 * 7"), Value(int64_t{42}));
    EXPECT_EQ(countOf("Client"), clientsBefore + 1);
}

TEST_F(ScriptHostTest, AnExceptionLeavesNoHalfSavedState) {
    const size_t clientsBefore = countOf("Client");
    const size_t invoicesBefore = countOf("Invoice");
    script().evaluateScript(
        "var c = insertRecord('Client'); c.organization = 'Half';\n"
        "var i = insertRecord('Invoice'); i.contact = c;\n"
        "c.save();\n"
        "undefinedFunction();");
    EXPECT_EQ(script().lastOutcome().kind, ScriptOutcome::Kind::Exception);
    EXPECT_EQ(countOf("Client"), clientsBefore);
    EXPECT_EQ(countOf("Invoice"), invoicesBefore);
}

TEST_F(ScriptHostTest, AScriptMakesAClientAndAnInvoiceWithLinesAndReadsTheTotals) {
    BLTaxRule* standard = rule(1, "19");
    standard->setUid(std::string("rule-19"));
    // 3 x 33.33 = 99.99 and 0.5 x 80 = 40: net 139.99, tax 26.5981 rounded 26.60, gross 166.59.
    const Value totals = script().evaluateScript(R"JS(
        var client = insertRecord('Client');
        client.organization = 'Acme';
        client.city = 'Bern';
        var invoice = insertRecord('Invoice');
        invoice.contact = client;
        invoice.parentDocument = client;
        invoice.subject = 'Roof';
        var rule = fetchRecordWithUID('TaxRule', 'rule-19', false);
        [['Work', '33.33', '3'], ['Travel', 80, 0.5]].forEach(function (row) {
            var line = insertRecord('Cost');
            line.name = row[0];
            line.unitPrice = row[1];
            line.quantity = row[2];
            // The line takes its client's rule when it joins the invoice; ours comes after.
            line.parent = invoice;
            line.taxRule = rule;
        });
        var record = invoice.interchangeRecord();
        ({net: record.netAsString, tax: record.taxAsString, gross: record.grossAsString,
          lines: record.allItems.length, client: record.clientName})
    )JS");
    ASSERT_TRUE(script().lastOutcome().succeeded()) << script().lastOutcome().message;
    EXPECT_EQ(totals["net"], Value("139.99"));
    EXPECT_EQ(totals["tax"], Value("26.6"));
    EXPECT_EQ(totals["gross"], Value("166.59"));
    EXPECT_EQ(totals["lines"], Value(int64_t{2}));
    EXPECT_EQ(totals["client"], Value("Acme"));
    // Saved into the document's context at the run's end, with exact decimals.
    FetchRequest request("Invoice");
    request.setPredicateFormat("subject == 'Roof'");
    std::vector<ManagedObject*> invoices = *context().executeFetchRequest(request);
    ASSERT_EQ(invoices.size(), 1u);
    auto* invoice = static_cast<BLInvoice*>(invoices.front());
    EXPECT_EQ(invoice->costWithTaxes(), dec("166.59"));
    EXPECT_EQ(invoice->contact()->organization(), "Acme");
}

TEST_F(ScriptHostTest, DecimalsSurviveARoundTripThroughAScript) {
    BLInvoice* document = invoice("EUR");
    document->setUid(std::string("inv-1"));
    BLCost* cost = line(document, nullptr, "0.1");
    cost->setUid(std::string("line-1"));
    cost->setQuantity(dec("0.2"));
    script().evaluateScript(R"JS(
        var line = fetchRecordWithUID('Cost', 'line-1', true);
        var record = line.interchangeRecord();
        // The text form goes back as it came; a number is kept at its shortest text.
        line.unitPrice = record.rateAsString;
        line.discount = 0.1 + 0.2;
        line.weight = '12345678901234567890.123456789';
    )JS");
    ASSERT_TRUE(script().lastOutcome().succeeded()) << script().lastOutcome().message;
    EXPECT_EQ(cost->unitPrice(), dec("0.1"));
    EXPECT_EQ(cost->quantity(), dec("0.2"));
    EXPECT_EQ(cost->discount(), dec("0.30000000000000004"));
    EXPECT_EQ(cost->weight(), dec("12345678901234567890.123456789"));
}

TEST_F(ScriptHostTest, ReadOnlyRecordsKeepTheirObjectsAndEditableOnesWrite) {
    auto* client = insert<BLClient>();
    client->setUid(std::string("client-1"));
    client->setOrganization(std::string("Before"));
    script().evaluateScript(R"JS(
        var plain = fetchRecordWithUID('Client', 'client-1', false);
        plain.organization = 'Plain';
        plain.city = 'Nowhere';
    )JS");
    ASSERT_TRUE(script().lastOutcome().succeeded()) << script().lastOutcome().message;
    EXPECT_EQ(client->organization(), "Before");
    EXPECT_FALSE(client->city());
    script().evaluateScript(R"JS(
        var editable = fetchRecordWithUID('Client', 'client-1', true);
        editable.setCity('Zug');
        editable.setValue('After', 'organization');
        editable.setValueForCustomField('gold', 'Level');
        editable.editableRecord().zip = '6300';
    )JS");
    ASSERT_TRUE(script().lastOutcome().succeeded()) << script().lastOutcome().message;
    EXPECT_EQ(client->organization(), "After");
    EXPECT_EQ(client->city(), "Zug");
    EXPECT_EQ(client->zip(), "6300");
}

TEST_F(ScriptHostTest, AnIssuedDocumentAndItsLinesStayReadOnlyToScripts) {
    BLInvoice* issued = invoice();
    issued->setUid(std::string("issued-1"));
    issued->setSubject(std::string("Before"));
    BLCost* issuedLine = line(issued, nullptr, "10");
    issuedLine->setUid(std::string("issued-line"));
    issued->setDateSent(Date(700000000.0));
    BLInvoice* draft = invoice();
    draft->setUid(std::string("draft-1"));
    BLCost* draftLine = line(draft, nullptr, "5");
    draftLine->setUid(std::string("draft-line"));
    // Each script tries one change; a refused change only answers false, so every run ends
    // well and the state below shows which changes the model let through.
    const char* scripts[] = {
        "fetchRecordWithUID('Invoice', 'issued-1', true).subject = 'After';",
        "fetchRecordWithUID('Cost', 'issued-line', true).quantity = 7;",
        "fetchRecordWithUID('Cost', 'draft-line', true).parent = fetchRecordWithUID('Invoice', 'issued-1', true);",
        "fetchRecordWithUID('Cost', 'issued-line', true).delete();",
        "fetchRecordWithUID('Invoice', 'draft-1', true).subject = 'Draft after';",
    };
    for (const char* text : scripts) {
        SCOPED_TRACE(text);
        script().evaluateScript(text);
        ASSERT_TRUE(script().lastOutcome().succeeded()) << script().lastOutcome().message;
    }
    EXPECT_EQ(issued->subject(), "Before");
    EXPECT_EQ(issuedLine->quantity(), Decimal(1));
    EXPECT_FALSE(issuedLine->isDeleted());
    EXPECT_EQ(draftLine->parent(), draft);
    EXPECT_EQ(draft->subject(), "Draft after");
}

TEST_F(ScriptHostTest, QueriesFilterSortAndMap) {
    for (const char* name : {"Carla", "Anna", "Bert"}) {
        auto* client = insert<BLClient>();
        client->setName(std::string(name));
        client->setOrganization(std::string(name) + " AG");
    }
    const Value names = script().evaluateScript(
        "fetchRecords('Client').filter(\"name BEGINSWITH 'B' OR name BEGINSWITH 'C'\").sort('name')"
        ".valueForKeyPath('organization')");
    EXPECT_EQ(names, Value(Value::Array{Value("Bert AG"), Value("Carla AG")}));
    EXPECT_EQ(script().evaluateScript("fetchRecords('Client').sort(['name', false]).record().name"), Value("Carla"));
    // A predicate that does not read gives an empty query, not an exception.
    EXPECT_EQ(script().evaluateScript("fetchRecords('Client').filter('name ===').count()"), Value(int64_t{0}));
    EXPECT_TRUE(script().lastOutcome().succeeded());
    // A malformed predicate in a fetch answers the entity's first object.
    EXPECT_FALSE(script().evaluateScript("fetchRecordWithPredicate('Client', 'name ==', false)").isNull());
    EXPECT_EQ(script().evaluateScript("fetchRecords('NoSuchEntity').count()"), Value(int64_t{0}));
    EXPECT_EQ(script().evaluateScript("var q = fetchRecords('Client'); q.setEditable(true); "
                                      "q.records()[0].name = 'Zora'; q.records().length"),
              Value(int64_t{3}));
    EXPECT_EQ(script().evaluateScript("fetchRecords('Client').filter(\"name == 'Zora'\").count()"), Value(int64_t{1}));
}

TEST_F(ScriptHostTest, NamedEntriesRunAfterThePluginDefinedThem) {
    EXPECT_TRUE(script().runFunction("sendFunction").isNull());
    script().evaluateScript("function sendFunction() { return pluginType + ':' + pluginIdentifier; }");
    EXPECT_EQ(script().runFunction("sendFunction"), Value("test:test.plugin"));
    script().evaluateScript("var notAFunction = 3;");
    EXPECT_TRUE(script().runFunction("notAFunction").isNull());
}

}  // namespace
}  // namespace brassline
