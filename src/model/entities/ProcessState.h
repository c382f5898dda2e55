#pragma once

#include <functional>

namespace brassline {

// The state the process keeps beside its documents, in one place: the sync flag of
// BLSyncHelper, the state kept per context (BLContextState), the model's hooks, and what
// higher libraries register here for their shared objects. Main thread.
class ProcessState {
public:
    // Adds a reset for a shared object of a higher library; resetForTesting runs it.
    static void addReset(std::function<void()> reset);
    // Lowers the sync flag, forgets every context's state, restores the model's hooks and
    // runs the registered resets. The test support calls it before every test, so no
    // test inherits a flag that another left raised.
    static void resetForTesting();
};

}  // namespace brassline
