#include <atomic>
#include <memory>
#include <thread>

#include <gtest/gtest.h>

#include "core/Log.h"
#include "model/FetchRequest.h"
#include "model/ManagedObjectContext.h"
#include "model/NotificationCenter.h"
#include "model/Notifications.h"
#include "model/PersistentStore.h"
#include "model/RunLoop.h"
#include "model/UndoManager.h"
#include "testmodel/TMBase.h"
#include "testmodel/TMCatalogItem.h"
#include "testmodel/TMClient.h"
#include "testmodel/TMCost.h"
#include "testmodel/TMGroup.h"
#include "testmodel/TMInvoice.h"
#include "testmodel/TMLabel.h"
#include "testmodel/TMStorage.h"
#include "testmodel/gen/TestModel.h"

namespace brassline {

namespace {

class RuntimeTest : public ::testing::Test {
protected:
    void SetUp() override {
        RunLoop::resetMainForTesting();
        NotificationCenter::resetDefaultCenterForTesting();
        context = std::make_unique<ManagedObjectContext>(gen::testModel());
    }
    void TearDown() override {
        context.reset();
        RunLoop::main().runUntilIdle();
    }

    TMCost* cost(TMInvoice* invoice, const char* quantity, const char* unitPrice) {
        TMCost* line = TMCost::insertInManagedObjectContext(*context);
        line->setQuantity(Decimal::parse(quantity));
        line->setUnitPrice(Decimal::parse(unitPrice));
        if (invoice != nullptr) {
            invoice->addChildsObject(line);
        }
        return line;
    }

    std::vector<std::string> names(const std::vector<ManagedObject*>& objects) {
        std::vector<std::string> result;
        for (ManagedObject* object : objects) {
            result.push_back(object->valueForKey("name").toString());
        }
        return result;
    }

