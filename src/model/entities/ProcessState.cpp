#include "model/entities/ProcessState.h"

#include <vector>

#include "model/BLSyncHelper.h"
#include "model/entities/BLContextState.h"
#include "model/entities/ModelHooks.h"

namespace brassline {

namespace {

std::vector<std::function<void()>>& resets() {
    static std::vector<std::function<void()>> list;
    return list;
}

}  // namespace

void ProcessState::addReset(std::function<void()> reset) {
    resets().push_back(std::move(reset));
}

void ProcessState::resetForTesting() {
    BLSyncHelper::setIsSyncing(false);
    BLContextState::forgetAllContexts();
    resetModelHooks();
    for (const std::function<void()>& reset : resets()) {
        reset();
    }
}

}  // namespace brassline
