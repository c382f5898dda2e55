#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "../money/ItemTestSupport.h"
#include "core/Localization.h"
#include "core/ValueTransformers.h"
#include "model/NotificationCenter.h"
#include "model/entities/BLClient.h"
#include "model/entities/BLEstimate.h"
#include "model/entities/BLInvoice.h"
#include "model/entities/BLPartialInvoice.h"
#include "model/entities/BLPayment.h"
#include "model/entities/BLSendableStorage.h"
#include "model/entities/BLTranscript.h"

namespace brassline {
namespace {

class SendableStateTest : public ItemFixture {
protected:
    void SetUp() override {
        ItemFixture::SetUp();
        TimeZone::setCurrent("Europe/Berlin");
        setCurrentLanguage("de");
        Clock::setNow(Date::dateWithYear(2024, 3, 10));
        modelHooks().preferenceValue = [this](ManagedObjectContext&, std::string_view key) -> Value {
            return key == "invoice.overdueInterval" ? Value(m_overdueInterval) : Value();
        };
    }
    void TearDown() override {
        Clock::setNow(std::nullopt);
        TimeZone::setCurrent("");
        setCurrentLanguage("");
        ItemFixture::TearDown();
    }

    // An invoice over 100.00 EUR (or over nothing), issued on `sent` when given.
    BLInvoice* invoice(bool withLine, std::optional<Date> sent = std::nullopt) {
        BLInvoice* made = invoiceIn("EUR");
        if (withLine) {
            addCost(made, "100");
        }
        made->setDateSent(sent);
        return made;
    }
    BLPayment* pay(BLInvoice* invoice, const char* amount, Date date) {
        auto* payment = insert<BLPayment>();
        payment->setAmount(dec(amount));
        payment->setDateCreation(date);
        payment->setParentDocument(invoice);
        invoice->resetCaches();
        return payment;
    }

