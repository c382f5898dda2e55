#pragma once

#include <memory>

#include <gtest/gtest.h>

#include "model/BLSyncHelper.h"
#include "model/ManagedObjectContext.h"
#include "model/NotificationCenter.h"
#include "model/PersistentStore.h"
#include "model/RunLoop.h"
#include "model/entities/BLContextState.h"
#include "model/entities/ModelHooks.h"
#include "model/entities/gen/BrasslineModel.h"

namespace brassline {

// A fresh in-memory context of the business model per test; hooks, flags and the run
// loop are reset around it.
class EntityFixture : public ::testing::Test {
protected:
    void SetUp() override {
        RunLoop::resetMainForTesting();
        NotificationCenter::resetDefaultCenterForTesting();
        // Flags and hooks start reset (tests/support/ProcessReset.cpp).
        m_context = std::make_unique<ManagedObjectContext>(gen::brasslineModel());
    }
    void TearDown() override {
        BLContextState::forgetContext(*m_context);
        m_context.reset();
        // Work still queued runs after the context has gone: a task that holds the context
        // by address rather than through ManagedObjectContext::schedule shows up here (under
        // the address sanitizer) instead of being dropped unseen.
        RunLoop::main().runUntilIdle();
        RunLoop::resetMainForTesting();
        resetModelHooks();
        BLSyncHelper::setIsSyncing(false);
        NotificationCenter::resetDefaultCenterForTesting();
    }

    ManagedObjectContext& context() { return *m_context; }
    template <typename T>
    T* insert() {
        return T::insertInManagedObjectContext(*m_context);
    }

private:
    std::unique_ptr<ManagedObjectContext> m_context;
};

}  // namespace brassline
