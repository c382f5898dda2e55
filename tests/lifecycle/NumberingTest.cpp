#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "../model/EntityFixture.h"
#include "core/Localization.h"
#include "core/ValueTransformers.h"
#include "lifecycle/LifecycleHooks.h"
#include "lifecycle/Numbering.h"
#include "model/FetchRequest.h"
#include "model/entities/BLClient.h"
#include "model/entities/BLEstimate.h"
#include "model/entities/BLFollowUp.h"
#include "model/entities/BLFollowUpType.h"
#include "model/entities/BLInvoice.h"
#include "model/entities/BLProject.h"

namespace brassline {
namespace {

PatternElement tokenOf(const char* field, const char* option) {
    return PatternElement::token(field, option != nullptr ? std::optional<std::string>(option) : std::nullopt);
}

// year "-" increment(3): the common invoice pattern.
NumberPattern yearDashCounter() {
    return {tokenOf("year", "ZPYear"), PatternElement::literal("-"), tokenOf("increment", "ZPIncrement3")};
}

class NumberingTest : public EntityFixture {
protected:
    void SetUp() override {
        EntityFixture::SetUp();
        TimeZone::setCurrent("Europe/Berlin");
        setCurrentFormattingLocale("en_US");
        Clock::setNow(Date::dateWithYear(2024, 3, 10));
    }
    void TearDown() override {
        m_prefs.reset();
        setNumberingScript(nullptr);
        setCurrentFormattingLocale("");
        Clock::setNow(std::nullopt);
        TimeZone::setCurrent("");
        EntityFixture::TearDown();
    }

    NumberingKind invoiceKind() { return *numberingKindForPrefsKey("invoice"); }
    // The preferences every Numbering of a test shares, as the open document's would be.
    NumberingPreferences& prefs() {
        if (m_prefs == nullptr) {
            m_prefs = std::make_unique<DocumentNumberingPreferences>(context());
        }
        return *m_prefs;
    }
    // The stored value, read past any cache.
    Value stored(std::string_view key) { return DocumentNumberingPreferences(context()).valueForKeyPath(key); }

    // An invoice sent on `date` (none: a draft), with `name` when given.
    BLInvoice* invoice(std::optional<Date> date, std::optional<std::string> name = std::nullopt) {
        auto* made = insert<BLInvoice>();
        made->setDateSent(date);
        if (name) {
            made->setName(name);
        }
        return made;
    }