    int64_t m_overdueInterval = 3;
};

// The two words of a state test in different orders: status asks "balanced" first and
// displayStatus "draft" first, so an empty draft is "paid" for scripts and "Entwurf" (draft)
// in the list.
TEST_F(SendableStateTest, StatusAndDisplayStatusFollowTheirOwnOrders) {
    const Date sent = Date::dateWithYear(2024, 3, 1);
    struct Row {
        const char* name;
        bool withLine;
        bool issued;
        int16_t completeMode;
        const char* status;
        const char* displayStatus;
    };
    const Row rows[] = {
        {"empty draft", false, false, 0, "paid", "Entwurf"},
        {"draft with a line", true, false, 0, "draft", "Entwurf"},
        {"canceled draft", true, false, 2, "canceled", "Entwurf"},
        {"issued and open", true, true, 0, "sent", "Versendet"},
        {"issued and settled", true, true, 1, "settled", "Erledigt"},
        {"issued and canceled", true, true, 2, "canceled", "Storniert"},
        {"issued empty, canceled", false, true, 2, "paid", "Bezahlt"},
        {"issued empty, settled", false, true, 1, "paid", "Bezahlt"},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        BLInvoice* made = invoice(row.withLine, row.issued ? std::optional<Date>(sent) : std::nullopt);
        made->setCompleteMode(row.completeMode);
        EXPECT_EQ(made->status(), row.status);
        EXPECT_EQ(made->displayStatus(), row.displayStatus);
    }
}

TEST_F(SendableStateTest, EstimateReadsTheOldDeclinedMarkAndUsesItsOwnWords) {
    struct Row {
        int16_t stored;
        bool issued;
        int16_t state;
        const char* status;
        const char* displayStatus;
    };
    const Row rows[] = {
        {-1, true, 2, "declined", "Abgelehnt"}, {2, false, 2, "declined", "Abgelehnt"},
        {1, true, 1, "accepted", "Angenommen"}, {0, true, 0, "sent", "Versendet"},
        {0, false, 0, "draft", "Entwurf"},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.stored);
        BLEstimate* estimate = estimateIn("EUR");
        addCost(estimate, "50");
        if (row.issued) {
            estimate->setDateSent(Date::dateWithYear(2024, 3, 1));
        }
        estimate->setPrimitiveCompleteMode(row.stored);
        EXPECT_EQ(estimate->state(), row.state);
        EXPECT_EQ(estimate->status(), row.status);
        EXPECT_EQ(estimate->displayStatus(), row.displayStatus);
        EXPECT_EQ(estimate->amount(), Decimal());
    }
}

// Due is "before the end of today" in local time; overdue counts whole calendar days past
// dateDue and must exceed the interval (3 here).
TEST_F(SendableStateTest, DueAndOverdueAcrossDayBoundariesAndZones) {
    struct Row {
        const char* zone;
        const char* due;
        const char* now;
        bool isDue;
        bool isOverDue;
    };
    const Row rows[] = {
        // Due at midnight, the last seconds of the same day: due, 0 days late.
        {"Europe/Berlin", "2024-03-10T00:00:00+01:00", "2024-03-10T23:59:58+01:00", true, false},
        // Due tomorrow at midnight: not yet due tonight.
        {"Europe/Berlin", "2024-03-11T00:00:00+01:00", "2024-03-10T23:59:00+01:00", false, false},
        // 10 March to 13 March: 3 whole days, not more than 3.
        {"Europe/Berlin", "2024-03-10T00:00:00+01:00", "2024-03-13T12:00:00+01:00", true, false},
        // 10 March to 14 March, half a minute past midnight: 4 days.
        {"Europe/Berlin", "2024-03-10T00:00:00+01:00", "2024-03-14T00:00:30+01:00", true, true},
        // Over the switch to summer time: 95.5 hours, under 4 x 24, but 4 calendar days.
        {"Europe/Berlin", "2024-03-28T00:00:00+01:00", "2024-04-01T00:30:00+02:00", true, true},
        // The same instants in two zones. Berlin: due 11 March 00:30, now 10 March 23:00,
        // so not yet due. New York: due 10 March 19:30, now 18:00 the same day: due.
        {"Europe/Berlin", "2024-03-10T23:30:00Z", "2024-03-10T22:00:00Z", false, false},
        {"America/New_York", "2024-03-10T23:30:00Z", "2024-03-10T22:00:00Z", true, false},
        // Berlin: 11 March to 14 March 06:00 is 3 days. New York: 10 March to 14 March
        // 01:00 is 4 days, overdue.
        {"Europe/Berlin", "2024-03-10T23:30:00Z", "2024-03-14T05:00:00Z", true, false},
        {"America/New_York", "2024-03-10T23:30:00Z", "2024-03-14T05:00:00Z", true, true},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(std::string(row.zone) + " due " + row.due + " now " + row.now);
        TimeZone::setCurrent(row.zone);
        Clock::setNow(*Date::parseISO8601(row.now));
        BLInvoice* made = invoice(true, Date::dateWithYear(2024, 2, 1));
        made->setDateDue(*Date::parseISO8601(row.due));
        EXPECT_EQ(made->isDue(), row.isDue);
        EXPECT_EQ(made->isOverDue(), row.isOverDue);
    }
}

TEST_F(SendableStateTest, ClosedPaidOrDraftInvoicesAreNeverDue) {
    Clock::setNow(Date::dateWithYear(2024, 4, 20));
    const Date due = Date::dateWithYear(2024, 3, 1);
    BLInvoice* settled = invoice(true, Date::dateWithYear(2024, 2, 1));
    settled->setCompleteMode(int16_t{1});
    BLInvoice* draft = invoice(true);
    BLInvoice* paid = invoice(true, Date::dateWithYear(2024, 2, 1));
    pay(paid, "100", Date::dateWithYear(2024, 2, 20));
    for (BLInvoice* made : {settled, draft, paid}) {
        made->setDateDue(due);
        EXPECT_FALSE(made->isDue());
        EXPECT_FALSE(made->isOverDue());
    }
    // 1 March plus 3 days.
    EXPECT_EQ(paid->dateOverdue(), Date::dateWithYear(2024, 3, 4));
}

TEST_F(SendableStateTest, DatePaidIsTheLastPaymentOnceBalancedOrSettled) {
    BLInvoice* made = invoice(true, Date::dateWithYear(2024, 2, 1));
    EXPECT_EQ(made->datePaid(), std::nullopt);
    pay(made, "40", Date::dateWithYear(2024, 2, 20));
    // 60.00 still open.
    EXPECT_EQ(made->datePaid(), std::nullopt);
    made->setCompleteMode(int16_t{1});
    EXPECT_EQ(made->datePaid(), Date::dateWithYear(2024, 2, 20));
    made->setCompleteMode(int16_t{0});
    pay(made, "60", Date::dateWithYear(2024, 2, 25));
    EXPECT_EQ(made->datePaid(), Date::dateWithYear(2024, 2, 25));
}

TEST_F(SendableStateTest, DisplayNameCarriesLabelNumberSubjectAndDraftMark) {
    BLInvoice* draft = invoice(true);
    draft->setName(std::string("RE-7"));
    draft->setSubject(std::string("Dach"));
    EXPECT_EQ(draft->displayName(), "Rechnung RE-7 - Dach (Entwurf)");
    EXPECT_EQ(draft->nameOrDraft(), "RE-7");
    EXPECT_EQ(draft->sendTitle(), "Senden");

    BLInvoice* credit = invoiceIn("EUR");
    addCost(credit, "-20");
    credit->setDateSent(Date::dateWithYear(2024, 3, 1));
    EXPECT_EQ(credit->displayName(), "Gutschrift");
    EXPECT_EQ(credit->documentType(), "Gutschrift");
    EXPECT_EQ(credit->mailPrefsKey(), "creditnote");
    EXPECT_EQ(credit->nameOrDraft(), "Entwurf");
    EXPECT_EQ(credit->sendTitle(), "Erneut senden");
    EXPECT_EQ(credit->year(), "2024");
    EXPECT_EQ(credit->month(), "03");
}

TEST_F(SendableStateTest, ClearingTheDateDropsTheStorageAndTellsListenersLater) {
    int told = 0;
    Value toldContext;
    NotificationCenter::defaultCenter().addObserver("SentChanged", nullptr, [&](const Notification& notice) {
        ++told;
        auto found = notice.userInfo.find("context");
        toldContext = found != notice.userInfo.end() ? found->second : Value();
    });
    BLInvoice* made = invoice(true, Date::dateWithYear(2024, 3, 1));
    made->setStorage(insert<BLSendableStorage>());
    RunLoop::main().runUntilIdle();
    EXPECT_EQ(told, 1);
    EXPECT_EQ(toldContext.object(), static_cast<Object*>(&context()));

    made->setDateSent(std::nullopt);
    EXPECT_EQ(made->storage(), nullptr);
    EXPECT_EQ(told, 1);  // Not before the next turn.
    RunLoop::main().runUntilIdle();
    EXPECT_EQ(told, 2);

    // While syncing, the storage stays and nobody is told.
    made->setDateSent(Date::dateWithYear(2024, 3, 2));
    made->setStorage(insert<BLSendableStorage>());
    RunLoop::main().runUntilIdle();
    told = 0;
    BLSyncHelper::setIsSyncing(true);
    made->setDateSent(std::nullopt);
    BLSyncHelper::setIsSyncing(false);
    RunLoop::main().runUntilIdle();
    EXPECT_NE(made->storage(), nullptr);
    EXPECT_EQ(told, 0);
}

TEST_F(SendableStateTest, PartialInvoicesDecideDraftAndSending) {
    BLInvoice* whole = invoice(true);
    auto* partial = insert<BLPartialInvoice>();
    partial->setParentDocument(whole);
    EXPECT_TRUE(whole->isDraft());
    EXPECT_FALSE(whole->canSend());
    EXPECT_TRUE(whole->canEditCurrency());
    // An issued partial invoice without lines of its own makes the final invoice count
    // as out, lets it be sent and fixes its currency.
    partial->setDateSent(Date::dateWithYear(2024, 3, 1));
    EXPECT_FALSE(whole->isDraft());
    EXPECT_TRUE(whole->canSend());
    EXPECT_FALSE(whole->canEditCurrency());
}

TEST_F(SendableStateTest, TranscriptNamesItsTypeAndNumberAndItsAddress) {
    auto* transcript = insert<BLTranscript>();
    transcript->setType(std::string("Rechnung"));
    EXPECT_EQ(transcript->displayType(), "Rechnung");
    transcript->setName(std::string("2024-007"));
    EXPECT_EQ(transcript->displayType(), "Rechnung (2024-007)");
    modelHooks().documentServicePort = [] { return std::optional<int64_t>(8421); };
    Value::Dictionary record = transcript->interchangeRecord();
    EXPECT_EQ(record["url"].toString(), "http://localhost:8421/document/" + *transcript->uid());
    EXPECT_EQ(record.count("record"), 0u);
}

// Scripts, smart lists and the command line read states and dashboard figures by name.
// Issued 1 March, due 5 March, now 10 March with 3 days of grace: five whole days past
// due, so due and overdue. 100.00 less a payment of 40.50 leaves 59.50 open.
TEST_F(SendableStateTest, StatesAndDashboardFiguresReadByName) {
    setCurrentFormattingLocale("de_DE");
    BLInvoice* open = invoice(true, Date::dateWithYear(2024, 3, 1));
    open->setDateDue(Date::dateWithYear(2024, 3, 5));
    pay(open, "40.50", Date::dateWithYear(2024, 3, 2));
    Value status = open->valueForKey("status");
    Value display = open->valueForKey("displayStatus");
    Value amount = open->valueForKey("amountDecimal");
    Value formatted = open->valueForKey("balanceWithoutCurrency");
    ASSERT_NE(status.string(), nullptr);
    EXPECT_EQ(*status.string(), "sent");
    ASSERT_NE(display.string(), nullptr);
    EXPECT_EQ(*display.string(), "Versendet");
    EXPECT_TRUE(open->valueForKey("isDue").toBool());
    EXPECT_TRUE(open->valueForKey("isOverDue").toBool());
    EXPECT_FALSE(open->valueForKey("isDraft").toBool());
    ASSERT_NE(amount.string(), nullptr);
    EXPECT_EQ(*amount.string(), "59.5");
    ASSERT_NE(formatted.string(), nullptr);
    EXPECT_EQ(*formatted.string(), "59,50");
    // Open: the whole net cost counts. Settled short: only what came in.
    EXPECT_EQ(open->valueForKey("costForDashboard").toDecimal(), dec("100"));
    open->setCompleteMode(int16_t{1});
    EXPECT_EQ(open->valueForKey("costForDashboard").toDecimal(), dec("40.50"));

    // Invoice-only keys are empty on an estimate; its words come from the same table.
    BLEstimate* estimate = estimateIn("EUR");
    EXPECT_TRUE(estimate->valueForKey("isDue").isNull());
    EXPECT_TRUE(estimate->valueForKey("datePaid").isNull());
    EXPECT_TRUE(estimate->valueForKey("isDraft").toBool());
    setCurrentFormattingLocale("");
}

// The list icon takes the first reason in its own order. Now is 10 March with 3 days of
// grace; issued invoices over 100.00 went out on 1 March.
TEST_F(SendableStateTest, ListIconTakesTheFirstReason) {
    struct Row {
        const char* name;
        const char* price;  // nullptr: no line
        bool issued;
        int dueDay;  // of March
        int16_t completeMode;
        const char* paid;  // nullptr: no payment
        const char* icon;
    };
    const Row rows[] = {
        {"draft", "100", false, 0, 0, nullptr, ""},
        {"empty draft is balanced but a draft", nullptr, false, 0, 0, nullptr, ""},
        {"five days past due", "100", true, 5, 0, nullptr, "overdue"},
        {"one day past due", "100", true, 9, 0, nullptr, "due"},
        {"due today", "100", true, 10, 0, nullptr, "due"},
        {"not yet due", "100", true, 20, 0, nullptr, ""},
        {"paid in full", "100", true, 5, 0, "100", "paid"},
        {"settled beats overdue", "100", true, 5, 1, nullptr, "completed"},
        {"canceled", "100", true, 5, 2, nullptr, "cancelled"},
        {"credit note beats everything", "-50", true, 5, 1, nullptr, "creditnote"},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        BLInvoice* made = invoiceIn("EUR");
        if (row.price != nullptr) {
            addCost(made, row.price);
        }
        if (row.issued) {
            made->setDateSent(Date::dateWithYear(2024, 3, 1));
            made->setDateDue(Date::dateWithYear(2024, 3, row.dueDay));
        }
        made->setCompleteMode(row.completeMode);
        if (row.paid != nullptr) {
            pay(made, row.paid, Date::dateWithYear(2024, 3, 2));
        }
        Value icon = made->valueForKey("statusImage");
        ASSERT_NE(icon.string(), nullptr);
        EXPECT_EQ(*icon.string(), row.icon);
    }
    BLInvoice* recurring = invoice(true);
    EXPECT_EQ(recurring->extraStatusImage(), "");
    recurring->setRecurringValue(true);
    EXPECT_EQ(recurring->extraStatusImage(), "recurring");

    // An estimate shows only its closing mark; an old file's -1 is a declined one.
    const std::pair<int16_t, const char*> marks[] = {{0, ""}, {1, "completed"}, {2, "cancelled"}, {-1, "cancelled"}};
    for (const auto& [mark, icon] : marks) {
        SCOPED_TRACE(mark);
        BLEstimate* estimate = estimateIn("EUR");
        estimate->setCompleteModeValue(mark);
        EXPECT_EQ(estimate->statusImage(), icon);
    }
}

}  // namespace
}  // namespace brassline
