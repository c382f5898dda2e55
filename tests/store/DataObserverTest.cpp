#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "ObservationTestSupport.h"
#include "model/ManagedObjectContext.h"
#include "model/NotificationCenter.h"
#include "model/RunLoop.h"
#include "model/entities/BLCost.h"
#include "model/entities/BLCustomField.h"
#include "model/entities/BLCustomValue.h"
#include "model/entities/BLInvoice.h"
#include "model/entities/BLPayment.h"
#include "model/entities/BLTaxRule.h"
#include "store/BLDataObserver.h"
#include "store/ObservationNames.h"

namespace brassline {
namespace {

using observationtest::ObservationFixture;

class DataObserverTest : public ObservationFixture {
protected:
    void SetUp() override {
        ObservationFixture::SetUp();
        m_observer.attach(context());
    }
    void TearDown() override {
        m_observer.detach();
        ObservationFixture::TearDown();
    }
    BLDataObserver m_observer;
};

TEST_F(DataObserverTest, ChangesOfOneTurnPostEachNotificationOnceWithTheContext) {
    auto* first = insert<BLInvoice>();
    auto* second = insert<BLInvoice>();
    auto* payment = insert<BLPayment>();
    settle();
    log().clear();

    // Three handlers in one turn schedule "UpdateStateController": one post.
    first->setCompleteModeValue(1);
    second->setRecurringValue(true);
    payment->setAmount(Decimal(5));
    settle();
    ASSERT_EQ(log().count(kUpdateStateControllerNotification), 1u);
    const auto& entry = log().entries().front();
    EXPECT_EQ(entry.object, nullptr);
    EXPECT_EQ(entry.context, static_cast<Object*>(&context()));
    EXPECT_TRUE(m_observer.scheduledNotifications().empty());

    // The next turn is a new batch.
    first->setCompleteModeValue(0);
    settle();
    EXPECT_EQ(log().count(kUpdateStateControllerNotification), 2u);
}

TEST_F(DataObserverTest, ScheduledRecordsFoldByNameAndObject) {
    auto* a = insert<BLPayment>();
    auto* b = insert<BLPayment>();
    settle();
    log().clear();
    const uint64_t sentBefore = m_observer.sentNotifications();
    m_observer.scheduleNotificationName("X");
    m_observer.scheduleNotificationName("X");
    m_observer.scheduleNotificationName("X", a);
    m_observer.scheduleNotificationName("X", a);
    m_observer.scheduleNotificationName("X", b);
    m_observer.scheduleNotificationName("Y");
    EXPECT_EQ(m_observer.scheduledNotifications().size(), 4u);
    EXPECT_TRUE(log().entries().empty());  // Nothing before the run loop turns.
    settle();
    EXPECT_EQ(log().count("X"), 3u);
    EXPECT_EQ(log().count("Y"), 1u);
    EXPECT_EQ(m_observer.sentNotifications() - sentBefore, 4u);
}

// Which notifications a change of one key posts, the handlers found over the entity and
// its super-entities by name. Worked out from the handler list: "archived" reaches every
// entity through Base; Container catches "isDefault"; the misspelt invoice handler for
// "completeMode" never runs, so no "updateOverview" comes from an invoice.
TEST_F(DataObserverTest, HandlersAreFoundByNameOverSuperEntities) {
    struct Row {
        const char* entity;
        const char* key;
        Value value;
        std::vector<std::string> expected;  // Sorted.
    } rows[] = {
        {"Client", "archived", Value(true), {kRefreshSourceListsNotification, kInvalidateAddressesNotification}},
        {"Client",
         "sendPluginIdentifier",
         Value("mail"),
         {kRefreshClientInfoNotification, kInvalidateAddressesNotification}},
        {"Client", "notes", Value("x"), {kInvalidateAddressesNotification}},
        {"TaxGroup", "archived", Value(true), {kRefreshSourceListsNotification, kRefreshTaxTableNotification}},
        {"ClientGroup", "archived", Value(true), {kRefreshSourceListsNotification, kRefreshTaxTableNotification}},
        {"Layout", "archived", Value(true), {kRefreshSourceListsNotification}},
        {"ItemGroup", "name", Value("Hardware"), {kItemGroupsChangedNotification}},
        {"ItemGroup", "isDefault", Value(true), {kDefaultChangedInContainerNotification}},
        {"Currency", "isDefault", Value(true), {kDefaultChangedInContainerNotification}},
        {"Estimate", "completeMode", Value(1), {kUpdateOverviewNotification}},
        {"Invoice", "completeMode", Value(1), {kUpdateStateControllerNotification}},
        {"PartialInvoice", "completeMode", Value(2), {kUpdateStateControllerNotification}},
        {"Invoice", "recurringInterval", Value(3), {kUpdateStateControllerNotification}},
        {"Invoice", "recurringMode", Value(1), {kUpdateStateControllerNotification}},
        // No handler; the date setter itself tells its listeners.
        {"Invoice", "dateSent", Value(Date::now()), {"SentChanged"}},
        {"Invoice", "subject", Value("March"), {}},
        {"Payment", "amount", Value(Decimal(12)), {kUpdateStateControllerNotification}},
        {"Payment", "uid", Value("pay-1"), {kRefreshPaymentsNotification}},
        {"CustomField", "name", Value("Colour"), {kCustomFieldChangedNotification}},
    };
    for (Row& row : rows) {
        SCOPED_TRACE(std::string(row.entity) + "." + row.key);
        ManagedObject* object = context().insertNewObjectForEntityForName(row.entity);
        ASSERT_NE(object, nullptr);
        settle();
        log().clear();
        object->setValueForKey(row.value, row.key);
        settle();
        std::sort(row.expected.begin(), row.expected.end());
        EXPECT_EQ(log().names(), row.expected);
    }
}

TEST_F(DataObserverTest, TheMisspeltInvoiceHandlerExistsButNeverRuns) {
    EXPECT_TRUE(BLDataObserver::hasHandler("completeModeChangedInvoice"));
    EXPECT_TRUE(BLDataObserver::hasHandler("completeModeChangedInEstimate"));
    EXPECT_FALSE(BLDataObserver::hasHandler("completeModeChangedInSendable"));
    auto* invoice = insert<BLInvoice>();
    settle();
    log().clear();
    for (int mode : {1, 2, 0}) {
        invoice->setCompleteModeValue(mode);
        settle();
    }
    EXPECT_EQ(log().count(kUpdateOverviewNotification), 0u);
    EXPECT_EQ(log().count(kUpdateStateControllerNotification), 3u);
}

TEST_F(DataObserverTest, DocumentTreeChangesReachParentAndChild) {
    auto* invoice = insert<BLInvoice>();
    auto* payment = insert<BLPayment>();
    settle();
    log().clear();
    payment->setParentDocument(invoice);
    settle();
    // The invoice's "documents": the Document and the Invoice handler; the payment's
    // "parentDocument" only logs when the parent is gone.
    EXPECT_EQ(log().names(),
              (std::vector<std::string>{kDocumentsChangedNotification, kDocumentsChangedInInvoiceNotification,
                                        kUpdateStateControllerNotification}));
    EXPECT_EQ(log().entries().size(), 3u);
}

TEST_F(DataObserverTest, LayoutStorageChangePostsWithTheStorageAsObject) {
    ManagedObject* first = context().insertNewObjectForEntityForName("LayoutStorage");
    ManagedObject* second = context().insertNewObjectForEntityForName("LayoutStorage");
    settle();
    log().clear();
    first->setValueForKey(Value(Bytes{1, 2}), "data");
    second->setValueForKey(Value(Bytes{3}), "data");
    settle();
    ASSERT_EQ(log().count(kLayoutStoreChangedNotification), 2u);
    std::vector<Object*> objects = {log().entries()[0].object, log().entries()[1].object};
    EXPECT_NE(std::find(objects.begin(), objects.end(), first), objects.end());
    EXPECT_NE(std::find(objects.begin(), objects.end(), second), objects.end());
}

TEST_F(DataObserverTest, TaxRuleChangeOfALineAnnouncesCostUpTheTree) {
    auto* invoice = insert<BLInvoice>();
    auto* line = insert<BLCost>();
    auto* rule = insert<BLTaxRule>();
    line->setParent(invoice);
    settle();
    int costNotices = 0;
    invoice->addObserverForKey("cost", [&](ManagedObject&, std::string_view) { ++costNotices; });
    line->setTaxRule(rule);
    EXPECT_EQ(costNotices, 0);  // Not in the setter: on the batch's notice.
    settle();
    EXPECT_EQ(costNotices, 1);
}

TEST_F(DataObserverTest, RefreshedObjectsAreDispatchedOnceAndTold) {
    auto* payment = insert<BLPayment>();
    settle();
    std::vector<ManagedObject*> told;
    observationHooks().objectRefreshed = [&](ManagedObject& object) { told.push_back(&object); };
    log().clear();
    payment->setAmount(Decimal(3));
    context().refreshObject(payment, true);  // Updated and refreshed in one batch.
    settle();
    EXPECT_EQ(told, std::vector<ManagedObject*>{payment});
    EXPECT_EQ(log().count(kUpdateStateControllerNotification), 1u);
}

TEST_F(DataObserverTest, NoticesAndSchedulesOffTheMainThreadPostNothing) {
    auto* payment = insert<BLPayment>();
    settle();
    log().clear();
    std::thread worker([&] {
        Value::Dictionary userInfo{{kUpdatedObjectsKey, Value(Value::Array{Value(static_cast<Object*>(payment))})},
                                   {kChangedKeysKey, Value(Value::Array{Value(Value::Array{Value("amount")})})}};
        NotificationCenter::defaultCenter().postNotificationName(kObjectsDidChangeNotification, &context(), userInfo);
        m_observer.scheduleNotificationName("FromWorker");
    });
    worker.join();
    EXPECT_TRUE(m_observer.scheduledNotifications().empty());
    settle();
    EXPECT_TRUE(log().entries().empty());
}

TEST_F(DataObserverTest, DetachedObserverDropsWhatWasScheduledAndHearsNoMore) {
    auto* payment = insert<BLPayment>();
    settle();
    log().clear();
    payment->setAmount(Decimal(1));
    context().processPendingChanges();  // Scheduled, not yet fired.
    EXPECT_FALSE(m_observer.scheduledNotifications().empty());
    m_observer.detach();
    settle();
    payment->setAmount(Decimal(2));
    settle();
    EXPECT_TRUE(log().entries().empty());
}

TEST_F(DataObserverTest, ReceiversSchedulingDuringAPostStartTheNextBatch) {
    settle();
    log().clear();
    int again = 0;
    NotificationCenter::defaultCenter().addObserver("First", nullptr, [&](const Notification&) {
        if (again++ == 0) {
            m_observer.scheduleNotificationName("Second");
        }
    });
    m_observer.scheduleNotificationName("First");
    settle();
    EXPECT_EQ(log().count("First"), 1u);
    EXPECT_EQ(log().count("Second"), 1u);
}

}  // namespace
}  // namespace brassline