    std::unique_ptr<ManagedObjectContext> context;
};

TEST_F(RuntimeTest, ReflectionDescribesTheEntityTree) {
    const ManagedObjectModel& model = gen::testModel();
    const EntityDescription* cost = model.entityNamed("Cost");
    ASSERT_NE(cost, nullptr);
    EXPECT_EQ(model.entityNamed("TMCost"), cost);
    EXPECT_EQ(cost->managedObjectClassName(), "TMCost");
    ASSERT_NE(cost->superentity(), nullptr);
    EXPECT_EQ(cost->superentity()->name(), "Item");
    EXPECT_TRUE(cost->superentity()->isAbstract());
    EXPECT_FALSE(cost->isAbstract());
    EXPECT_TRUE(cost->isKindOfEntity(*model.entityNamed("Base")));
    EXPECT_FALSE(cost->isKindOfEntity(*model.entityNamed("Invoice")));
    EXPECT_EQ(model.entityNamed("Item")->subentities().size(), 2u);  // Cost and Group.
    // Inherited attributes come first, in declaration order.
    std::vector<std::string> expected = {"uid", "name", "archived", "isDefault", "quantity", "unitPrice", "optional"};
    EXPECT_EQ(cost->attributeNames(), expected);
    const RelationshipDescription* childs = cost->relationshipNamed("childs");
    ASSERT_NE(childs, nullptr);
    EXPECT_TRUE(childs->isToMany);
    EXPECT_TRUE(childs->isOrdered);
    EXPECT_EQ(childs->deleteRule, DeleteRule::Cascade);
    ASSERT_NE(childs->inverse, nullptr);
    EXPECT_EQ(childs->inverse->name, "parent");
    EXPECT_FALSE(childs->inverse->isToMany);
    EXPECT_EQ(model.entityNamed("Client")->relationshipNamed("invoices")->deleteRule, DeleteRule::Deny);
    EXPECT_EQ(model.entityNamed("Invoice")->attributeNamed("scratch")->isTransient, true);
    EXPECT_EQ(model.entityNamed("Nothing"), nullptr);

    EXPECT_EQ(context->insertNewObjectForEntityForName("Item"), nullptr);  // Abstract.
    EXPECT_EQ(context->insertNewObjectForEntityForName("Nothing"), nullptr);
    ManagedObject* line = context->insertNewObjectForEntityForName("Cost");
    ASSERT_NE(line, nullptr);
    EXPECT_NE(dynamic_cast<TMCost*>(line), nullptr);
    EXPECT_EQ(line->className(), "TMCost");
    // awakeFromCreate of the base gave it a 22-character uid.
    EXPECT_EQ(line->valueForKey("uid").toString().size(), 22u);
}

TEST_F(RuntimeTest, AbsentValuesStayDistinctFromZeroAndEmpty) {
    TMClient* client = TMClient::insertInManagedObjectContext(*context);
    EXPECT_FALSE(client->number().has_value());
    EXPECT_EQ(client->numberValue(), 0);
    EXPECT_FALSE(client->name().has_value());
    EXPECT_FALSE(client->archived().has_value());
    EXPECT_FALSE(client->archivedValue());
    client->setNumberValue(0);
    ASSERT_TRUE(client->number().has_value());
    EXPECT_EQ(*client->number(), 0);
    client->setName("");
    ASSERT_TRUE(client->name().has_value());
    EXPECT_EQ(*client->name(), "");
    client->setName(std::nullopt);
    EXPECT_TRUE(client->valueForKey("name").isNull());

    TMInvoice* invoice = TMInvoice::insertInManagedObjectContext(*context);
    invoice->setOperator("filter_contains");
    EXPECT_EQ(invoice->operator_(), "filter_contains");
    EXPECT_EQ(invoice->recurringModeValue(), 3);  // Set by awakeFromCreate.
}

TEST_F(RuntimeTest, SetValueForKeyConvertsAndRunsHandWrittenSetters) {
    TMCost* line = cost(nullptr, "1", "10");
    TMInvoice* invoice = TMInvoice::insertInManagedObjectContext(*context);
    TMClient* client = TMClient::insertInManagedObjectContext(*context);
    struct Row {
        ManagedObject* object;
        const char* key;
        Value input;
        Value expected;  // Null when the write is refused and the old value stays.
    };
    const Row rows[] = {
        {line, "quantity", Value("2.5"), Value(Decimal::parse("2.5").value())},
        {line, "quantity", Value(3), Value(Decimal(3))},
        {line, "quantity", Value("abc"), Value(Decimal(3))},  // Refused: not a number.
        {line, "unitPrice", Value(0.5), Value(Decimal::parse("0.5").value())},
        {line, "optional", Value(1), Value(true)},
        {client, "number", Value(Decimal::parse("7").value()), Value(int64_t{7})},
        {client, "name", Value(5), Value()},                     // Refused: not text.
        {invoice, "discount", Value(250), Value(Decimal(100))},  // Capped by the hand-written setter.
        {invoice, "dateSent", Value(Date(1000.0)), Value(Date(1000.0))},
    };
    LogCapture capture;
    for (const Row& row : rows) {
        SCOPED_TRACE(std::string(row.key) + " <- " + row.input.description());
        row.object->setValueForKey(row.input, row.key);
        Value stored = row.object->valueForKey(row.key);
        EXPECT_EQ(stored, row.expected);
    }
    EXPECT_TRUE(capture.contains("Refused"));
    // Three writes of quantity went through the override, the refused one did not.
    EXPECT_EQ(line->quantitySetterCalls(), 3);

    line->setValueForKey(Value(static_cast<Object*>(invoice)), "parent");
    EXPECT_EQ(line->parent(), invoice);
    line->setValueForKey(Value(static_cast<Object*>(client)), "storage");  // Unknown key on a cost.
    EXPECT_TRUE(capture.contains("not a settable key"));
    invoice->setValueForKey(Value(static_cast<Object*>(line)), "client");  // Wrong entity.
    EXPECT_EQ(invoice->client(), nullptr);
}

TEST_F(RuntimeTest, OrderedToManyKeepsOrderAndInverse) {
    TMInvoice* first = TMInvoice::insertInManagedObjectContext(*context);
    TMInvoice* second = TMInvoice::insertInManagedObjectContext(*context);
    TMCost* a = cost(first, "1", "1");
    TMCost* b = cost(first, "1", "1");
    TMCost* c = cost(first, "1", "1");
    TMCost* d = cost(nullptr, "1", "1");
    first->insertObjectInChildsAtIndex(d, 1);
    EXPECT_EQ(first->childs().toVector(), (std::vector<TMContainer*>{a, d, b, c}));
    EXPECT_EQ(d->parent(), first);

    first->moveChildsAtIndexToIndex(3, 0);
    EXPECT_EQ(first->childs().toVector(), (std::vector<TMContainer*>{c, a, d, b}));

    // Setting the to-one side moves the line between the parents' lists.
    a->setParent(second);
    EXPECT_EQ(first->childs().toVector(), (std::vector<TMContainer*>{c, d, b}));
    EXPECT_EQ(second->childs().toVector(), (std::vector<TMContainer*>{a}));
    // Adding to another list takes it out of the old one.
    second->addChildsObject(b);
    EXPECT_EQ(first->childs().toVector(), (std::vector<TMContainer*>{c, d}));
    EXPECT_EQ(b->parent(), second);

    first->removeObjectFromChildsAtIndex(0);
    EXPECT_EQ(c->parent(), nullptr);
    first->replaceObjectInChildsAtIndexWithObject(0, c);
    EXPECT_EQ(first->childs().toVector(), (std::vector<TMContainer*>{c}));
    EXPECT_EQ(d->parent(), nullptr);
    EXPECT_EQ(c->parent(), first);

    second->setChilds({b, c, a});
    EXPECT_EQ(second->childs().toVector(), (std::vector<TMContainer*>{b, c, a}));
    EXPECT_TRUE(first->childs().empty());

    // Many-to-many keeps both sides.
    TMClient* client = TMClient::insertInManagedObjectContext(*context);
    TMLabel* label = TMLabel::insertInManagedObjectContext(*context);
    client->addLabelsObject(label);
    EXPECT_TRUE(label->clients().contains(client));
    label->removeClientsObject(client);
    EXPECT_TRUE(client->labels().empty());
}

TEST_F(RuntimeTest, DeleteRulesCascadeNullifyAndDeny) {
    TMClient* client = TMClient::insertInManagedObjectContext(*context);
    TMInvoice* invoice = TMInvoice::insertInManagedObjectContext(*context);
    TMStorage* storage = TMStorage::insertInManagedObjectContext(*context);
    invoice->setClient(client);
    invoice->setStorage(storage);
    TMCost* line = cost(invoice, "1", "2");
    TMLabel* label = TMLabel::insertInManagedObjectContext(*context);
    client->addLabelsObject(label);

    std::string error;
    EXPECT_FALSE(context->deleteObject(client, &error));  // invoices is deny.
    EXPECT_NE(error.find("invoices"), std::string::npos);
    EXPECT_FALSE(client->isDeleted());
    EXPECT_EQ(invoice->client(), client);

    ASSERT_TRUE(context->deleteObject(invoice));
    EXPECT_TRUE(invoice->isDeleted());
    EXPECT_TRUE(line->isDeleted());           // childs cascade.
    EXPECT_TRUE(storage->isDeleted());        // storage cascade.
    EXPECT_TRUE(client->invoices().empty());  // client nullified.
    EXPECT_EQ(storage->invoice(), nullptr);

    // The label's clients is no action: the client keeps pointing at the deleted label.
    EXPECT_TRUE(context->deleteObject(label));
    EXPECT_TRUE(client->labels().contains(label));
    // The client's labels nullify: the other label lets go of the deleted client.
    TMLabel* other = TMLabel::insertInManagedObjectContext(*context);
    client->addLabelsObject(other);
    EXPECT_TRUE(context->deleteObject(client));
    EXPECT_TRUE(other->clients().empty());

    // prepareForDeletion runs before the rules clear the relationships: the middle link
    // of a derivation chain is spliced out.
    TMCost* origin = cost(nullptr, "1", "1");
    TMCost* middle = cost(nullptr, "1", "1");
    TMCost* last = cost(nullptr, "1", "1");
    middle->setSource(origin);
    last->setSource(middle);
    ASSERT_TRUE(context->deleteObject(middle));
    EXPECT_EQ(last->source(), origin);
    EXPECT_EQ(origin->derivates().toVector(), (std::vector<TMBase*>{last}));
}

TEST_F(RuntimeTest, KeyPathsReachStoredDerivedAndUndefinedKeys) {
    TMInvoice* invoice = TMInvoice::insertInManagedObjectContext(*context);
    cost(invoice, "2", "10.50");  // 21.00
    cost(invoice, "3", "0.333");  // 0.999
    cost(invoice, "1", "-5");     // -5
    // 21 + 0.999 - 5 = 16.999
    EXPECT_EQ(invoice->valueForKeyPath("childs.@sum.cost"), Value(Decimal::parse("16.999").value()));
    EXPECT_EQ(invoice->valueForKey("total"), Value(Decimal::parse("16.999").value()));
    EXPECT_EQ(invoice->valueForKeyPath("childs.@count"), Value(3));
    EXPECT_EQ(invoice->valueForKeyPath("childs.@max.quantity"), Value(Decimal(3)));
    EXPECT_EQ(invoice->valueForKey("displayName"), Value("untitled Invoice"));
    invoice->setName("March");
    EXPECT_EQ(invoice->valueForKey("displayName"), Value("March"));
    EXPECT_EQ(invoice->valueForKey("custom.colour"), Value("custom value of colour"));
    EXPECT_TRUE(invoice->valueForKey("nothing").isNull());

    TMCost* line = static_cast<TMCost*>(invoice->childs()[0]);
    EXPECT_EQ(line->valueForKeyPath("parent.name"), Value("March"));
    line->setValueForKeyPath(Value("April"), "parent.name");
    EXPECT_EQ(invoice->name(), "April");
}

TEST_F(RuntimeTest, DependentKeysNotifyTheirObservers) {
    TMCost* line = cost(nullptr, "2", "3");
    EXPECT_EQ(line->cost(), Decimal(6));
    std::vector<std::string> heard;
    line->addObserverForKey("cost", [&](ManagedObject&, std::string_view key) { heard.emplace_back(key); });
    line->addObserverForKey("costWithDiscount", [&](ManagedObject&, std::string_view key) { heard.emplace_back(key); });
    uint64_t token =
        line->addObserverForKey("quantity", [&](ManagedObject&, std::string_view key) { heard.emplace_back(key); });
    line->setQuantity(Decimal(4));
    EXPECT_EQ(heard, (std::vector<std::string>{"quantity", "cost", "costWithDiscount"}));
    // The override dropped the cached cost: 4 × 3.
    EXPECT_EQ(line->cost(), Decimal(12));

    heard.clear();
    line->removeObserver(token);
    line->setUnitPrice(Decimal(1));
    EXPECT_EQ(heard, (std::vector<std::string>{"cost", "costWithDiscount"}));
    heard.clear();
    line->setName("not a dependency");
    EXPECT_TRUE(heard.empty());
}

TEST_F(RuntimeTest, ChangesOfOneTurnPostOneNoticeWithTheirOldValues) {
    TMCost* line = cost(nullptr, "1", "5");
    TMCost* other = cost(nullptr, "1", "5");
    RunLoop::main().runUntilIdle();
    ASSERT_TRUE(context->save());

    int notices = 0;
    Value::Dictionary seenChanges;
    size_t updatedCount = 0;
    NotificationCenter::defaultCenter().addObserver(
        kObjectsDidChangeNotification, context.get(), [&](const Notification& notification) {
            ++notices;
            updatedCount = notification.userInfo.at(kUpdatedObjectsKey).count();
            seenChanges = line->changedValuesForCurrentEvent();
        });
    line->setQuantity(Decimal(2));
    line->setQuantity(Decimal(3));
    line->setUnitPrice(Decimal(7));
    other->setName("other");
    EXPECT_EQ(notices, 0);
    RunLoop::main().runUntilIdle();
    EXPECT_EQ(notices, 1);
    EXPECT_EQ(updatedCount, 2u);
    // The values before the event, not the intermediate 2.
    EXPECT_EQ(seenChanges.size(), 2u);
    EXPECT_EQ(seenChanges["quantity"], Value(Decimal(1)));
    EXPECT_EQ(seenChanges["unitPrice"], Value(Decimal(5)));
    EXPECT_TRUE(line->changedValuesForCurrentEvent().empty());
    // Since the save: the current values.
    Value::Dictionary sinceSave = line->changedValues();
    EXPECT_EQ(sinceSave.size(), 2u);
    EXPECT_EQ(sinceSave["quantity"], Value(Decimal(3)));
    EXPECT_TRUE(line->isUpdated());

    // Setting a value back to the saved one is no change any more.
    line->setQuantity(Decimal(1));
    line->setUnitPrice(Decimal(5));
    EXPECT_TRUE(line->changedValues().empty());
    EXPECT_EQ(line->committedValuesForKeys({"quantity"})["quantity"], Value(Decimal(1)));
}

TEST_F(RuntimeTest, UndoRevertsAGroupOfEveryKindOfChangeAndRedoRepeatsIt) {
    TMInvoice* invoice = TMInvoice::insertInManagedObjectContext(*context);
    invoice->setName("before");
    TMCost* kept = cost(invoice, "1", "1");
    TMCost* doomed = cost(invoice, "2", "2");
    TMInvoice* other = TMInvoice::insertInManagedObjectContext(*context);
    RunLoop::main().runUntilIdle();
    ASSERT_TRUE(context->save());
    UndoManager& undo = *context->undoManager();
    undo.removeAllActions();

    undo.beginUndoGrouping();
    invoice->setName("after");
    kept->setParent(other);
    TMCost* added = cost(invoice, "3", "3");
    ASSERT_TRUE(context->deleteObject(doomed));
    undo.endUndoGrouping();
    RunLoop::main().runUntilIdle();
    ASSERT_EQ(invoice->childs().toVector(), (std::vector<TMContainer*>{added}));

    ASSERT_TRUE(undo.canUndo());
    undo.undo();
    RunLoop::main().runUntilIdle();
    EXPECT_EQ(invoice->name(), "before");
    EXPECT_EQ(kept->parent(), invoice);
    EXPECT_FALSE(doomed->isDeleted());
    EXPECT_EQ(doomed->parent(), invoice);
    EXPECT_TRUE(added->isDeleted());
    EXPECT_EQ(invoice->childs().toVector(), (std::vector<TMContainer*>{kept, doomed}));
    EXPECT_TRUE(other->childs().empty());
    EXPECT_TRUE(invoice->changedValues().empty());
    EXPECT_TRUE(kept->changedValues().empty());
    // The undone deletion was heard as such.
    ASSERT_FALSE(doomed->snapshotEvents().empty());
    EXPECT_NE(doomed->snapshotEvents().back() & kSnapshotEventUndoDeletion, 0u);

    ASSERT_TRUE(undo.canRedo());
    undo.redo();
    RunLoop::main().runUntilIdle();
    EXPECT_EQ(invoice->name(), "after");
    EXPECT_EQ(kept->parent(), other);
    EXPECT_TRUE(doomed->isDeleted());
    EXPECT_FALSE(added->isDeleted());
    EXPECT_EQ(invoice->childs().toVector(), (std::vector<TMContainer*>{added}));
}

TEST_F(RuntimeTest, FetchFiltersSortsLimitsAndFollowsSubentities) {
    const char* lines[][3] = {{"c", "3", "1"}, {"a", "1", "1"}, {"d", "4", "1"}, {"b", "2", "1"}};
    for (const auto& line : lines) {
        cost(nullptr, line[1], line[2])->setName(line[0]);
    }
    TMCatalogItem::insertInManagedObjectContext(*context)->setName("catalog");
    TMGroup::insertInManagedObjectContext(*context)->setName("group");
    TMInvoice::insertInManagedObjectContext(*context)->setName("invoice");

    struct Row {
        const char* entity;
        bool subentities;
        const char* predicate;
        size_t limit;
        std::vector<std::string> expected;  // Sorted by name.
    };
    const Row rows[] = {
        {"Cost", true, nullptr, 0, {"a", "b", "c", "catalog", "d"}},
        {"Cost", false, nullptr, 0, {"a", "b", "c", "d"}},
        {"Item", true, nullptr, 0, {"a", "b", "c", "catalog", "d", "group"}},
        {"Base", true, "name BEGINSWITH 'in'", 0, {"invoice"}},
        {"Cost", false, "quantity >= 2", 0, {"b", "c", "d"}},
        {"Cost", false, "quantity >= 2", 2, {"b", "c"}},
        {"Cost", true, "quantity == nil", 0, {"catalog"}},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(std::string(row.entity) + " " + (row.predicate ? row.predicate : "all"));
        FetchRequest request(row.entity);
        request.setIncludesSubentities(row.subentities);
        if (row.predicate != nullptr) {
            ASSERT_TRUE(request.setPredicateFormat(row.predicate));
        }
        request.setSortDescriptors({SortDescriptor{"name"}});
        request.setFetchLimit(row.limit);
        auto objects = context->executeFetchRequest(request);
        ASSERT_TRUE(objects.has_value());
        EXPECT_EQ(names(*objects), row.expected);
        if (row.limit == 0) {
            EXPECT_EQ(context->countForFetchRequest(request), row.expected.size());
        }
    }
    FetchRequest descending("Cost");
    descending.setSortDescriptors({SortDescriptor{"quantity", false}});
    descending.setIncludesSubentities(false);
    EXPECT_EQ(names(*context->executeFetchRequest(descending)), (std::vector<std::string>{"d", "c", "b", "a"}));

    std::string error;
    EXPECT_FALSE(context->executeFetchRequest(FetchRequest("Nothing"), &error).has_value());
    EXPECT_NE(error.find("Nothing"), std::string::npos);
}

TEST_F(RuntimeTest, UidIndexFollowsSettersDeletionAndUndo) {
    TMClient* client = TMClient::insertInManagedObjectContext(*context);
    client->setUid("A");
    RunLoop::main().runUntilIdle();
    context->undoManager()->removeAllActions();
    const EntityDescription& clientEntity = TMClient::entityDescription();
    const EntityDescription& invoiceEntity = TMInvoice::entityDescription();
    EXPECT_EQ(context->objectWithUid(clientEntity, "A"), client);
    EXPECT_EQ(context->objectWithUid(*context->entityNamed("Base"), "A"), client);
    EXPECT_EQ(context->objectWithUid(invoiceEntity, "A"), nullptr);

    context->undoManager()->beginUndoGrouping();
    client->setUid("B");
    context->undoManager()->endUndoGrouping();
    EXPECT_EQ(context->objectWithUid(clientEntity, "A"), nullptr);
    EXPECT_EQ(context->objectWithUid(clientEntity, "B"), client);

    FetchRequest byUid("Client");
    ASSERT_TRUE(byUid.setPredicateFormat("uid == %@", {Value("B")}));
    EXPECT_EQ(byUid.uidEquals(), std::optional<std::string>("B"));
    EXPECT_EQ(context->executeFetchRequest(byUid)->size(), 1u);

    context->undoManager()->undo();
    EXPECT_EQ(context->objectWithUid(clientEntity, "A"), client);
    EXPECT_EQ(context->objectWithUid(clientEntity, "B"), nullptr);
    EXPECT_TRUE(context->executeFetchRequest(byUid)->empty());

    ASSERT_TRUE(context->deleteObject(client));
    EXPECT_EQ(context->objectWithUid(clientEntity, "A"), nullptr);
}

TEST_F(RuntimeTest, URIsResolveOnlyLiveObjectsOfThisStore) {
    TMInvoice* invoice = TMInvoice::insertInManagedObjectContext(*context);
    std::string uri = invoice->URIString();
    EXPECT_EQ(uri.rfind("x-coredata://" + context->storeIdentifier() + "/Invoice/p", 0), 0u);
    EXPECT_EQ(context->objectForURIString(uri), invoice);
    const std::string bad[] = {"", "x-coredata://other/Invoice/p1",
                               "x-coredata://" + context->storeIdentifier() + "/Invoice/p",
                               "x-coredata://" + context->storeIdentifier() + "/Nothing/p1",
                               "x-coredata://" + context->storeIdentifier() + "/Invoice/p12x"};
    for (const std::string& text : bad) {
        SCOPED_TRACE(text);
        EXPECT_EQ(context->objectForURIString(text), nullptr);
    }
    EXPECT_EQ(context->objectsForURIStrings({uri, "junk"}).size(), 1u);
    ASSERT_TRUE(context->deleteObject(invoice));
    EXPECT_EQ(context->objectForURIString(uri), nullptr);
}

TEST_F(RuntimeTest, SavesReachTheStoreWholeAndLoadBack) {
    context.reset();
    auto store = std::make_unique<InMemoryStore>("store-1");
    InMemoryStore* memory = store.get();
    context = std::make_unique<ManagedObjectContext>(gen::testModel(), std::move(store));
    TMInvoice* invoice = TMInvoice::insertInManagedObjectContext(*context);
    invoice->setName("kept");
    invoice->setScratch("not saved");
    cost(invoice, "2", "3")->setName("first");
    cost(invoice, "1", "1")->setName("second");
    TMInvoice* temporary = TMInvoice::insertInManagedObjectContext(*context);
    ASSERT_TRUE(context->deleteObject(temporary));  // Never reaches the store.

    memory->failNextSave("disk full");
    std::string error;
    EXPECT_FALSE(context->save(&error));
    EXPECT_EQ(error, "disk full");
    EXPECT_TRUE(invoice->isInserted());  // Nothing was committed.
    ASSERT_TRUE(context->save());
    EXPECT_FALSE(context->hasChanges());
    EXPECT_EQ(memory->records().size(), 3u);

    auto reopened = std::make_unique<InMemoryStore>(*memory);
    ManagedObjectContext second(gen::testModel(), std::move(reopened));
    FetchRequest request("Invoice");
    auto invoices = second.executeFetchRequest(request);
    ASSERT_EQ(invoices->size(), 1u);
    auto* loaded = static_cast<TMInvoice*>(invoices->front());
    EXPECT_EQ(loaded->name(), "kept");
    EXPECT_FALSE(loaded->scratch().has_value());
    EXPECT_FALSE(loaded->hasChanges());
    ASSERT_EQ(loaded->childs().size(), 2u);
    EXPECT_EQ(loaded->childs()[0]->name(), "first");
    EXPECT_EQ(loaded->childs()[0]->parent(), loaded);
    EXPECT_EQ(loaded->URIString(), "x-coredata://store-1/Invoice/p" + std::to_string(invoice->objectID().number));
    // New numbers continue after the loaded ones.
    TMInvoice* fresh = TMInvoice::insertInManagedObjectContext(second);
    EXPECT_GT(fresh->objectID().number, loaded->childs()[1]->objectID().number);
}

TEST_F(RuntimeTest, ChildContextIsIsolatedUntilItSaves) {
    TMInvoice* invoice = TMInvoice::insertInManagedObjectContext(*context);
    invoice->setName("parent's");
    invoice->setUid("inv-1");
    cost(invoice, "1", "1");
    ManagedObjectContext child(*context);

    TMInvoice* copy = nullptr;
    child.performBlockAndWait([&] {
        // Unsaved parent state is visible to the child.
        copy = static_cast<TMInvoice*>(child.objectWithUid(TMInvoice::entityDescription(), "inv-1"));
        ASSERT_NE(copy, nullptr);
        EXPECT_NE(copy, invoice);
        EXPECT_EQ(copy->name(), "parent's");
        EXPECT_EQ(copy->childs().size(), 1u);
        copy->setName("child's");
        TMCost* line = TMCost::insertInManagedObjectContext(child);
        line->setQuantity(Decimal(5));
        copy->addChildsObject(line);
    });
    EXPECT_EQ(invoice->name(), "parent's");
    EXPECT_EQ(invoice->childs().size(), 1u);
    FetchRequest costs("Cost");
    EXPECT_EQ(context->executeFetchRequest(costs)->size(), 1u);

    child.performBlockAndWait([&] { ASSERT_TRUE(child.save()); });
    EXPECT_EQ(invoice->name(), "child's");
    ASSERT_EQ(invoice->childs().size(), 2u);
    auto* added = static_cast<TMCost*>(invoice->childs()[1]);
    EXPECT_EQ(added->quantity(), Decimal(5));
    EXPECT_EQ(added->parent(), invoice);
    EXPECT_TRUE(added->isInserted());
    EXPECT_TRUE(context->hasChanges());

    child.performBlockAndWait([&] {
        ASSERT_TRUE(child.deleteObject(copy));
        ASSERT_TRUE(child.save());
    });
    EXPECT_TRUE(invoice->isDeleted());
    EXPECT_TRUE(added->isDeleted());
}

TEST_F(RuntimeTest, FetchFromAWorkerThreadRunsOnTheMainQueue) {
    cost(nullptr, "1", "1")->setName("only");
    LogCapture capture;
    std::atomic<bool> done{false};
    std::optional<std::vector<ManagedObject*>> fetched;
    bool savedFromWorker = true;
    std::string saveError;
    std::thread worker([&] {
        fetched = context->executeFetchRequest(FetchRequest("Cost"));
        savedFromWorker = context->save(&saveError);
        done = true;
    });
    while (!done) {
        RunLoop::main().runOnce();
    }
    worker.join();
    ASSERT_TRUE(fetched.has_value());
    EXPECT_EQ(names(*fetched), (std::vector<std::string>{"only"}));
    EXPECT_TRUE(capture.contains("Thread fail (saved 2): Request called in wrong Thread"));
    EXPECT_FALSE(savedFromWorker);
    EXPECT_TRUE(capture.contains("Thread fail: Save called in wrong Thread"));
    EXPECT_TRUE(context->hasChanges());
}

TEST_F(RuntimeTest, RefreshWithoutMergeDropsUnsavedChanges) {
    TMCost* line = cost(nullptr, "1", "1");
    ASSERT_TRUE(context->save());
    line->setQuantity(Decimal(9));
    line->setHoldfastCacheValue(Value(42), "anything");
    int refreshedCount = 0;
    NotificationCenter::defaultCenter().addObserver(
        kObjectsDidChangeNotification, context.get(), [&](const Notification& notification) {
            refreshedCount += static_cast<int>(notification.userInfo.at(kRefreshedObjectsKey).count());
        });
    context->refreshObject(line, false);
    RunLoop::main().runUntilIdle();
    EXPECT_EQ(line->quantity(), Decimal(1));
    EXPECT_FALSE(line->isUpdated());
    EXPECT_FALSE(line->holdfastCacheValueForKey("anything").has_value());
    EXPECT_EQ(refreshedCount, 1);
    ASSERT_FALSE(line->snapshotEvents().empty());
    EXPECT_EQ(line->snapshotEvents().back(), kSnapshotEventRefresh);
}

}  // namespace

}  // namespace brassline
