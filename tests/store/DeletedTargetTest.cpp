#include <functional>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "StoreTestSupport.h"
#include "store/ChangeSet.h"
#include "store/SQLiteConnection.h"

namespace brassline {
// Named: the test sources are compiled together.
namespace deletedtargettest {

using namespace storetest;

ManagedObject* make(ManagedObjectContext& context, const char* entity, const std::string& uid) {
    ManagedObject* object = context.insertNewObjectForEntityForName(entity);
    object->setValueForKey(Value(uid), "uid");
    return object;
}

void point(ManagedObject& owner, const char* key, ManagedObject* target) {
    owner.setValueForKey(target != nullptr ? Value(static_cast<Object*>(target)) : Value(), key);
}

// Rows of every link table: a link to a deleted object would be one too many.
int64_t linkRows(SQLiteConnection& db) {
    int64_t rows = 0;
    SQLiteStatement tables = db.prepare(
        "SELECT name FROM sqlite_master WHERE type = 'table' AND name LIKE '/_link/_%' "
        "ESCAPE '/'");
    std::vector<std::string> names;
    while (tables.step() == SQLiteStatement::StepResult::Row) {
        names.push_back(tables.text(0));
    }
    for (const std::string& name : names) {
        rows += db.queryInteger("SELECT count(*) FROM \"" + name + "\"").value_or(0);
    }
    return rows;
}

// A relationship that still names an object deleted in the same save (set after the
// deletion, or kept by a "no action" rule) is saved as no relationship: the file never
// holds a reference to a row that the save removes, nor a change record naming it.
TEST(DeletedTargetTest, ARelationshipToADeletedObjectIsSavedAsNone) {
    struct Row {
        const char* label;
        // Sets up the owner "owner" and deletes its target in the open context; answers
        // the key whose value must come back empty.
        std::function<std::string(ManagedObjectContext&)> change;
        const char* table;   // The owner's table and the column that must be empty.
        const char* column;  // Empty: the relationship lives in a link table.
        int64_t links = 0;   // The link rows left (to objects that live).
    };
    const std::vector<Row> rows = {
        {"to-one set after the target was deleted, target saved before",
         [](ManagedObjectContext& context) {
             ManagedObject* storage = byUid(context, "Storage", "target");
             context.deleteObject(storage);
             point(*byUid(context, "Invoice", "owner"), "storage", storage);
             return std::string("storage");
         },
         "Invoice", "storage_id"},
        {"to-one to an object inserted and deleted in the same save",
         [](ManagedObjectContext& context) {
             ManagedObject* fresh = make(context, "Storage", "fresh");
             context.deleteObject(fresh);
             point(*byUid(context, "Invoice", "owner"), "storage", fresh);
             return std::string("storage");
         },
         "Invoice", "storage_id"},
        {"to-one of the abstract base (source)",
         [](ManagedObjectContext& context) {
             ManagedObject* storage = byUid(context, "Storage", "target");
             context.deleteObject(storage);
             point(*byUid(context, "Invoice", "owner"), "source", storage);
             return std::string("source");
         },
         "Invoice", "source_id"},
        {"many-to-many kept by a no-action rule",
         [](ManagedObjectContext& context) {
             context.deleteObject(byUid(context, "Label", "label"));
             return std::string("labels");
         },
         "Client", ""},
        {"many-to-many kept by a no-action rule, the owner's links rewritten in the same save",
         [](ManagedObjectContext& context) {
             ManagedObject* client = byUid(context, "Client", "owner");
             context.deleteObject(byUid(context, "Label", "label"));
             ManagedObject* other = make(context, "Label", "other");
             other->setValueForKey(Value(Value::Array{Value(static_cast<Object*>(client))}), "clients");
             return std::string();
         },
         "Client", "", 1},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.label);
        TemporaryFolder folder;
        const std::string path = folder / "Acme.brassline";
        std::string key;
        {
            auto context = openContext(path, true);
            ASSERT_TRUE(context);
            make(*context, "Invoice", "owner");
            make(*context, "Storage", "target");
            ManagedObject* client = make(*context, "Client", "owner");
            ManagedObject* label = make(*context, "Label", "label");
            label->setValueForKey(Value(Value::Array{Value(static_cast<Object*>(client))}), "clients");
            ASSERT_TRUE(context->save());
            key = row.change(*context);
            std::string error;
            ASSERT_TRUE(context->save(&error)) << error;
        }
        SQLiteConnection db;
        ASSERT_TRUE(db.open(CompanyPackage::databasePath(path), SQLiteConnection::Mode::ReadOnly));
        if (std::string(row.column).empty()) {
            EXPECT_EQ(linkRows(db), row.links);
        } else {
            EXPECT_EQ(db.queryInteger(std::string("SELECT count(*) FROM ") + row.table + " WHERE " + row.column +
                                      " IS NOT NULL"),
                      0);
        }
        auto context = openContext(path, false);
        ASSERT_TRUE(context);
        ManagedObject* owner = byUid(*context, row.table, "owner");
        ASSERT_NE(owner, nullptr);
        if (!key.empty()) {
            const Value value = owner->valueForKey(key);
            EXPECT_TRUE(value.isNull() || value.count() == 0) << value.toJSON();
        }
        // The last change set records the relationship as empty, never by the deleted uid.
        SQLiteStore& store = storeOf(*context);
        const std::vector<ChangeSetInfo> log = store.changeLog();
        ASSERT_FALSE(log.empty());
        for (const ChangeRecord& change : store.changesInChangeSet(log.back().id)) {
            if (change.key == key) {
                EXPECT_TRUE(change.value.isNull() || change.value.toString() == "[]") << change.value.toJSON();
            }
        }
    }
}

}  // namespace deletedtargettest
}  // namespace brassline
