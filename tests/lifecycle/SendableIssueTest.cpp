#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "../money/ItemTestSupport.h"
#include "../store/StoreTestSupport.h"
#include "core/Localization.h"
#include "lifecycle/LifecycleHooks.h"
#include "lifecycle/Numbering.h"
#include "lifecycle/SendableIssue.h"
#include "model/UndoManager.h"
#include "model/entities/BLClient.h"
#include "model/entities/BLInvoice.h"
#include "model/entities/BLSendableStorage.h"
#include "model/entities/BLTranscript.h"
#include "store/BLUserDefaults.h"

namespace brassline {
namespace {

Bytes bytesOf(const std::string& text) {
    return Bytes(text.begin(), text.end());
}

class SendableIssueTest : public ItemFixture {
protected:
    void SetUp() override {
        ItemFixture::SetUp();
        UserDefaults::setDirectoryForTesting(m_folder.path());
        TimeZone::setCurrent("Europe/Berlin");
        setCurrentLanguage("de");
        Clock::setNow(Date::dateWithYear(2024, 3, 10).dateByAddingTimeInterval(9 * 3600.0));
        resetIssueHooks();
        installLifecycleHooks();
        // year "-" counter of three digits, the counter at 7.
        Numbering numbering(context());
        NumberingKind kind = *numberingKindForPrefsKey("invoice");
        numbering.setPattern(kind, {PatternElement::token("year", std::string("ZPYear")), PatternElement::literal("-"),
                                    PatternElement::token("increment", std::string("ZPIncrement3"))});
        numbering.setCurrentCounter(kind, 7);
        issueHooks().showAlert = [this](const IssueAlert& alert) { m_alerts.push_back(alert); };
        issueHooks().documentSent = [this](const std::vector<BLSendable*>& sent) { m_sentCalls.push_back(sent); };
        // The set-up's changes close their automatic undo step, as an event would.
        RunLoop::main().runUntilIdle();
    }
    void TearDown() override {
        resetIssueHooks();
        Clock::setNow(std::nullopt);
        TimeZone::setCurrent("");
        setCurrentLanguage("");
        UserDefaults::setDirectoryForTesting("");
        ItemFixture::TearDown();
    }

    int64_t counter() {
        DocumentNumberingPreferences preferences(context());
        return Numbering(context(), preferences).currentCounter(*numberingKindForPrefsKey("invoice"));
    }
    int64_t storages() { return countInContext<BLSendableStorage>(context()); }
    BLInvoice* draft() {
        BLInvoice* made = invoiceIn("EUR");
        addCost(made, "100");
        return made;
    }
    IssueResult issue(std::vector<BLSendable*> documents, Date date, int64_t interval = 14,
                      SendRoute route = SendRoute::Save) {
        IssueRequest request;
        request.documents = std::move(documents);
        request.date = date;
        request.payInterval = interval;
        request.route = route;
        return issueDocuments(request);
    }
    // 10 March 2024 at 15:00 in Berlin.
    static Date sheetDate() { return Date::dateWithYear(2024, 3, 10).dateByAddingTimeInterval(15 * 3600.0); }

