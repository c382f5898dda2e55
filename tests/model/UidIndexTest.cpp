#include <algorithm>
#include <vector>

#include <gtest/gtest.h>

#include "model/ManagedObject.h"
#include "model/UidIndex.h"

namespace brassline {
namespace {

std::vector<ManagedObject*> objectsUnder(const UidIndex& index, size_t hash) {
    std::vector<ManagedObject*> found;
    index.forEach(hash, [&](ManagedObject* object) {
        found.push_back(object);
        return true;
    });
    std::sort(found.begin(), found.end());
    return found;
}

// Hashes chosen to collide in the smallest table (16 slots): 3, 19 and 35 share home
// slot 3, 15 and 31 share slot 15 so their run wraps round to slots 0 and 1.
TEST(UidIndexTest, EraseKeepsEveryOtherEntryReachable) {
    struct Case {
        const char* name;
        std::vector<size_t> hashes;  // Entry i holds objects[i].
        size_t erased;               // Index of the entry removed.
    };
    const std::vector<Case> cases = {
        {"first of a run sharing a home", {3, 19, 35}, 0},
        {"middle of a run sharing a home", {3, 19, 35}, 1},
        {"run with a foreign entry after the hole", {3, 19, 4, 35}, 0},
        {"run wrapping past the end", {15, 31, 47, 0}, 0},
        {"entry at home behind a wrapped run", {15, 31, 1, 47}, 1},
        {"same hash twice", {7, 7, 7}, 1},
    };
    for (const Case& test : cases) {
        SCOPED_TRACE(test.name);
        std::vector<ManagedObject> objects(test.hashes.size());
        UidIndex index;
        for (size_t i = 0; i < test.hashes.size(); ++i) {
            index.insert(test.hashes[i], &objects[i]);
        }
        EXPECT_TRUE(index.erase(test.hashes[test.erased], &objects[test.erased]));
        EXPECT_FALSE(index.erase(test.hashes[test.erased], &objects[test.erased]));
        EXPECT_EQ(index.size(), test.hashes.size() - 1);
        for (size_t i = 0; i < test.hashes.size(); ++i) {
            std::vector<ManagedObject*> expected;
            for (size_t j = 0; j < test.hashes.size(); ++j) {
                if (j != test.erased && test.hashes[j] == test.hashes[i]) {
                    expected.push_back(&objects[j]);
                }
            }
            std::sort(expected.begin(), expected.end());
            EXPECT_EQ(objectsUnder(index, test.hashes[i]), expected) << "hash " << test.hashes[i];
        }
    }
}

TEST(UidIndexTest, GrowsAndReservesWithoutLosingEntries) {
    std::vector<ManagedObject> objects(100);
    UidIndex index;
    index.reserve(10);
    for (size_t i = 0; i < objects.size(); ++i) {
        // Every hash in slot 0 of the small tables: growth must carry whole runs over.
        index.insert(i * 1024, &objects[i]);
    }
    EXPECT_EQ(index.size(), 100u);
    for (size_t i = 0; i < objects.size(); i += 2) {
        EXPECT_TRUE(index.erase(i * 1024, &objects[i]));
    }
    EXPECT_EQ(index.size(), 50u);
    for (size_t i = 0; i < objects.size(); ++i) {
        std::vector<ManagedObject*> expected;
        if (i % 2 == 1) {
            expected.push_back(&objects[i]);
        }
        EXPECT_EQ(objectsUnder(index, i * 1024), expected) << "entry " << i;
    }
    EXPECT_TRUE(objectsUnder(UidIndex(), 5).empty());
    EXPECT_FALSE(UidIndex().erase(5, &objects[0]));
}

}  // namespace
}  // namespace brassline
