// Linked into the test executables above the core: before every test the process-wide
// state (the sync flag, the state kept per context, the model's hooks and what higher
// libraries registered) is reset once, here, so that no test inherits what another left.

#include <gtest/gtest.h>

#include "model/entities/ProcessState.h"

namespace {

class ProcessReset : public ::testing::EmptyTestEventListener {
    void OnTestStart(const ::testing::TestInfo& /*test*/) override { brassline::ProcessState::resetForTesting(); }
};

// Registered before main, so before GoogleTest runs anything; GoogleTest owns it then.
const bool registered = [] {
    ::testing::UnitTest::GetInstance()->listeners().Append(new ProcessReset);
    return true;
}();

}  // namespace