    storetest::TemporaryFolder m_folder;
    std::vector<IssueAlert> m_alerts;
    std::vector<std::vector<BLSendable*>> m_sentCalls;
};

TEST_F(SendableIssueTest, BatchTakesTheSheetDateAndNumbersInListOrder) {
    BLInvoice* a = draft();
    BLInvoice* b = draft();
    BLInvoice* c = draft();
    IssueResult result = issue({b, a, c}, sheetDate(), 14);
    ASSERT_TRUE(result.issued) << result.message;
    EXPECT_TRUE(result.saved);
    EXPECT_EQ(result.numbers, (std::vector<std::string>{"2024-007", "2024-008", "2024-009"}));
    EXPECT_EQ(b->name(), "2024-007");
    EXPECT_EQ(a->name(), "2024-008");
    EXPECT_EQ(c->name(), "2024-009");
    EXPECT_EQ(counter(), 10);
    // Due: the day start of 10 March plus 14 x 86,400 seconds, 24 March 00:00.
    for (BLInvoice* made : {a, b, c}) {
        EXPECT_EQ(made->dateSent(), sheetDate());
        EXPECT_EQ(made->dateDue(), Date::dateWithYear(2024, 3, 24));
        EXPECT_EQ(made->payIntervalValue(), 14);
        EXPECT_EQ(made->deliveryTypeValue(), 3);
        // No layouts yet: an empty frozen storage.
        ASSERT_NE(made->storage(), nullptr);
        EXPECT_EQ(made->storage()->data(), nullptr);
    }
    ASSERT_EQ(m_sentCalls.size(), 1u);
    EXPECT_EQ(m_sentCalls[0].size(), 3u);
}

TEST_F(SendableIssueTest, AnIssuedFirstDocumentLeavesEveryDateAlone) {
    BLInvoice* issued = draft();
    issued->setName(std::string("2024-001"));
    issued->setDateSent(Date::dateWithYear(2024, 2, 1));
    issued->setDateDue(Date::dateWithYear(2024, 2, 15));
    BLInvoice* later = draft();
    IssueResult result = issue({issued, later}, sheetDate());
    ASSERT_TRUE(result.issued) << result.message;
    EXPECT_EQ(issued->dateSent(), Date::dateWithYear(2024, 2, 1));
    EXPECT_EQ(issued->dateDue(), Date::dateWithYear(2024, 2, 15));
    EXPECT_EQ(issued->name(), "2024-001");
    // The draft behind it gets its number (year of today) but no date.
    EXPECT_EQ(later->dateSent(), std::nullopt);
    EXPECT_EQ(later->dateDue(), std::nullopt);
    EXPECT_EQ(later->name(), "2024-007");
    EXPECT_EQ(result.numbers, std::vector<std::string>{"2024-007"});
}

TEST_F(SendableIssueTest, ResendKeepsDatesNumberAndStorageAndStillTellsPlugins) {
    BLInvoice* made = draft();
    ASSERT_TRUE(issue({made}, sheetDate()).issued);
    BLSendableStorage* frozen = made->storage();
    const std::optional<Date> due = made->dateDue();
    m_sentCalls.clear();

    Clock::setNow(Date::dateWithYear(2024, 3, 20));
    SendSheet sheet = startIssue({made});
    ASSERT_TRUE(sheet.proceed);
    EXPECT_FALSE(sheet.dateEditable);
    EXPECT_EQ(sheet.date, sheetDate());
    IssueResult again = issue({made}, Date::dateWithYear(2024, 3, 20), 30);
    ASSERT_TRUE(again.issued);
    EXPECT_TRUE(again.numbers.empty());
    EXPECT_EQ(made->name(), "2024-007");
    EXPECT_EQ(made->dateSent(), sheetDate());
    EXPECT_EQ(made->dateDue(), due);
    EXPECT_EQ(made->storage(), frozen);
    EXPECT_EQ(counter(), 8);
    EXPECT_EQ(storages(), 1);
    EXPECT_EQ(m_sentCalls.size(), 1u);
}

TEST_F(SendableIssueTest, UndoReturnsTheDocumentsAndTellsWhichNumbersAreFree) {
    BLInvoice* a = draft();
    BLInvoice* b = draft();
    RunLoop::main().runUntilIdle();
    ASSERT_TRUE(issue({a, b}, sheetDate()).issued);
    ASSERT_NE(context().undoManager(), nullptr);
    context().undoManager()->undo();
    context().processPendingChanges();
    for (BLInvoice* made : {a, b}) {
        EXPECT_EQ(made->dateSent(), std::nullopt);
        EXPECT_EQ(made->dateDue(), std::nullopt);
        EXPECT_EQ(made->name(), std::nullopt);
        EXPECT_EQ(made->storage(), nullptr);
    }
    EXPECT_EQ(counter(), 7);
    ASSERT_EQ(m_alerts.size(), 1u);
    EXPECT_EQ(m_alerts[0].title, "Undone sending");
    EXPECT_EQ(m_alerts[0].table, (std::vector<std::string>{"2024-007", "2024-008"}));
}

// Whatever step fails after the first number is drawn, the whole batch stays as it was:
// drafts without number, dates or storage, the counter at 7.
TEST_F(SendableIssueTest, AFailingStepAfterTheNumberLeavesNoHalfIssuedDocument) {
    struct Row {
        const char* step;
        int failOnCall;  // 1: the first document, 2: the second.
    };
    const Row rows[] = {{"pdf", 1}, {"pdf", 2}, {"filing", 1}, {"filing", 2}};
    for (const Row& row : rows) {
        SCOPED_TRACE(std::string(row.step) + " fails on document " + std::to_string(row.failOnCall));
        resetIssueHooks();
        int calls = 0;
        auto failing = [&calls, &row]() -> StepFailure {
            return ++calls == row.failOnCall ? StepFailure("the disk is full") : std::nullopt;
        };
        if (std::string(row.step) == "pdf") {
            issueHooks().pdfDocument = [&failing](BLSendable&, Bytes& pdf) {
                pdf = bytesOf("%PDF-1.4");
                return failing();
            };
        } else {
            issueHooks().writeDocument = [&failing](BLSendable&) { return failing(); };
        }
        BLInvoice* a = draft();
        BLInvoice* b = draft();
        const int64_t storagesBefore = storages();
        IssueResult result = issue({a, b}, sheetDate());
        EXPECT_FALSE(result.issued);
        EXPECT_NE(result.message.find("the disk is full"), std::string::npos) << result.message;
        EXPECT_TRUE(result.numbers.empty());
        for (BLInvoice* made : {a, b}) {
            EXPECT_EQ(made->dateSent(), std::nullopt);
            EXPECT_EQ(made->dateDue(), std::nullopt);
            EXPECT_EQ(made->name(), std::nullopt);
            EXPECT_EQ(made->storage(), nullptr);
            EXPECT_TRUE(made->isDraft());
        }
        EXPECT_EQ(storages(), storagesBefore);
        EXPECT_EQ(counter(), 7);
    }
    EXPECT_TRUE(m_sentCalls.empty());
}

TEST_F(SendableIssueTest, UnlockThenReissueKeepsTheOldDateAndNumberAndTheTrailKeepsThePDF) {
    issueHooks().pdfDocument = [](BLSendable&, Bytes& pdf) -> StepFailure {
        pdf = bytesOf("%PDF first issue");
        return std::nullopt;
    };
    BLInvoice* made = draft();
    const Date firstIssue = Date::dateWithYear(2024, 3, 1).dateByAddingTimeInterval(10 * 3600.0);
    ASSERT_TRUE(issue({made}, firstIssue).issued);

    BLTranscript* transcript = unlockSendable(*made);
    ASSERT_NE(transcript, nullptr);
    EXPECT_EQ(transcript->operation(), "Unlocked");
    EXPECT_EQ(transcript->type(), "Rechnung");
    EXPECT_EQ(transcript->displayType(), "Rechnung (2024-007)");
    ASSERT_NE(transcript->storage(), nullptr);
    ASSERT_NE(transcript->storage()->data(), nullptr);
    EXPECT_EQ(*transcript->storage()->data(), bytesOf("%PDF first issue"));
    EXPECT_TRUE(made->isDraft());
    EXPECT_EQ(made->name(), "2024-007");
    EXPECT_EQ(made->storage(), nullptr);
    EXPECT_EQ(made->dateDue(), std::nullopt);
    EXPECT_EQ(unlockSendable(*made), nullptr);

    // Nine days later the sheet opens on the first issue date again.
    Clock::setNow(Date::dateWithYear(2024, 3, 10));
    issueHooks().pdfDocument = [](BLSendable&, Bytes& pdf) -> StepFailure {
        pdf = bytesOf("%PDF second issue");
        return std::nullopt;
    };
    SendSheet sheet = startIssue({made});
    ASSERT_TRUE(sheet.proceed);
    EXPECT_TRUE(sheet.dateEditable);
    EXPECT_EQ(sheet.date, firstIssue);
    IssueResult again = issue({made}, sheet.date);
    ASSERT_TRUE(again.issued);
    EXPECT_TRUE(again.numbers.empty());
    EXPECT_EQ(made->name(), "2024-007");
    EXPECT_EQ(made->dateSent(), firstIssue);
    EXPECT_EQ(counter(), 8);
    ASSERT_NE(made->storage(), transcript->storage());
    EXPECT_EQ(*made->storage()->data(), bytesOf("%PDF second issue"));
    EXPECT_EQ(*transcript->storage()->data(), bytesOf("%PDF first issue"));
}

TEST_F(SendableIssueTest, TheDefaultRouteFollowsDeliveryClientHistoryAndEmail) {
    struct Row {
        const char* name;
        int16_t ownType;
        bool sendPlugin;
        std::vector<int16_t> earlierTypes;
        bool email;
        SendRoute main;
        std::optional<SendRoute> second;
    };
    const Row rows[] = {
        {"printed last time", 2, true, {}, true, SendRoute::Print, SendRoute::Mail},
        {"network last time", 4, false, {}, true, SendRoute::Network, std::nullopt},
        {"e-invoice client", 0, true, {2, 2}, true, SendRoute::Mail, SendRoute::Save},
        // (1 + 2 + 3) / 3 = 2, above 1.5.
        {"mostly printed", 0, false, {1, 2, 3}, true, SendRoute::Print, SendRoute::Mail},
        // (1 + 2) / 2 = 1.5, not above.
        {"half mailed", 0, false, {1, 2}, false, SendRoute::Mail, SendRoute::Print},
        {"with e-mail", 0, false, {}, true, SendRoute::Mail, SendRoute::Print},
        {"without e-mail", 0, false, {}, false, SendRoute::Print, SendRoute::Mail},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        auto* client = insert<BLClient>();
        if (row.sendPlugin) {
            client->setSendPluginIdentifier(std::string("com.example.peppol"));
        }
        if (row.email) {
            client->setEmail(std::string("office@example.com"));
        }
        for (int16_t type : row.earlierTypes) {
            BLInvoice* earlier = draft();
            earlier->setParentDocument(client);
            earlier->setDeliveryType(type);
        }
        BLInvoice* made = draft();
        made->setParentDocument(client);
        made->setDeliveryType(row.ownType);
        SendButtons buttons = defaultSendButtons(*made);
        EXPECT_EQ(buttons.main, row.main);
        EXPECT_EQ(buttons.second, row.second);
    }
}

TEST_F(SendableIssueTest, TheStartStopsOnRefusalsAndGoesOnForALocalStore) {
    BLInvoice* made = draft();
    made->setPayInterval(std::nullopt);
    SendSheet local = startIssue({made});
    EXPECT_TRUE(local.proceed);
    EXPECT_EQ(local.payInterval, 30);
    EXPECT_EQ(local.date, Date::now());

    issueHooks().checkServiceIsRunning = [](BLSendable&) { return std::optional<ServiceProblem>(); };
    EXPECT_TRUE(startIssue({made}).proceed);

    issueHooks().willSendDocument = [](BLSendable&) { return false; };
    SendSheet refused = startIssue({made});
    EXPECT_FALSE(refused.proceed);
    EXPECT_FALSE(refused.alert.has_value());
    issueHooks().willSendDocument = nullptr;

    issueHooks().checkServiceIsRunning = [](BLSendable&) {
        return std::optional<ServiceProblem>(ServiceProblem{ServiceProblem::Kind::NotRunning, "Syncer"});
    };
    SendSheet down = startIssue({made});
    EXPECT_FALSE(down.proceed);
    ASSERT_TRUE(down.alert.has_value());
    EXPECT_EQ(down.alert->title, "Syncer not running");
    EXPECT_EQ(down.alert->text, "Please make sure Syncer is running before sending documents.");

    issueHooks().checkServiceIsRunning = nullptr;
    issueHooks().hasError = [](BLSendable&) { return true; };
    SendSheet syncing = startIssue({made});
    EXPECT_FALSE(syncing.proceed);
    ASSERT_TRUE(syncing.alert.has_value());
    EXPECT_EQ(syncing.alert->title, "Document not ready");
    EXPECT_TRUE(startIssue({}).alert == std::nullopt);
}

TEST_F(SendableIssueTest, ACancelledPrintLeavesTheDocumentsIssuedButUndelivered) {
    int queued = 0;
    issueHooks().addToSepaQueue = [&queued](BLSendable&) { ++queued; };
    issueHooks().print = [](const std::vector<BLSendable*>&) { return false; };
    BLInvoice* made = draft();
    IssueResult result = issue({made}, sheetDate(), 14, SendRoute::Print);
    ASSERT_TRUE(result.issued);
    EXPECT_TRUE(result.saved);
    EXPECT_EQ(made->name(), "2024-007");
    EXPECT_EQ(made->deliveryTypeValue(), 0);
    EXPECT_EQ(queued, 0);
    EXPECT_TRUE(m_sentCalls.empty());
    EXPECT_EQ(result.notes.size(), 1u);

    issueHooks().print = [](const std::vector<BLSendable*>&) { return true; };
    BLInvoice* printed = draft();
    ASSERT_TRUE(issue({printed}, sheetDate(), 14, SendRoute::Print).issued);
    EXPECT_EQ(printed->deliveryTypeValue(), 2);
    EXPECT_EQ(queued, 1);
    EXPECT_EQ(m_sentCalls.size(), 1u);
}

TEST_F(SendableIssueTest, ARejectedNetworkSendReturnsToDraftWithItsNumber) {
    BLInvoice* made = draft();
    issueHooks().sendPlugin = [](BLSendable&) {
        return std::optional<SendPluginInfo>(SendPluginInfo{"plugin.peppol", false, true});
    };
    std::function<void(std::optional<Value::Dictionary>)> pending;
    issueHooks().runSendFunction = [&pending](BLSendable&, const SendPluginInfo&,
                                              std::function<void(std::optional<Value::Dictionary>)> done) {
        pending = std::move(done);
    };
    IssueResult result = issue({made}, sheetDate(), 14, SendRoute::Network);
    ASSERT_TRUE(result.issued);
    EXPECT_TRUE(result.networkPending);
    EXPECT_TRUE(m_sentCalls.empty());
    ASSERT_TRUE(pending);

    pending(Value::Dictionary{{"success", Value(false)},
                              {"onServer", Value(false)},
                              {"step", Value("upload")},
                              {"errors", Value(Value::Array{Value("bad VAT id")})},
                              {"messages", Value(Value::Array{Value("retry later")})}});
    EXPECT_TRUE(made->isDraft());
    EXPECT_EQ(made->name(), "2024-007");
    EXPECT_FALSE(made->metaValueForKey("plugin.peppol").isNull());
    ASSERT_EQ(m_alerts.size(), 1u);
    EXPECT_EQ(m_alerts[0].title, "E-Invoice Send Failed");
    EXPECT_EQ(m_alerts[0].text, "Failed at step: upload");
    EXPECT_EQ(m_alerts[0].table, (std::vector<std::string>{"bad VAT id", "retry later"}));

    EXPECT_EQ(applyNetworkSendResult(*made, "plugin.peppol", Value::Dictionary{}), std::nullopt);
    std::optional<IssueAlert> accepted = applyNetworkSendResult(
        *made, "plugin.peppol", Value::Dictionary{{"success", Value(true)}, {"documentId", Value("D-1")}});
    ASSERT_TRUE(accepted.has_value());
    EXPECT_EQ(accepted->title, "E-Invoice Sent Successfully");
    EXPECT_EQ(accepted->text, "Document ID: D-1");
}

}  // namespace
}  // namespace brassline
