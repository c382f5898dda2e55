#include <atomic>

#include <gtest/gtest.h>
#include <malloc.h>

#include "StoreTestSupport.h"
#include "core/Log.h"
#include "model/RunLoop.h"
#include "model/UndoManager.h"

namespace brassline {
namespace {

using namespace storetest;

constexpr size_t kLargeBytes = 100 * 1000;

// Bytes that differ per object and per version, so a value read for the wrong row or
// left over from before a save is caught.
Bytes pattern(int object, int version = 0, size_t size = kLargeBytes) {
    Bytes bytes(size);
    uint32_t state = static_cast<uint32_t>(object) * 2654435761u + static_cast<uint32_t>(version) * 40503u + 1u;
    for (uint8_t& byte : bytes) {
        state = state * 1664525u + 1013904223u;
        byte = static_cast<uint8_t>(state >> 24);
    }
    return bytes;
}

std::string storageUid(int index) {
    return "storage-" + std::to_string(index);
}

// A company with `count` storages of 100 kB each, "storage-<i>" holding pattern(i).
void makeStorages(const std::string& path, int count) {
    auto context = openContext(path, true);
    ASSERT_TRUE(context);
    for (int i = 0; i < count; ++i) {
        ManagedObject* storage = context->insertNewObjectForEntityForName("Storage");
        storage->setValueForKey(Value(storageUid(i)), "uid");
        storage->setValueForKey(Value(pattern(i)), "data");
    }
    ASSERT_TRUE(context->save());
}

const AttributeDescription& dataAttribute(ManagedObjectContext& context) {
    return *context.entityNamed("Storage")->attributeNamed("data");
}

ManagedObject* storage(ManagedObjectContext& context, int index) {
    return byUid(context, "Storage", storageUid(index));
}

size_t heapInUse() {
    return mallinfo2().uordblks;
}

TEST(DeferredDataTest, OpeningLeavesLargeBytesInTheFileUntilOneIsRead) {
    TemporaryFolder folder;
    const std::string path = folder / "Archive.brassline";
    constexpr int kCount = 1000;
    makeStorages(path, kCount);
    {
        // A short value is read with its row as before.
        auto context = openContext(path, false);
        ASSERT_TRUE(context);
        ManagedObject* small = context->insertNewObjectForEntityForName("Storage");
        small->setValueForKey(Value("small"), "uid");
        small->setValueForKey(Value(pattern(7, 0, 1000)), "data");
        ASSERT_TRUE(context->save());
    }

    malloc_trim(0);
    const size_t before = heapInUse();
    auto context = openContext(path, false);
    ASSERT_TRUE(context);
    const size_t grown = heapInUse() - before;
    // 1,001 objects cost a few hundred kB; their data would be 100 MB.
    EXPECT_LT(grown, size_t{10} * 1000 * 1000) << "heap grew by " << grown << " bytes at open";
    EXPECT_EQ(storeOf(*context).dataCounters().valuesRead, 0u);
    EXPECT_EQ(storeOf(*context).dataCounters().bytesRead, 0u);
    const AttributeDescription& data = dataAttribute(*context);
    ManagedObject* small = byUid(*context, "Storage", "small");
    ASSERT_NE(small, nullptr);
    EXPECT_FALSE(small->isDataFault(data));
    size_t faults = 0;
    for (ManagedObject* object : fetchAll(*context, "Storage")) {
        faults += object->isDataFault(data) ? 1 : 0;
    }
    EXPECT_EQ(faults, size_t{kCount});

    ManagedObject* chosen = storage(*context, 613);
    ASSERT_NE(chosen, nullptr);
    const Value read = chosen->valueForKey("data");
    ASSERT_NE(read.bytes(), nullptr);
    EXPECT_EQ(*read.bytes(), pattern(613));
    EXPECT_FALSE(chosen->isDataFault(data));
    EXPECT_EQ(storeOf(*context).dataCounters().valuesRead, 1u);
    EXPECT_EQ(storeOf(*context).dataCounters().bytesRead, kLargeBytes);
    EXPECT_TRUE(storage(*context, 612)->isDataFault(data));
    EXPECT_TRUE(storage(*context, 614)->isDataFault(data));
    // Reading it again costs nothing more.
    EXPECT_EQ(*chosen->primitiveValueForKey("data").bytes(), pattern(613));
    EXPECT_EQ(storeOf(*context).dataCounters().valuesRead, 1u);
    EXPECT_FALSE(context->hasChanges());
}

TEST(DeferredDataTest, SavesWriteOnlyTheDataTheyChanged) {
    TemporaryFolder folder;
    const std::string path = folder / "Archive.brassline";
    makeStorages(path, 6);
    {
        auto context = openContext(path, false);
        ASSERT_TRUE(context);
        // 0: renamed, data never read. 1: data read, then renamed. 2: data replaced.
        // 3: data replaced by a short value. 4: data removed. 5: untouched.
        storage(*context, 0)->setValueForKey(Value("renamed"), "name");
        EXPECT_EQ(*storage(*context, 1)->valueForKey("data").bytes(), pattern(1));
        storage(*context, 1)->setValueForKey(Value("renamed"), "name");
        storage(*context, 2)->setValueForKey(Value(pattern(2, 1)), "data");
        storage(*context, 3)->setValueForKey(Value(pattern(3, 1, 10)), "data");
        storage(*context, 4)->setValueForKey(Value(), "data");
        const uint64_t readsBefore = storeOf(*context).dataCounters().valuesRead;
        ASSERT_TRUE(context->save());
        // Values 2, 3 and 4 were read before being replaced (undo keeps the old bytes);
        // the save itself read nothing.
        EXPECT_EQ(storeOf(*context).dataCounters().valuesRead, readsBefore);
        EXPECT_EQ(storeOf(*context).dataCounters().valuesWritten, 2u);
        EXPECT_TRUE(storage(*context, 0)->isDataFault(dataAttribute(*context)));
    }
    auto context = openContext(path, false);
    ASSERT_TRUE(context);
    struct Expected {
        int index;
        const char* name;
        std::optional<Bytes> data;
    };
    const Expected rows[] = {
        {0, "renamed", pattern(0)}, {1, "renamed", pattern(1)}, {2, "", pattern(2, 1)},
        {3, "", pattern(3, 1, 10)}, {4, "", std::nullopt},      {5, "", pattern(5)},
    };
    for (const Expected& row : rows) {
        SCOPED_TRACE(row.index);
        ManagedObject* object = storage(*context, row.index);
        ASSERT_NE(object, nullptr);
        EXPECT_EQ(object->valueForKey("name").toString(), row.name);
        const Value data = object->valueForKey("data");
        if (!row.data) {
            EXPECT_TRUE(data.isNull());
            continue;
        }
        ASSERT_NE(data.bytes(), nullptr);
        EXPECT_EQ(*data.bytes(), *row.data);
    }
}

TEST(DeferredDataTest, DeletingAnObjectWithUnreadDataSavesAndUndoes) {
    TemporaryFolder folder;
    const std::string path = folder / "Archive.brassline";
    makeStorages(path, 3);
    {
        auto context = openContext(path, false);
        ASSERT_TRUE(context);
        context->setUndoManager(nullptr);
        ASSERT_TRUE(storage(*context, 0)->isDataFault(dataAttribute(*context)));
        ASSERT_TRUE(context->deleteObject(storage(*context, 0)));
        ASSERT_TRUE(context->save());
        // Without undo nothing needed the bytes.
        EXPECT_EQ(storeOf(*context).dataCounters().valuesRead, 0u);
    }
    {
        auto context = openContext(path, false);
        ASSERT_TRUE(context);
        EXPECT_EQ(storage(*context, 0), nullptr);
        ASSERT_NE(context->undoManager(), nullptr);
        context->undoManager()->beginUndoGrouping();
        ASSERT_TRUE(context->deleteObject(storage(*context, 1)));
        context->undoManager()->endUndoGrouping();
        ASSERT_TRUE(context->save());
        // The row is gone from the file; undo brings the object back with its bytes.
        context->undoManager()->undo();
        ASSERT_TRUE(context->save());
    }
    auto context = openContext(path, false);
    ASSERT_TRUE(context);
    EXPECT_EQ(storage(*context, 0), nullptr);
    ASSERT_NE(storage(*context, 1), nullptr);
    ASSERT_NE(storage(*context, 1)->valueForKey("data").bytes(), nullptr);
    EXPECT_EQ(*storage(*context, 1)->valueForKey("data").bytes(), pattern(1));
    EXPECT_EQ(*storage(*context, 2)->valueForKey("data").bytes(), pattern(2));
}

TEST(DeferredDataTest, OnlyUnchangedBytesAreDroppedFromMemory) {
    TemporaryFolder folder;
    const std::string path = folder / "Archive.brassline";
    makeStorages(path, 3);
    auto context = openContext(path, false);
    ASSERT_TRUE(context);
    const AttributeDescription& data = dataAttribute(*context);
    ManagedObject* read = storage(*context, 0);
    ManagedObject* changed = storage(*context, 1);
    ManagedObject* fresh = context->insertNewObjectForEntityForName("Storage");
    ASSERT_EQ(*read->valueForKey("data").bytes(), pattern(0));
    changed->setValueForKey(Value(pattern(1, 1)), "data");
    fresh->setValueForKey(Value(pattern(9)), "data");

    EXPECT_EQ(context->turnDataIntoFaults(read), 1u);
    EXPECT_TRUE(read->isDataFault(data));
    EXPECT_EQ(context->turnDataIntoFaults(changed), 0u);
    EXPECT_EQ(context->turnDataIntoFaults(fresh), 0u);
    EXPECT_EQ(*changed->valueForKey("data").bytes(), pattern(1, 1));
    EXPECT_EQ(*fresh->valueForKey("data").bytes(), pattern(9));
    const uint64_t reads = storeOf(*context).dataCounters().valuesRead;
    EXPECT_EQ(*read->valueForKey("data").bytes(), pattern(0));
    EXPECT_EQ(storeOf(*context).dataCounters().valuesRead, reads + 1);

    // Once saved, the new bytes are the stored ones and may go; a refresh lets them go too.
    ASSERT_TRUE(context->save());
    EXPECT_EQ(context->turnDataIntoFaults(changed), 1u);
    EXPECT_EQ(*changed->valueForKey("data").bytes(), pattern(1, 1));
    context->refreshObject(fresh, true);
    EXPECT_TRUE(fresh->isDataFault(data));
    EXPECT_EQ(*fresh->valueForKey("data").bytes(), pattern(9));
}

TEST(DeferredDataTest, ChildContextReadsWaitingBytesWhileTheMainContextSaves) {
    TemporaryFolder folder;
    const std::string path = folder / "Archive.brassline";
    constexpr int kCount = 40;
    makeStorages(path, kCount);
    auto context = openContext(path, false);
    ASSERT_TRUE(context);
    ManagedObjectContext child(*context, "DeferredDataReader");
    std::atomic<bool> done{false};
    std::atomic<int> matching{0};
    child.performBlock([&] {
        for (int i = 0; i < kCount; ++i) {
            ManagedObject* copy = child.objectWithUid(*child.entityNamed("Storage"), storageUid(i));
            const Value data = copy != nullptr ? copy->valueForKey("data") : Value();
            if (data.bytes() != nullptr && *data.bytes() == pattern(i)) {
                ++matching;
            }
        }
        done = true;
    });
    // Saves on the main thread meanwhile; none of them touches the bytes.
    int saves = 0;
    while (!done) {
        RunLoop::main().runOnce();
        storage(*context, saves % kCount)->setValueForKey(Value("save " + std::to_string(saves)), "name");
        ASSERT_TRUE(context->save());
        ++saves;
    }
    EXPECT_EQ(matching.load(), kCount);
    // The bytes went to the child only: the main context still holds none of them.
    for (int i = 0; i < kCount; ++i) {
        SCOPED_TRACE(i);
        EXPECT_TRUE(storage(*context, i)->isDataFault(dataAttribute(*context)));
    }
    EXPECT_EQ(storeOf(*context).dataCounters().valuesRead, uint64_t{kCount});
}

}  // namespace
}  // namespace brassline
