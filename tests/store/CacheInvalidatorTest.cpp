#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "ObservationTestSupport.h"
#include "model/ManagedObjectContext.h"
#include "model/RunLoop.h"
#include "model/UndoManager.h"
#include "model/entities/BLClient.h"
#include "model/entities/BLCustomField.h"
#include "model/entities/BLCustomValue.h"
#include "model/entities/BLInvoice.h"
#include "model/entities/BLTaxRule.h"
#include "store/BLCacheInvalidator.h"
#include "store/BLCustomFieldInvalidator.h"
#include "store/BLDataObserver.h"
#include "store/UndoSuspension.h"

namespace brassline {
namespace {

using observationtest::ObservationFixture;

// Records each refresh's objects instead of renewing them.
class RecordingInvalidator : public BLCacheInvalidator {
public:
    void refreshObjects() override { refreshes.push_back(takeInvalidItems()); }
    std::vector<std::vector<BLBase*>> refreshes;
};

using CacheInvalidatorTest = ObservationFixture;

TEST_F(CacheInvalidatorTest, ObjectsAddedInOneTurnAreRefreshedOnceTogether) {
    auto* client = insert<BLClient>();
    auto* invoice = insert<BLInvoice>();
    auto* deleted = insert<BLInvoice>();
    RecordingInvalidator invalidator;
    invalidator.addObject(client);
    invalidator.addObject(invoice);
    invalidator.addObject(client);
    invalidator.addObject(deleted);
    invalidator.addObject(nullptr);
    EXPECT_EQ(invalidator.invalidItems().size(), 3u);
    context().deleteObject(deleted);
    EXPECT_TRUE(invalidator.refreshes.empty());  // Waits for the run loop.
    settle();
    ASSERT_EQ(invalidator.refreshes.size(), 1u);
    EXPECT_EQ(invalidator.refreshes[0], (std::vector<BLBase*>{client, invoice}));
    EXPECT_TRUE(invalidator.invalidItems().empty());

    invalidator.addObject(client);  // A new set after the refresh.
    settle();
    ASSERT_EQ(invalidator.refreshes.size(), 2u);
    EXPECT_EQ(invalidator.refreshes[1], std::vector<BLBase*>{client});
}

TEST_F(CacheInvalidatorTest, CallsOffTheMainThreadAndForgottenContextsAreDropped) {
    auto* client = insert<BLClient>();
    RecordingInvalidator invalidator;
    std::thread worker([&] { invalidator.addObject(client); });
    worker.join();
    EXPECT_TRUE(invalidator.invalidItems().empty());

    ManagedObjectContext other(gen::brasslineModel());
    auto* foreign = BLClient::insertInManagedObjectContext(other);
    invalidator.addObject(foreign);
    invalidator.addObject(client);
    invalidator.forgetContext(other);
    settle();
    ASSERT_EQ(invalidator.refreshes.size(), 1u);
    EXPECT_EQ(invalidator.refreshes[0], std::vector<BLBase*>{client});
    BLContextState::forgetContext(other);
}

// The custom field invalidator drops the derived values of the right documents only:
// the value's own document for a changed value, every document for a renamed field.
TEST_F(CacheInvalidatorTest, CustomFieldChangesDropTheCachesOfTheirDocuments) {
    BLDataObserver observer;
    observer.attach(context());
    auto* first = insert<BLClient>();
    auto* second = insert<BLInvoice>();
    auto* rule = insert<BLTaxRule>();  // Not a document: never touched.
    auto* field = insert<BLCustomField>();
    auto* value = static_cast<BLCustomValue*>(context().insertNewObjectForEntityForName("CustomValue"));
    value->setDocument(first);
    value->setField(field);
    settle();
    auto cacheAll = [&] {
        for (BLBase* object : std::vector<BLBase*>{first, second, rule}) {
            object->setHoldfastCacheValue(Value("cached"), "customFieldsDictionary");
        }
    };
    auto cached = [](BLBase* object) { return object->holdfastCacheValueForKey("customFieldsDictionary").has_value(); };

    cacheAll();
    value->setName(std::string("red"));
    settle();
    EXPECT_FALSE(cached(first));
    EXPECT_TRUE(cached(second));
    EXPECT_TRUE(cached(rule));

    cacheAll();
    field->setName(std::string("Colour"));
    settle();
    EXPECT_FALSE(cached(first));
    EXPECT_FALSE(cached(second));
    EXPECT_TRUE(cached(rule));
    observer.detach();
}

TEST_F(CacheInvalidatorTest, SuspensionRestoresRegistrationOnlyIfItWasOn) {
    UndoManager& undo = *context().undoManager();
    {
        UndoSuspension suspension(&context());
        EXPECT_FALSE(undo.isUndoRegistrationEnabled());
    }
    EXPECT_TRUE(undo.isUndoRegistrationEnabled());

    undo.disableUndoRegistration();
    { UndoSuspension suspension(&context()); }
    EXPECT_FALSE(undo.isUndoRegistrationEnabled());  // Off before, off after.
    undo.enableUndoRegistration();
    UndoSuspension none(nullptr);  // No context: nothing to do, nothing to break.
}

TEST_F(CacheInvalidatorTest, DerivedInsertionsLeaveNothingToUndo) {
    UndoManager& undo = *context().undoManager();
    ManagedObject* derived = insertNewObjectWithoutUndoRecording("TaxRule", context());
    ASSERT_NE(derived, nullptr);
    EXPECT_FALSE(undo.canUndo());
    EXPECT_TRUE(undo.isUndoRegistrationEnabled());
    EXPECT_EQ(insertNewObjectWithoutUndoRecording("NoSuchEntity", context()), nullptr);

    undo.beginUndoGrouping();
    ManagedObject* entered = context().insertNewObjectForEntityForName("TaxRule");
    undo.endUndoGrouping();
    EXPECT_TRUE(undo.canUndo());
    undo.undo();  // Takes back the entered object only.
    EXPECT_TRUE(entered->isDeleted());
    EXPECT_FALSE(derived->isDeleted());
}

TEST_F(CacheInvalidatorTest, TreeDeletionIsOneUndoStepThatResetsTheRootsCaches) {
    auto* invoice = insert<BLInvoice>();
    auto* first = insert<BLTaxRule>();
    auto* second = insert<BLTaxRule>();
    settle();
    UndoManager& undo = *context().undoManager();
    undo.removeAllActions();
    invoice->setHoldfastCacheValue(Value(1), "cost");

    EXPECT_TRUE(deleteObjectsInTree({first, second}, *invoice));
    EXPECT_TRUE(first->isDeleted());
    EXPECT_TRUE(second->isDeleted());
    EXPECT_FALSE(invoice->holdfastCacheValueForKey("cost").has_value());
    settle();
    undo.undo();  // One step brings both back.
    EXPECT_FALSE(first->isDeleted());
    EXPECT_FALSE(second->isDeleted());
    EXPECT_FALSE(undo.canUndo());
}

}  // namespace
}  // namespace brassline
