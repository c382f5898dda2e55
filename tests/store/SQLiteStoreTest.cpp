#include <set>

#include <gtest/gtest.h>

#include "StoreTestSupport.h"
#include "core/Log.h"
#include "model/entities/BLContextState.h"
#include "store/SQLiteConnection.h"
#include "store/StoreMessages.h"

namespace brassline {
namespace {

using namespace storetest;

TEST(SQLiteStoreTest, EveryAttributeTypeSurvivesSaveAndReopen) {
    TemporaryFolder folder;
    const std::string path = folder / "Acme.brassline";
    const Bytes blob = {0, 1, 2, 255, 0, 42};
    {
        auto context = openContext(path, true);
        ASSERT_TRUE(context);
        ManagedObject* client = insert(*context, "Client", "client");
        client->setValueForKey(Value("Müller & Söhne \"quoted\" 'single'"), "name");
        client->setValueForKey(Value(int64_t{-32768}), "number");
        client->setValueForKey(Value(2147483647), "sequence");
        client->setValueForKey(Value(int64_t{9223372036854775807}), "counter");
        client->setValueForKey(Value(0.1), "weight");
        client->setValueForKey(Value(true), "archived");
        client->setValueForKey(Value(false), "isDefault");
        ManagedObject* invoice = insert(*context, "Invoice", "invoice");
        invoice->setValueForKey(Value(Date(1234567.000123)), "dateSent");
        invoice->setValueForKey(Value(*Decimal::parse("12.5")), "discount");
        invoice->setValueForKey(Value("x"), "operator");
        invoice->setValueForKey(Value("kept in memory only"), "scratch");
        ManagedObject* storage = insert(*context, "Storage", "storage");
        storage->setValueForKey(Value(blob), "data");
        ManagedObject* empty = insert(*context, "Storage", "empty");
        empty->setValueForKey(Value(Bytes{}), "data");
        insert(*context, "Invoice", "bare");
        ASSERT_TRUE(context->save());
    }
    auto context = openContext(path, false);
    ASSERT_TRUE(context);
    ManagedObject* client = byUid(*context, "Client", "client");
    ASSERT_NE(client, nullptr);
    EXPECT_EQ(client->valueForKey("name"), Value("Müller & Söhne \"quoted\" 'single'"));
    EXPECT_EQ(client->valueForKey("number").toInt64(), -32768);
    EXPECT_EQ(client->valueForKey("sequence").toInt64(), 2147483647);
    EXPECT_EQ(client->valueForKey("counter").toInt64(), 9223372036854775807);
    EXPECT_EQ(client->valueForKey("weight").toDouble(), 0.1);
    EXPECT_EQ(client->valueForKey("archived").type(), Value::Type::Bool);
    EXPECT_TRUE(client->valueForKey("archived").toBool());
    EXPECT_EQ(client->valueForKey("isDefault"), Value(false));
    ManagedObject* invoice = byUid(*context, "Invoice", "invoice");
    ASSERT_NE(invoice, nullptr);
    ASSERT_NE(invoice->valueForKey("dateSent").date(), nullptr);
    EXPECT_EQ(invoice->valueForKey("dateSent").date()->timeIntervalSinceReferenceDate(), 1234567.000123);
    EXPECT_EQ(invoice->valueForKey("discount"), Value(*Decimal::parse("12.5")));
    EXPECT_EQ(invoice->valueForKey("operator"), Value("x"));
    EXPECT_TRUE(invoice->valueForKey("scratch").isNull());
    ASSERT_NE(byUid(*context, "Storage", "storage"), nullptr);
    const Value data = byUid(*context, "Storage", "storage")->valueForKey("data");
    ASSERT_NE(data.bytes(), nullptr);
    EXPECT_EQ(*data.bytes(), blob);
    const Value emptyData = byUid(*context, "Storage", "empty")->valueForKey("data");
    ASSERT_NE(emptyData.bytes(), nullptr);
    EXPECT_TRUE(emptyData.bytes()->empty());
    // Absent stays absent; a value set at creation (recurringMode 3) stays set.
    ManagedObject* bare = byUid(*context, "Invoice", "bare");
    ASSERT_NE(bare, nullptr);
    for (const char* key : {"name", "dateSent", "discount", "operator", "archived"}) {
        SCOPED_TRACE(key);
        EXPECT_TRUE(bare->valueForKey(key).isNull());
    }
    EXPECT_EQ(bare->valueForKey("recurringMode").toInt64(), 3);
}

TEST(SQLiteStoreTest, DecimalsAndDatesAreExact) {
    // Decimals are stored as text: 38 significant digits, tiny and huge exponents and
    // not-a-number come back identical. Dates are doubles and come back bit for bit.
    const std::vector<std::string> decimals = {
        "12345678901234567890.123456789012345678",  // 38 digits
        "99999999999999999999999999999999999999",   // the largest 38-digit integer
        "-0.00000000000000000000000000000000000001", "0.1", "-7", "0", "NaN",
    };
    const std::vector<double> dates = {0.0, -978307200.0, 1e9 + 0.123456, -1.5, 7.25e8};
    TemporaryFolder folder;
    const std::string path = folder / "Numbers.brassline";
    {
        auto context = openContext(path, true);
        ASSERT_TRUE(context);
        for (size_t i = 0; i < decimals.size(); ++i) {
            ManagedObject* cost = insert(*context, "Cost", "d" + std::to_string(i));
            cost->setValueForKey(Value(*Decimal::parse(decimals[i])), "quantity");
        }
        for (size_t i = 0; i < dates.size(); ++i) {
            ManagedObject* invoice = insert(*context, "Invoice", "t" + std::to_string(i));
            invoice->setValueForKey(Value(Date(dates[i])), "dateSent");
        }
        ASSERT_TRUE(context->save());
    }
    auto context = openContext(path, false);
    ASSERT_TRUE(context);
    for (size_t i = 0; i < decimals.size(); ++i) {
        SCOPED_TRACE(decimals[i]);
        ManagedObject* cost = byUid(*context, "Cost", "d" + std::to_string(i));
        ASSERT_NE(cost, nullptr);
        const Value quantity = cost->valueForKey("quantity");
        ASSERT_NE(quantity.decimal(), nullptr);
        EXPECT_EQ(quantity.decimal()->toString(), Decimal::parse(decimals[i])->toString());
    }
    for (size_t i = 0; i < dates.size(); ++i) {
        SCOPED_TRACE(dates[i]);
        ManagedObject* invoice = byUid(*context, "Invoice", "t" + std::to_string(i));
        ASSERT_NE(invoice, nullptr);
        ASSERT_NE(invoice->valueForKey("dateSent").date(), nullptr);
        EXPECT_EQ(invoice->valueForKey("dateSent").date()->timeIntervalSinceReferenceDate(), dates[i]);
    }
}

TEST(SQLiteStoreTest, RelationshipsKeepOrderAndInverses) {
    TemporaryFolder folder;
    const std::string path = folder / "Graph.brassline";
    {
        auto context = openContext(path, true);
        ASSERT_TRUE(context);
        ManagedObject* client = insert(*context, "Client", "client");
        ManagedObject* other = insert(*context, "Client", "other");
        ManagedObject* invoice = insert(*context, "Invoice", "invoice");
        invoice->setValueForKey(Value(static_cast<Object*>(client)), "client");
        ManagedObject* second = insert(*context, "Invoice", "second");
        second->setValueForKey(Value(static_cast<Object*>(client)), "client");
        for (int i = 0; i < 5; ++i) {
            ManagedObject* line = insert(*context, "Cost", "c" + std::to_string(i));
            invoice->addObjectToRelationship(relationship(*invoice, "childs"), line);
        }
        ManagedObject* storage = insert(*context, "Storage", "storage");
        invoice->setValueForKey(Value(static_cast<Object*>(storage)), "storage");
        ManagedObject* label = insert(*context, "Label", "label");
        label->addObjectToRelationship(relationship(*label, "clients"), client);
        label->addObjectToRelationship(relationship(*label, "clients"), other);
        ASSERT_TRUE(context->save());
        // A second save that only reorders and inserts in the middle.
        invoice->moveObjectInRelationship(relationship(*invoice, "childs"), 4, 0);
        ManagedObject* middle = insert(*context, "Cost", "middle");
        invoice->insertObjectInRelationshipAtIndex(relationship(*invoice, "childs"), middle, 2);
        ASSERT_TRUE(context->save());
    }
    auto context = openContext(path, false);
    ASSERT_TRUE(context);
    ManagedObject* invoice = byUid(*context, "Invoice", "invoice");
    ManagedObject* client = byUid(*context, "Client", "client");
    ASSERT_NE(invoice, nullptr);
    ASSERT_NE(client, nullptr);
    EXPECT_EQ(uidsOf(invoice->toManyObjects(relationship(*invoice, "childs"))),
              (std::vector<std::string>{"c4", "c0", "middle", "c1", "c2", "c3"}));
    for (ManagedObject* line : invoice->toManyObjects(relationship(*invoice, "childs"))) {
        EXPECT_EQ(line->toOneObject(relationship(*line, "parent")), invoice);
    }
    EXPECT_EQ(invoice->toOneObject(relationship(*invoice, "client")), client);
    std::vector<std::string> invoices = uidsOf(client->toManyObjects(relationship(*client, "invoices")));
    std::sort(invoices.begin(), invoices.end());
    EXPECT_EQ(invoices, (std::vector<std::string>{"invoice", "second"}));
    ManagedObject* storage = byUid(*context, "Storage", "storage");
    EXPECT_EQ(invoice->toOneObject(relationship(*invoice, "storage")), storage);
    EXPECT_EQ(storage->toOneObject(relationship(*storage, "invoice")), invoice);
    // Many-to-many, both sides.
    ManagedObject* label = byUid(*context, "Label", "label");
    std::vector<std::string> clients = uidsOf(label->toManyObjects(relationship(*label, "clients")));
    std::sort(clients.begin(), clients.end());
    EXPECT_EQ(clients, (std::vector<std::string>{"client", "other"}));
    EXPECT_EQ(uidsOf(client->toManyObjects(relationship(*client, "labels"))), std::vector<std::string>{"label"});
}

TEST(SQLiteStoreTest, DeletionsAndUnlinksAreSaved) {
    TemporaryFolder folder;
    const std::string path = folder / "Delete.brassline";
    {
        auto context = openContext(path, true);
        ASSERT_TRUE(context);
        ManagedObject* client = insert(*context, "Client", "client");
        ManagedObject* invoice = insert(*context, "Invoice", "invoice");
        invoice->setValueForKey(Value(static_cast<Object*>(client)), "client");
        ManagedObject* storage = insert(*context, "Storage", "storage");
        invoice->setValueForKey(Value(static_cast<Object*>(storage)), "storage");
        ManagedObject* line = insert(*context, "Cost", "line");
        invoice->addObjectToRelationship(relationship(*invoice, "childs"), line);
        ManagedObject* label = insert(*context, "Label", "label");
        ManagedObject* kept = insert(*context, "Label", "kept");
        client->addObjectToRelationship(relationship(*client, "labels"), label);
        client->addObjectToRelationship(relationship(*client, "labels"), kept);
        ASSERT_TRUE(context->save());
        // Cascades: the invoice takes its storage and its lines along.
        ASSERT_TRUE(context->deleteObject(invoice));
        ASSERT_TRUE(context->deleteObject(label));
        ASSERT_TRUE(context->save());
    }
    auto context = openContext(path, false);
    ASSERT_TRUE(context);
    EXPECT_TRUE(fetchAll(*context, "Invoice").empty());
    EXPECT_TRUE(fetchAll(*context, "Storage").empty());
    EXPECT_TRUE(fetchAll(*context, "Cost").empty());
    ManagedObject* client = byUid(*context, "Client", "client");
    ASSERT_NE(client, nullptr);
    EXPECT_TRUE(client->toManyObjects(relationship(*client, "invoices")).empty());
    EXPECT_EQ(uidsOf(client->toManyObjects(relationship(*client, "labels"))), std::vector<std::string>{"kept"});
}

TEST(SQLiteStoreTest, NewObjectsContinueAfterTheLargestNumber) {
    TemporaryFolder folder;
    const std::string path = folder / "Numbers.brassline";
    int64_t lastNumber = 0;
    {
        auto context = openContext(path, true);
        ASSERT_TRUE(context);
        insert(*context, "Client", "a");
        ManagedObject* b = insert(*context, "Client", "b");
        lastNumber = b->objectID().number;
        ASSERT_TRUE(context->save());
        // The largest number is deleted: it must still not be reused.
        ASSERT_TRUE(context->deleteObject(b));
        ASSERT_TRUE(context->save());
    }
    auto context = openContext(path, false);
    ASSERT_TRUE(context);
    EXPECT_EQ(storeOf(*context).largestObjectNumber(), lastNumber);
    ManagedObject* c = insert(*context, "Client", "c");
    EXPECT_GT(c->objectID().number, lastNumber);
    EXPECT_EQ(c->URIString(), "x-coredata://" + storeOf(*context).storeIdentifier() + "/Client/p" +
                                  std::to_string(c->objectID().number));
}

TEST(SQLiteStoreTest, ChangeSetsRecordInsertUpdateAndDelete) {
    TemporaryFolder folder;
    const std::string path = folder / "Log.brassline";
    auto context = openContext(path, true, "Laptop");
    ASSERT_TRUE(context);
    SQLiteStore& store = storeOf(*context);
    EXPECT_TRUE(store.loadedAllChanges());
    EXPECT_FALSE(store.updating());
    EXPECT_TRUE(store.changeLog().empty());

    ManagedObject* client = insert(*context, "Client", "client");
    client->setValueForKey(Value("Acme"), "name");
    ManagedObject* invoice = insert(*context, "Invoice", "invoice");
    invoice->setValueForKey(Value(static_cast<Object*>(client)), "client");
    ASSERT_TRUE(context->save());
    client->setValueForKey(Value("Acme Ltd"), "name");
    client->setValueForKey(Value(), "archived");   // Absent already: no change.
    invoice->setValueForKey(Value(), "operator");  // Likewise.
    invoice->setValueForKey(Value(int64_t{7}), "recurringMode");
    ASSERT_TRUE(context->save());
    ASSERT_TRUE(context->deleteObject(invoice));
    ASSERT_TRUE(context->save());

    std::vector<ChangeSetInfo> log = store.changeLog();
    ASSERT_EQ(log.size(), 3u);
    for (size_t i = 0; i < log.size(); ++i) {
        SCOPED_TRACE(i);
        EXPECT_EQ(log[i].device, "Laptop");
        EXPECT_EQ(log[i].sequence, static_cast<int64_t>(i + 1));
        if (i > 0) {
            EXPECT_GT(log[i].clock, log[i - 1].clock);
        }
    }
    EXPECT_EQ(log[0].inserted, 2);
    EXPECT_EQ(log[1].updated, 2);
    // The deletion also updates the client, whose invoices lose one.
    EXPECT_EQ(log[2].deleted, 1);

    auto find = [](const std::vector<ChangeRecord>& records, const std::string& uid, const std::string& key) {
        for (const ChangeRecord& record : records) {
            if (record.uid == uid && record.key == key) {
                return &record;
            }
        }
        return static_cast<const ChangeRecord*>(nullptr);
    };
    std::vector<ChangeRecord> inserted = store.changesInChangeSet(log[0].id);
    ASSERT_NE(find(inserted, "client", ""), nullptr);
    EXPECT_EQ(find(inserted, "client", "")->kind, ChangeKind::Insert);
    ASSERT_NE(find(inserted, "client", "name"), nullptr);
    EXPECT_EQ(find(inserted, "client", "name")->value, Value("Acme"));
    EXPECT_EQ(find(inserted, "client", "name")->clock, log[0].clock);
    EXPECT_EQ(find(inserted, "client", "archived"), nullptr);  // Absent values are not inserted.
    ASSERT_NE(find(inserted, "invoice", "client"), nullptr);
    EXPECT_EQ(find(inserted, "invoice", "client")->value, Value(Value::Array{Value("client")}));
    // The to-many side of a to-one pair is implied by the to-one.
    EXPECT_EQ(find(inserted, "client", "invoices"), nullptr);

    std::vector<ChangeRecord> updated = store.changesInChangeSet(log[1].id);
    ASSERT_EQ(updated.size(), 2u);
    ASSERT_NE(find(updated, "client", "name"), nullptr);
    EXPECT_EQ(find(updated, "client", "name")->kind, ChangeKind::Update);
    EXPECT_EQ(find(updated, "client", "name")->value, Value("Acme Ltd"));
    ASSERT_NE(find(updated, "invoice", "recurringMode"), nullptr);
    EXPECT_EQ(find(updated, "invoice", "recurringMode")->value.toInt64(), 7);

    std::vector<ChangeRecord> deleted = store.changesInChangeSet(log[2].id);
    ASSERT_NE(find(deleted, "invoice", ""), nullptr);
    EXPECT_EQ(find(deleted, "invoice", "")->kind, ChangeKind::Delete);

    SQLiteConnection db;
    ASSERT_TRUE(db.open(CompanyPackage::databasePath(path), SQLiteConnection::Mode::ReadOnly));
    EXPECT_EQ(db.queryText("SELECT uid FROM _tombstones").value_or(""), "invoice");
    EXPECT_EQ(db.queryInteger("SELECT changeset FROM _tombstones").value_or(0), log[2].id);

    Value devices = store.sessionInfo();
    ASSERT_EQ(devices.count(), 1u);
    EXPECT_EQ(devices[size_t{0}]["device"], Value("Laptop"));
    EXPECT_EQ(devices[size_t{0}]["changeSets"].toInt64(), 3);
    EXPECT_EQ(store.changesChain().count(), 3u);
    // The open, the load into the context and three saves were timed.
    std::vector<std::string> operations;
    const Value timings = store.peformanceArray();
    for (size_t i = 0; i < timings.count(); ++i) {
        operations.push_back(timings[i]["operation"].toString());
        EXPECT_GE(timings[i]["seconds"].toDouble(), 0.0);
    }
    EXPECT_EQ(operations, (std::vector<std::string>{"open", "load", "save", "save", "save"}));
}

TEST(SQLiteStoreTest, SequencesContinuePerDeviceAcrossSessions) {
    TemporaryFolder folder;
    const std::string path = folder / "Devices.brassline";
    for (const char* device : {"Laptop", "Desk", "Laptop"}) {
        auto context = openContext(path, !std::filesystem::exists(path), device);
        ASSERT_TRUE(context);
        insert(*context, "Label", device);
        ASSERT_TRUE(context->save());
    }
    auto context = openContext(path, false, "Desk");
    ASSERT_TRUE(context);
    std::vector<ChangeSetInfo> log = storeOf(*context).changeLog();
    ASSERT_EQ(log.size(), 3u);
    EXPECT_EQ(log[0].device + std::to_string(log[0].sequence), "Laptop1");
    EXPECT_EQ(log[1].device + std::to_string(log[1].sequence), "Desk1");
    EXPECT_EQ(log[2].device + std::to_string(log[2].sequence), "Laptop2");
    EXPECT_LT(log[1].clock, log[2].clock);
    EXPECT_EQ(storeOf(*context).sessionInfo().count(), 2u);
}

TEST(SQLiteStoreTest, ExportWritesOneTablePerEntityWithObjectIDs) {
    TemporaryFolder folder;
    const std::string path = folder / "Export.brassline";
    auto context = openContext(path, true);
    ASSERT_TRUE(context);
    ManagedObject* client = insert(*context, "Client", "client");
    client->setValueForKey(Value("Acme"), "name");
    ManagedObject* invoice = insert(*context, "Invoice", "invoice");
    invoice->setValueForKey(Value(static_cast<Object*>(client)), "client");
    invoice->setValueForKey(Value(*Decimal::parse("2.50")), "discount");
    invoice->setValueForKey(Value(Date(86400.5)), "dateSent");
    std::vector<ManagedObject*> lines;
    for (const char* uid : {"l1", "l2", "l3"}) {
        lines.push_back(insert(*context, "Cost", uid));
        invoice->addObjectToRelationship(relationship(*invoice, "childs"), lines.back());
    }
    invoice->moveObjectInRelationship(relationship(*invoice, "childs"), 2, 0);
    ManagedObject* storage = insert(*context, "Storage", "storage");
    storage->setValueForKey(Value(Bytes{1, 2, 3}), "data");
    ASSERT_TRUE(context->save());
    auto id = [&](ManagedObject* object) {
        const std::string prefix = "x-coredata://" + storeOf(*context).storeIdentifier() + "/";
        std::string uri = object->URIString();
        EXPECT_EQ(uri.substr(0, prefix.size()), prefix);
        return uri.substr(prefix.size());
    };

    const std::string exported = folder / "export.sqlite";
    std::optional<StoreError> failure = storeOf(*context).exportDatabaseToSQLite(exported);
    ASSERT_FALSE(failure) << failure->message;
    SQLiteConnection db;
    ASSERT_TRUE(db.open(exported, SQLiteConnection::Mode::ReadOnly));
    // Column names and declared types of the invoice table, as SQLite reports them.
    SQLiteStatement columns = db.prepare("SELECT name, type, pk FROM pragma_table_info('Invoice')");
    std::map<std::string, std::string> types;
    while (columns.step() == SQLiteStatement::StepResult::Row) {
        types[columns.text(0)] = columns.text(1) + (columns.integer(2) != 0 ? " PK" : "");
    }
    const std::map<std::string, std::string> expected = {
        {"objectID", "TEXT PK"},      {"uid", "TEXT"},           {"name", "TEXT"},       {"archived", "INTEGER"},
        {"isDefault", "INTEGER"},     {"dateSent", "REAL"},      {"discount", "TEXT"},   {"operator", "TEXT"},
        {"recurringMode", "INTEGER"}, {"source_id", "TEXT"},     {"parent_id", "TEXT"},  {"client_id", "TEXT"},
        {"storage_id", "TEXT"},       {"derivates_ids", "TEXT"}, {"childs_ids", "TEXT"},
    };
    EXPECT_EQ(types, expected);
    SQLiteStatement row = db.prepare(
        "SELECT objectID, client_id, childs_ids, discount, dateSent, typeof(dateSent), derivates_ids FROM Invoice");
    ASSERT_EQ(row.step(), SQLiteStatement::StepResult::Row);
    EXPECT_EQ(row.text(0), id(invoice));
    EXPECT_EQ(row.text(1), id(client));
    EXPECT_EQ(row.text(2), id(lines[2]) + "," + id(lines[0]) + "," + id(lines[1]));
    EXPECT_EQ(row.text(3), "2.5");
    EXPECT_EQ(row.real(4), 86400.5);
    EXPECT_EQ(row.text(5), "real");
    EXPECT_TRUE(row.isNull(6));
    EXPECT_EQ(db.queryText("SELECT invoices_ids FROM Client").value_or(""), id(invoice));
    EXPECT_EQ(db.queryText("SELECT hex(data) FROM Storage").value_or(""), "010203");
    EXPECT_EQ(db.queryInteger("SELECT count(*) FROM sqlite_master WHERE type = 'table' AND name = 'Label'"), 1);
    // Abstract entities have no objects of their own and so no table.
    EXPECT_EQ(db.queryInteger("SELECT count(*) FROM sqlite_master WHERE name IN ('Base', 'Container', 'Item')"), 0);
}

TEST(SQLiteStoreTest, ExportToAnUncreatableFileIsCreateError) {
    TemporaryFolder folder;
    auto context = openContext(folder / "E.brassline", true);
    ASSERT_TRUE(context);
    LogCapture capture;
    std::optional<StoreError> failure =
        storeOf(*context).exportDatabaseToSQLite(folder / "missing-folder/export.sqlite");
    ASSERT_TRUE(failure);
    EXPECT_EQ(failure->domain, "ExportSQLiteError");
    EXPECT_EQ(failure->code, 1);
    EXPECT_EQ(failure->message, "Failed to create SQLite database.");
}

TEST(SQLiteStoreTest, IdentityChangesRewriteInfoPlist) {
    TemporaryFolder folder;
    const std::string path = folder / "Identity.brassline";
    {
        auto context = openContext(path, true);
        ASSERT_TRUE(context);
        SQLiteStore& store = storeOf(*context);
        EXPECT_EQ(store.infoURL(), path + "/Info.plist");
        EXPECT_EQ(store.documentIdentifier().size(), 22u);
        ASSERT_TRUE(store.setDocumentIdentifier("company-42"));
        Value::Dictionary user;
        user.emplace("owner", Value("Jo"));
        ASSERT_TRUE(store.setUserInfo(user));
    }
    std::optional<PackageInfo> info = CompanyPackage::inspect(path);
    ASSERT_TRUE(info);
    EXPECT_EQ(info->documentIdentifier, "company-42");
    EXPECT_EQ(Value(info->infoDictionary)["UserInfo"]["owner"], Value("Jo"));
    EXPECT_EQ(info->modelName, "Test");
    EXPECT_EQ(info->modelVersion, SQLiteStore::kCurrentModelVersion);
    // No temporary file is left beside it.
    EXPECT_EQ(treeContents(path).count("Info.plist.tmp-" + std::to_string(::getpid())), 0u);
}

TEST(SQLiteStoreTest, OlderModelVersionIsUpgradedOnOpen) {
    TemporaryFolder folder;
    const std::string path = folder / "Old.brassline";
    SQLiteStore::Options old = deviceOptions("A");
    old.modelVersion = 22;
    ASSERT_TRUE(SQLiteStore::create(path, model(), old));
    EXPECT_EQ(CompanyPackage::inspect(path)->modelVersion, 22);
    std::unique_ptr<SQLiteStore> store = SQLiteStore::open(path, model(), deviceOptions("A"));
    ASSERT_TRUE(store);
    EXPECT_EQ(CompanyPackage::inspect(path)->modelVersion, 23);
}

TEST(HybridLogicalClockTest, OrdersEventsWhateverTheWallClockDoes) {
    // Wall times in milliseconds since 1970; expected clocks as (milliseconds, counter).
    struct Step {
        const char* what;
        bool isReceive;
        uint64_t remote;
        int64_t wallMilliseconds;
        int64_t expectedMilliseconds;
        uint32_t expectedCounter;
    };
    const Step steps[] = {
        {"first tick takes the wall clock", false, 0, 1000, 1000, 0},
        {"same millisecond counts up", false, 0, 1000, 1000, 1},
        {"wall clock going back keeps the time", false, 0, 900, 1000, 2},
        {"wall clock moving on resets the counter", false, 0, 1005, 1005, 0},
        {"a remote clock ahead is overtaken", true, HybridLogicalClock::pack(2000, 7), 1006, 2000, 8},
        {"a remote clock behind changes nothing", true, HybridLogicalClock::pack(10, 3), 1007, 2000, 9},
        {"wall clock passing the remote one wins", false, 0, 2001, 2001, 0},
    };
    HybridLogicalClock clock;
    uint64_t previous = 0;
    for (const Step& step : steps) {
        SCOPED_TRACE(step.what);
        Date now = Date::fromUnixTime(static_cast<double>(step.wallMilliseconds) / 1000.0);
        uint64_t value = step.isReceive ? clock.receive(step.remote, now) : clock.tick(now);
        EXPECT_EQ(HybridLogicalClock::milliseconds(value), step.expectedMilliseconds);
        EXPECT_EQ(HybridLogicalClock::counter(value), step.expectedCounter);
        EXPECT_GT(value, previous);
        previous = value;
    }
    // A spent counter borrows the next millisecond instead of wrapping.
    HybridLogicalClock full(HybridLogicalClock::pack(5000, 0xffff));
    uint64_t next = full.tick(Date::fromUnixTime(1.0));
    EXPECT_EQ(HybridLogicalClock::milliseconds(next), 5001);
    EXPECT_EQ(HybridLogicalClock::counter(next), 0u);
}

}  // namespace
}  // namespace brassline

