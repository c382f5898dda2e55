// Planted faults for scripts/check-sources: each task below outlives the call that made it.
#include "model/RunLoop.h"

void planted(brassline::ManagedObjectContext* context, brassline::SerialQueue& queue) {
    brassline::RunLoop::main().performAfterDelay(0.2, [context] { context->processPendingChanges(); });
    brassline::RunLoop::main().performOnce("key", [&] { context->processPendingChanges(); });
    queue.async([childContext = context] { childContext->processPendingChanges(); });
    // Synchronous and nested: allowed.
    brassline::RunLoop::main().perform([] { std::vector<int> values{1}; });
}
