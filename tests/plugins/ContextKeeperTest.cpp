#include <atomic>
#include <memory>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "plugins/BLJSContext.h"
#include "plugins/BLJSContextKeeper.h"
#include "plugins/BLJSLogger.h"

namespace brassline {
namespace {

// Contexts started on several threads are handed to the keeper and taken back while
// other threads count and look; each context keeps working on its own thread. Run under
// ThreadSanitizer in CI.
TEST(ContextKeeperTest, ThreadsAddRunAndRemoveContextsConcurrently) {
    BLJSContextKeeper keeper;
    constexpr int kThreads = 4;
    constexpr int kRounds = 5;
    std::atomic<int> results{0};
    std::atomic<bool> done{false};
    std::vector<std::thread> workers;
    for (int t = 0; t < kThreads; ++t) {
        workers.emplace_back([&keeper, &results, t] {
            for (int round = 0; round < kRounds; ++round) {
                auto context = std::make_unique<BLJSContext>();
                BLJSContext* kept = keeper.addContext(std::move(context));
                EXPECT_TRUE(keeper.containsContext(kept));
                const Value value = kept->evaluateScript("6 * " + std::to_string(t + round));
                if (value == Value(int64_t{6 * (t + round)})) {
                    ++results;
                }
                BLJSLogger::sharedLogger().log("round", "keeper.test");
                std::unique_ptr<BLJSContext> back = keeper.removeContext(kept);
                EXPECT_EQ(back.get(), kept);
                EXPECT_FALSE(keeper.containsContext(kept));
            }
        });
    }
    std::thread watcher([&keeper, &done] {
        while (!done) {
            EXPECT_LE(keeper.count(), static_cast<size_t>(kThreads));
            std::this_thread::yield();
        }
    });
    for (std::thread& worker : workers) {
        worker.join();
    }
    done = true;
    watcher.join();
    EXPECT_EQ(results, kThreads * kRounds);
    EXPECT_EQ(keeper.count(), 0u);
    EXPECT_EQ(keeper.removeContext(nullptr), nullptr);
    EXPECT_EQ(BLJSLogger::sharedLogger().entries("keeper.test").size(), static_cast<size_t>(kThreads * kRounds));
}

}  // namespace
}  // namespace brassline