namespace brassline {
namespace {

using namespace storetest;

TEST(SQLiteStoreTest, FarApartNumbersLoadWithoutMemoryInProportionToThem) {
    TemporaryFolder folder;
    const std::string path = folder / "Sparse.brassline";
    {
        auto context = openContext(path, true);
        ASSERT_TRUE(context);
        for (const char* uid : {"near", "far"}) {
            context->insertNewObjectForEntityForName("Client")->setValueForKey(Value(uid), "uid");
        }
        ASSERT_TRUE(context->save());
    }
    {
        // A number near the top of the range a store accepts: a table indexed by number
        // would need terabytes.
        SQLiteConnection db;
        ASSERT_TRUE(db.open(path + "/Store.sqlite", SQLiteConnection::Mode::ReadWrite));
        ASSERT_TRUE(db.execute("UPDATE Client SET _number = 1099511627776 WHERE uid = 'far'"));
    }
    auto context = openContext(path, false);
    ASSERT_TRUE(context);
    ManagedObject* far = byUid(*context, "Client", "far");
    ASSERT_NE(far, nullptr);
    EXPECT_EQ(far->objectID().number, int64_t{1099511627776});
    // New objects continue after it.
    ManagedObject* next = context->insertNewObjectForEntityForName("Client");
    EXPECT_EQ(next->objectID().number, int64_t{1099511627777});
}

}  // namespace
}  // namespace brassline

