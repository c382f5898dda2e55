#include <gtest/gtest.h>

#include "model/BLSyncHelper.h"

namespace brassline {

TEST(BLSyncHelperTest, NestedScopesRestoreThePreviousState) {
    ASSERT_FALSE(BLSyncHelper::isSyncing());
    {
        SyncingScope outer;
        EXPECT_TRUE(BLSyncHelper::isSyncing());
        {
            SyncingScope inner;
            EXPECT_TRUE(BLSyncHelper::isSyncing());
        }
        // The inner scope found the flag up and must leave it up.
        EXPECT_TRUE(BLSyncHelper::isSyncing());
    }
    EXPECT_FALSE(BLSyncHelper::isSyncing());
}

}  // namespace brassline