    void setInvoicePattern(Numbering& numbering, const NumberPattern& pattern, Value resetMode, int64_t counter) {
        numbering.setPattern(invoiceKind(), pattern);
        numbering.setCurrentCounter(invoiceKind(), counter);
        prefs().setValueForKeyPath(resetMode, "invoice.numberResetMode");
    }

private:
    std::unique_ptr<DocumentNumberingPreferences> m_prefs;
};

TEST_F(NumberingTest, PatternsSurviveTheArchiveAndJSON) {
    NumberPattern pattern = yearDashCounter();
    pattern[0].uid = "u-1";
    pattern.push_back(tokenOf("/", nullptr));
    std::optional<NumberPattern> back = patternFromValue(archivedPattern(pattern));
    ASSERT_TRUE(back.has_value());
    EXPECT_EQ(*back, pattern);
    std::optional<NumberPattern> fromJSON = patternFromJSON(patternToJSON(pattern));
    ASSERT_TRUE(fromJSON.has_value());
    EXPECT_EQ(*fromJSON, pattern);

    const char* bad[] = {"{", "{\"field\": \"year\"}", "[1]", "[{\"option\": \"ZPYear\"}]",
                         "[{\"field\": \"year\", \"option\": 5}]"};
    for (const char* json : bad) {
        SCOPED_TRACE(json);
        std::string error;
        EXPECT_FALSE(patternFromJSON(json, &error).has_value());
        EXPECT_FALSE(error.empty());
    }
    std::string error;
    EXPECT_FALSE(patternFromValue(Value(Bytes{1, 2, 3}), &error).has_value());
    EXPECT_FALSE(error.empty());
}

TEST_F(NumberingTest, EvaluationKeepsLiteralSlashesAndReplacesThoseOfTokens) {
    Numbering numbering(context(), prefs());
    BLInvoice* sent = invoice(Date::dateWithYear(2024, 3, 5));
    sent->setReference(std::string("A/B"));
    NumberPattern pattern = {PatternElement::literal("2024/"), tokenOf("reference", "ZPReference"),
                             tokenOf("x", "ZPUnknown"), tokenOf("/", nullptr), tokenOf("year", "ZPShortYear")};
    EXPECT_EQ(numbering.transformedValue(&pattern, sent), std::optional<std::string>("2024/A_B/24"));
    // Without an object a token without option adds nothing.
    EXPECT_EQ(numbering.transformedValue(&pattern, nullptr), std::optional<std::string>("2024/???24"));
    EXPECT_EQ(numbering.transformedValue(nullptr, sent), std::nullopt);
    // Outside sendables a token without option reads as its tag.
    auto* client = insert<BLClient>();
    NumberPattern tagOnly = {tokenOf("increment", nullptr)};
    EXPECT_EQ(numbering.transformedValue(&tagOnly, client), std::optional<std::string>("increment"));
}

TEST_F(NumberingTest, CreationUsesTheCounterBeforeAdvancingAndKeepsAGivenNumber) {
    Numbering numbering(context(), prefs());
    setInvoicePattern(numbering, yearDashCounter(), Value("never"), 7);
    BLInvoice* first = invoice(Date::dateWithYear(2024, 3, 5));
    EXPECT_EQ(numbering.createNumber(*first), std::optional<std::string>("2024-007"));
    EXPECT_EQ(first->name(), std::optional<std::string>("2024-007"));
    EXPECT_EQ(numbering.currentCounter(invoiceKind()), 8);
    // A number once given stays, and nothing moves.
    EXPECT_EQ(numbering.createNumber(*first), std::optional<std::string>("2024-007"));
    EXPECT_EQ(numbering.currentCounter(invoiceKind()), 8);
    // Taken numbers are skipped; the counter ends past the number given.
    invoice(Date::dateWithYear(2024, 1, 2), std::string("2024-008"));
    invoice(Date::dateWithYear(2024, 1, 2), std::string("2024-009"));
    Numbering fresh(context(), prefs());
    BLInvoice* second = invoice(Date::dateWithYear(2024, 3, 6));
    EXPECT_EQ(fresh.createNumber(*second), std::optional<std::string>("2024-010"));
    EXPECT_EQ(fresh.currentCounter(invoiceKind()), 11);
    // The comparison is exact: another case is another number.
    invoice(std::nullopt, std::string("R-11"));
    Numbering third(context(), prefs());
    third.setPattern(invoiceKind(), {PatternElement::literal("r-"), tokenOf("increment", "ZPIncrement")});
    EXPECT_EQ(third.createNumber(*invoice(Date::dateWithYear(2024, 3, 6))), std::optional<std::string>("r-11"));
}

TEST_F(NumberingTest, PeriodResetsAtYearAndMonthBoundaries) {
    struct Step {
        Date now;
        const char* expected;
        int64_t counterAfter;
    };
    struct Case {
        const char* name;
        NumberPattern pattern;
        Value mode;
        Date lastReset;
        int64_t counter;
        std::vector<Step> steps;
    };
    const NumberPattern counterOnly = {PatternElement::literal("R"), tokenOf("increment", "ZPIncrement3")};
    const std::vector<Case> cases = {
        // Yearly without a year tag: the counter runs on through December and starts
        // again on the first creation in January.
        {"year, strict date rule",
         counterOnly,
         Value("year"),
         Date::dateWithYear(2024, 1, 1),
         41,
         {{Date::dateWithYear(2024, 12, 31).dateByAddingTimeInterval(86399), "R041", 42},
          {Date::dateWithYear(2025, 1, 1), "R001", 2},
          {Date::dateWithYear(2025, 1, 2), "R002", 3}}},
        // Monthly with year and counter but no month tag: resets only when the month turns.
        {"month without month tag",
         yearDashCounter(),
         Value("month"),
         Date::dateWithYear(2024, 3, 1),
         5,
         {{Date::dateWithYear(2024, 3, 31), "2024-005", 6},
          {Date::dateWithYear(2024, 4, 1), "2024-001", 2},
          {Date::dateWithYear(2024, 4, 30), "2024-002", 3}}},
        // The reset menu stores tags: 2 is monthly.
        {"month as menu tag",
         counterOnly,
         Value(2),
         Date::dateWithYear(2024, 1, 1),
         9,
         {{Date::dateWithYear(2024, 1, 31), "R009", 10}, {Date::dateWithYear(2024, 2, 1), "R001", 2}}},
        // Never, and an absent mode, never reset.
        {"never",
         counterOnly,
         Value("never"),
         Date::dateWithYear(2000, 1, 1),
         9,
         {{Date::dateWithYear(2030, 1, 1), "R009", 10}}},
        {"absent",
         counterOnly,
         Value(),
         Date::dateWithYear(2000, 1, 1),
         9,
         {{Date::dateWithYear(2030, 1, 1), "R009", 10}}},
    };
    for (const Case& testCase : cases) {
        SCOPED_TRACE(testCase.name);
        for (ManagedObject* old :
             context().executeFetchRequest(FetchRequest("Invoice")).value_or(std::vector<ManagedObject*>{})) {
            context().deleteObject(old);
        }
        Numbering numbering(context(), prefs());
        setInvoicePattern(numbering, testCase.pattern, testCase.mode, testCase.counter);
        prefs().setValueForKeyPath(Value(testCase.lastReset), "invoice.numberLastReset");
        for (const Step& step : testCase.steps) {
            SCOPED_TRACE(step.now.isoDateString());
            Clock::setNow(step.now);
            BLInvoice* made = invoice(step.now);
            EXPECT_EQ(numbering.createNumber(*made), std::optional<std::string>(step.expected));
            EXPECT_EQ(numbering.currentCounter(invoiceKind()), step.counterAfter);
        }
    }
}

TEST_F(NumberingTest, PeriodTagsInThePatternHandOutTheLowestFreeNumberAgain) {
    Numbering numbering(context(), prefs());
    setInvoicePattern(numbering, yearDashCounter(), Value("year"), 57);
    invoice(Date::dateWithYear(2024, 1, 5), std::string("2024-001"));
    BLInvoice* second = invoice(Date::dateWithYear(2024, 1, 6), std::string("2024-002"));
    EXPECT_EQ(numbering.createNumber(*invoice(Date::dateWithYear(2024, 3, 1))), std::optional<std::string>("2024-003"));
    EXPECT_EQ(numbering.currentCounter(invoiceKind()), 4);
    context().deleteObject(second);
    Numbering afterDelete(context(), prefs());
    EXPECT_EQ(afterDelete.createNumber(*invoice(Date::dateWithYear(2024, 3, 2))),
              std::optional<std::string>("2024-002"));
    // Daily reset with year, month, day and counter in the pattern restarts every time too.
    NumberPattern daily = {tokenOf("year", "ZPYear"), tokenOf("month", "ZPMonth"), tokenOf("day", "ZPDay"),
                           PatternElement::literal("-"), tokenOf("increment", "ZPIncrement2")};
    Numbering perDay(context(), prefs());
    setInvoicePattern(perDay, daily, Value("day"), 30);
    EXPECT_EQ(perDay.createNumber(*invoice(Date::dateWithYear(2024, 3, 10))),
              std::optional<std::string>("20240310-01"));
    EXPECT_EQ(perDay.createNumber(*invoice(Date::dateWithYear(2024, 3, 10))),
              std::optional<std::string>("20240310-02"));
    EXPECT_EQ(prefs().valueForKeyPath("invoice.numberLastReset"), Value(Date::dateWithYear(2024, 3, 10)));
}

TEST_F(NumberingTest, BackDatedDocumentsCountInTheirYearAndLeaveTheCounter) {
    Clock::setNow(Date::dateWithYear(2025, 1, 10));
    const NumberPattern pattern = {tokenOf("year", "ZPYear"), PatternElement::literal("/R"),
                                   tokenOf("increment", "ZPIncrement")};
    Numbering numbering(context(), prefs());
    setInvoicePattern(numbering, pattern, Value("year"), 4);
    prefs().setValueForKeyPath(Value(Date::dateWithYear(2025, 1, 1)), "invoice.numberLastReset");
    invoice(Date::dateWithYear(2024, 6, 1), std::string("2024/R1"));
    invoice(Date::dateWithYear(2024, 6, 2), std::string("2024/R2"));
    BLInvoice* late = invoice(Date::dateWithYear(2024, 12, 20));
    // The year tag makes the period rule restart the counter at 1 on every creation, and
    // back-dating keeps that 1.
    EXPECT_EQ(numbering.createNumber(*late), std::optional<std::string>("2024/R3"));
    EXPECT_EQ(numbering.currentCounter(invoiceKind()), 1);

    // Without a year tag the running counter survives a back-dated document untouched.
    const NumberPattern plain = {PatternElement::literal("R"), tokenOf("increment", "ZPIncrement")};
    Numbering second(context(), prefs());
    setInvoicePattern(second, plain, Value("year"), 4);
    invoice(Date::dateWithYear(2024, 6, 1), std::string("R1"));
    EXPECT_EQ(second.createNumber(*invoice(Date::dateWithYear(2024, 12, 20))), std::optional<std::string>("R2"));
    EXPECT_EQ(second.currentCounter(invoiceKind()), 4);
    // A draft without a date has year 0 and takes the same path.
    EXPECT_EQ(second.createNumberForDate(*invoice(std::nullopt), std::nullopt), std::optional<std::string>("R3"));
    EXPECT_EQ(second.currentCounter(invoiceKind()), 4);
    // This year's document takes the running counter.
    EXPECT_EQ(second.createNumber(*invoice(Date::dateWithYear(2025, 1, 9))), std::optional<std::string>("R4"));
    EXPECT_EQ(second.currentCounter(invoiceKind()), 5);
}

TEST_F(NumberingTest, PatternsWithoutIncrementTokens) {
    Numbering numbering(context(), prefs());
    // No counter token: a duplicate is taken as it is, and the counter still moves.
    setInvoicePattern(numbering, {PatternElement::literal("FIX")}, Value("never"), 3);
    BLInvoice* existing = invoice(Date::dateWithYear(2024, 1, 1), std::string("FIX"));
    BLInvoice* duplicate = invoice(Date::dateWithYear(2024, 3, 1));
    EXPECT_EQ(numbering.createNumber(*duplicate), std::optional<std::string>("FIX"));
    EXPECT_EQ(numbering.currentCounter(invoiceKind()), 4);
    EXPECT_FALSE(numbering.numberIsUnique(*duplicate));
    existing->setName(std::string("OTHER"));
    EXPECT_TRUE(numbering.numberIsUnique(*duplicate));

    // An auto increment searches on its own and leaves the counter.
    Numbering automatic(context(), prefs());
    setInvoicePattern(automatic, {tokenOf("autoincrement", "ZPAutoIncrement3")}, Value("never"), 3);
    invoice(Date::dateWithYear(2024, 1, 1), std::string("001"));
    EXPECT_EQ(automatic.createNumber(*invoice(Date::dateWithYear(2024, 3, 1))), std::optional<std::string>("002"));
    EXPECT_EQ(automatic.currentCounter(invoiceKind()), 3);
    std::optional<NumberPattern> stored = automatic.pattern(invoiceKind());
    ASSERT_TRUE(stored.has_value());
    EXPECT_EQ(automatic.transformedValue(&*stored, nullptr), std::optional<std::string>("00?"));

    // No pattern at all: no number, and the counter moves by one.
    Numbering none(context(), prefs());
    prefs().setValueForKeyPath(Value(), "invoice.numbering");
    none.setCurrentCounter(invoiceKind(), 3);
    BLInvoice* unnamed = invoice(Date::dateWithYear(2024, 3, 1));
    EXPECT_EQ(none.createNumber(*unnamed), std::nullopt);
    EXPECT_EQ(unnamed->name(), std::nullopt);
    EXPECT_EQ(none.currentCounter(invoiceKind()), 4);
}

TEST_F(NumberingTest, AScriptNumberIsTakenUnlessItIsInUse) {
    Numbering numbering(context(), prefs());
    setInvoicePattern(numbering, yearDashCounter(), Value("never"), 7);
    invoice(Date::dateWithYear(2024, 1, 1), std::string("S-1"));
    std::vector<size_t> seenCounts;
    setNumberingScript([&seenCounts](ManagedObject&, const std::unordered_set<std::string>& existing) {
        seenCounts.push_back(existing.size());
        return std::optional<std::string>(existing.contains("S-2") ? "S-1" : "S-2");
    });
    EXPECT_EQ(numbering.createNumber(*invoice(Date::dateWithYear(2024, 3, 1))), std::optional<std::string>("S-2"));
    EXPECT_EQ(numbering.currentCounter(invoiceKind()), 7);
    // The script's "S-1" is taken already: the counter path takes over.
    EXPECT_EQ(numbering.createNumber(*invoice(Date::dateWithYear(2024, 3, 1))), std::optional<std::string>("2024-007"));
    EXPECT_EQ(numbering.currentCounter(invoiceKind()), 8);
    EXPECT_EQ(seenCounts, (std::vector<size_t>{1, 2}));
}

TEST_F(NumberingTest, EachKindCountsOnItsOwnCounter) {
    Numbering numbering(context(), prefs());
    NumberingPreferences& preferences = prefs();
    // A pattern copied from invoices still counts estimates on the estimate counter.
    numbering.setPattern(*numberingKindForPrefsKey("estimate"),
                         {PatternElement::literal("A"), tokenOf("increment", "ZPIncrement3")});
    preferences.setValueForKeyPath(Value(20), "estimate.number");
    preferences.setValueForKeyPath(Value(7), "invoice.number");
    auto* estimate = insert<BLEstimate>();
    estimate->setDateSent(Date::dateWithYear(2024, 3, 1));
    EXPECT_EQ(numbering.createNumber(*estimate), std::optional<std::string>("A020"));
    EXPECT_EQ(preferences.valueForKeyPath("estimate.number"), Value(21));
    EXPECT_EQ(preferences.valueForKeyPath("invoice.number"), Value(7));

    // A follow-up of a type with its own numbering counts on the type's counter.
    auto* type = insert<BLFollowUpType>();
    type->setUid(std::string("T1"));
    auto* followUp = insert<BLFollowUp>();
    followUp->setFollowUpType(type);
    followUp->setDateSent(Date::dateWithYear(2024, 3, 1));
    EXPECT_EQ(numbering.createNumber(*followUp), std::nullopt);
    type->setUseCustomNumberingValue(true);
    numbering.setPattern(*numberingKindForPrefsKey("followUpType.T1"),
                         {PatternElement::literal("M"), tokenOf("increment", "ZPEstimateIncrement2")});
    preferences.setValueForKeyPath(Value(5), "followUpType.T1.number");
    EXPECT_EQ(numbering.createNumber(*followUp), std::optional<std::string>("M05"));
    EXPECT_EQ(preferences.valueForKeyPath("followUpType.T1.number"), Value(6));
    EXPECT_EQ(preferences.valueForKeyPath("estimate.number"), Value(21));
}

TEST_F(NumberingTest, ClientAndProjectNumbersThroughTheHooks) {
    installLifecycleHooks();
    Numbering numbering(context(), prefs());
    NumberingPreferences& preferences = prefs();
    numbering.setPattern(*numberingKindForPrefsKey("client"),
                         {PatternElement::literal("K"), tokenOf("increment", "ZPClientIncrement4")});
    preferences.setValueForKeyPath(Value(12), "client.number");
    auto* taken = insert<BLClient>();
    taken->setClientID(std::string("K0012"));
    auto* client = insert<BLClient>();
    client->setClientID(std::nullopt);
    EXPECT_EQ(modelHooks().createClientNumber(*client), std::optional<std::string>("K0013"));
    EXPECT_EQ(client->clientID(), std::optional<std::string>("K0013"));
    EXPECT_EQ(stored("client.number"), Value(14));
    // A client number stays once given.
    EXPECT_EQ(modelHooks().createClientNumber(*client), std::optional<std::string>("K0013"));
    EXPECT_EQ(stored("client.number"), Value(14));

    // A client pattern yielding the empty text gives no number and moves no counter.
    numbering.setPattern(*numberingKindForPrefsKey("client"), {tokenOf("clientid", "ZPClientID")});
    auto* blank = insert<BLClient>();
    blank->setClientID(std::nullopt);
    EXPECT_EQ(modelHooks().createClientNumber(*blank), std::nullopt);
    EXPECT_EQ(blank->clientID(), std::nullopt);
    EXPECT_EQ(stored("client.number"), Value(14));

    // Projects are numbered only with numbering on.
    auto* project = insert<BLProject>();
    project->setParentDocument(client);
    numbering.setPattern(
        *numberingKindForPrefsKey("project"),
        {tokenOf("clientid", "ZPClientID"), PatternElement::literal("-"), tokenOf("increment", "ZPProjectIncrement3")});
    EXPECT_EQ(modelHooks().createProjectNumber(*project), std::nullopt);
    preferences.setValueForKeyPath(Value(true), "project.useNumbering");
    EXPECT_EQ(modelHooks().createProjectNumber(*project), std::optional<std::string>("K0013-001"));
    EXPECT_EQ(project->number(), std::optional<std::string>("K0013-001"));
    EXPECT_EQ(stored("project.number"), Value(2));
}

TEST_F(NumberingTest, APatternCountingWithAnotherKindsCounterGivesUpInsteadOfSpinning) {
    // A client pattern holding the invoice counter: advancing the client counter never
    // changes its text, so once "K-0001" is taken no free number can be reached.
    installLifecycleHooks();
    Numbering numbering(context(), prefs());
    numbering.setPattern(*numberingKindForPrefsKey("client"),
                         {PatternElement::literal("K-"), tokenOf("increment", "ZPIncrement4")});
    auto* first = insert<BLClient>();
    first->setClientID(std::nullopt);
    EXPECT_EQ(modelHooks().createClientNumber(*first), std::optional<std::string>("K-0001"));
    auto* second = insert<BLClient>();
    second->setClientID(std::nullopt);
    const Value counter = stored("client.number");
    EXPECT_EQ(modelHooks().createClientNumber(*second), std::nullopt);
    EXPECT_EQ(second->clientID(), std::nullopt);
    // Nothing was handed out, so the counter has not moved.
    EXPECT_EQ(stored("client.number"), counter);
}

TEST_F(NumberingTest, PeekingTouchesNeitherCounterNorObject) {
    Numbering numbering(context(), prefs());
    setInvoicePattern(numbering, yearDashCounter(), Value("month"), 7);
    prefs().setValueForKeyPath(Value(Date::dateWithYear(2024, 2, 1)), "invoice.numberLastReset");
    invoice(Date::dateWithYear(2024, 3, 1), std::string("2024-001"));
    BLInvoice* draft = invoice(std::nullopt);
    // March has begun since the last reset: the peek restarts at 1 and skips 001.
    EXPECT_EQ(numbering.peekNumber(*draft), std::optional<std::string>("2024-002"));
    EXPECT_EQ(draft->name(), std::nullopt);
    EXPECT_EQ(numbering.currentCounter(invoiceKind()), 7);
    EXPECT_EQ(prefs().valueForKeyPath("invoice.numberLastReset"), Value(Date::dateWithYear(2024, 2, 1)));
    draft->setDateSent(Date::dateWithYear(2024, 3, 10));
    EXPECT_EQ(numbering.createNumber(*draft), std::optional<std::string>("2024-002"));
    EXPECT_EQ(numbering.peekNumber(*draft), std::optional<std::string>("2024-002"));
}

TEST_F(NumberingTest, APreviewNeverMovesTheNumberThatTheIssueGives) {
    // Numbers restarted for a period are searched from 1, and the search remembers where
    // it found a free number; a preview before the issue must leave that memory pointing
    // at the number it showed, not past it.
    Clock::setNow(Date::dateWithYear(2025, 1, 10));
    const NumberPattern yearly = {tokenOf("year", "ZPYear"), PatternElement::literal("/R"),
                                  tokenOf("increment", "ZPIncrement")};
    struct Row {
        const char* label;
        NumberPattern pattern;
        Date sent;
        std::vector<std::string> taken;
        int previews;
        std::vector<std::string> expected;  // Issued one after another, each after its previews.
    };
    const std::vector<Row> rows = {
        {"this year, none taken", yearly, Date::dateWithYear(2025, 1, 9), {}, 1, {"2025/R1", "2025/R2"}},
        {"this year, 1 and 2 taken",
         yearly,
         Date::dateWithYear(2025, 1, 9),
         {"2025/R1", "2025/R2"},
         1,
         {"2025/R3", "2025/R4"}},
        {"three previews", yearly, Date::dateWithYear(2025, 1, 9), {"2025/R1"}, 3, {"2025/R2", "2025/R3"}},
        {"back-dated", yearly, Date::dateWithYear(2024, 12, 20), {"2024/R1"}, 1, {"2024/R2", "2024/R3"}},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.label);
        TearDown();
        SetUp();
        Clock::setNow(Date::dateWithYear(2025, 1, 10));
        Numbering numbering(context(), prefs());
        setInvoicePattern(numbering, row.pattern, Value("year"), 9);
        prefs().setValueForKeyPath(Value(Date::dateWithYear(2025, 1, 1)), "invoice.numberLastReset");
        for (const std::string& taken : row.taken) {
            invoice(row.sent, taken);
        }
        for (const std::string& expected : row.expected) {
            BLInvoice* draft = invoice(row.sent);
            for (int preview = 0; preview < row.previews; ++preview) {
                EXPECT_EQ(numbering.peekNumber(*draft), std::optional<std::string>(expected)) << "preview";
            }
            EXPECT_EQ(numbering.createNumber(*draft), std::optional<std::string>(expected)) << "issue";
        }
    }
}

TEST_F(NumberingTest, DocumentNamesAndPathsAndImportTitles) {
    Numbering numbering(context(), prefs());
    NumberingPreferences& preferences = prefs();
    BLInvoice* sent = invoice(Date::dateWithYear(2024, 3, 5), std::string("2024/007"));
    sent->setReference(std::string("A:B"));
    // No file name pattern: the translated "untitled".
    EXPECT_EQ(documentName(numbering, *sent), localizedString("untitled"));
    preferences.setValueForKeyPath(archivedPattern({tokenOf("number", nullptr), PatternElement::literal(" "),
                                                    tokenOf("reference", "ZPReference")}),
                                   "documents.filename");
    preferences.setValueForKeyPath(archivedPattern({tokenOf("year", "ZPYear"), tokenOf("/", nullptr),
                                                    tokenOf("month", "ZPMonth"), PatternElement::literal("/../x")}),
                                   "documents.directory");
    // The number's slash becomes a dash in a file name; the colon too.
    EXPECT_EQ(documentName(numbering, *sent), "2024-007 A-B");
    EXPECT_EQ(documentPath(numbering, *sent, "/srv/docs/"), "/srv/docs/2024/x/2024-007 A-B");

    NumberPattern title = {tokenOf("project", nullptr),   PatternElement::literal(": "), tokenOf("title", nullptr),
                           PatternElement::literal(" ("), tokenOf("date", nullptr),      PatternElement::literal(")"),
                           tokenOf("missing", nullptr)};
    Value::Dictionary entry = {
        {"project", Value("Website")}, {"title", Value("Review")}, {"date", Value(Date::dateWithYear(2024, 3, 5))}};
    EXPECT_EQ(timeImportTitle(title, entry), "Website: Review (3/5/24)");
}

}  // namespace
}  // namespace brassline