namespace brassline {
namespace {

using namespace storetest;

TEST(SQLiteStoreTest, EachFileHasItsOwnIdentifierAndUrisDontCrossFiles) {
    TemporaryFolder folder;
    auto first = openContext(folder / "First.brassline", true);
    auto second = openContext(folder / "Second.brassline", true);
    ASSERT_TRUE(first && second);
    EXPECT_NE(first->storeIdentifier(), second->storeIdentifier());
    EXPECT_EQ(first->storeIdentifier(), storeOf(*first).storeIdentifier());
    ManagedObject* client = first->insertNewObjectForEntityForName("Client");
    ASSERT_TRUE(first->save());
    ManagedObject* other = second->insertNewObjectForEntityForName("Client");
    ASSERT_TRUE(second->save());
    ASSERT_EQ(client->objectID().number, other->objectID().number);
    // The same number in another file is another object.
    EXPECT_EQ(first->objectForURIString(client->URIString()), client);
    EXPECT_EQ(second->objectForURIString(client->URIString()), nullptr);
}

TEST(SQLiteStoreTest, StateKeptForAContextNeverPassesToALaterOne) {
    TemporaryFolder folder;
    const std::string path = folder / "State.brassline";
    std::set<uint64_t> serials;
    for (int i = 0; i < 3; ++i) {
        auto context = openContext(path, i == 0);
        ASSERT_TRUE(context);
        EXPECT_TRUE(serials.insert(context->serialNumber()).second);
        // Not forgotten on purpose: a later context, even at the same address, is new.
        EXPECT_TRUE(BLContextState::readyForDefaultValues(*context));
        BLContextState::setReadyForDefaultValues(*context, false);
    }
}

}  // namespace
}  // namespace brassline
