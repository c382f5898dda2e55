#pragma once

#include <optional>

#include <gtest/gtest.h>

#include "StoreTestSupport.h"
#include "core/Date.h"
#include "model/BLSyncHelper.h"
#include "model/NotificationCenter.h"
#include "model/RunLoop.h"
#include "model/entities/ModelHooks.h"
#include "store/BLDocumentController.h"
#include "store/BLUserDefaults.h"
#include "store/DocumentHooks.h"

namespace brassline::storetest {

// A test that opens documents: the process-wide state they touch (run loop, notices,
// hooks, user defaults, the open documents, the clock) starts fresh and is put back.
class DocumentProcessTest : public ::testing::Test {
protected:
    void SetUp() override {
        RunLoop::resetMainForTesting();
        NotificationCenter::resetDefaultCenterForTesting();
        resetModelHooks();
        resetDocumentHooks();
        BLSyncHelper::setIsSyncing(false);
        UserDefaults::setDirectoryForTesting(m_folder / "config");
        BLDocumentController::resetSharedForTesting();
    }
    void TearDown() override {
        BLDocumentController::resetSharedForTesting();
        Clock::setNow(std::nullopt);
        RunLoop::resetMainForTesting();
        resetModelHooks();
        resetDocumentHooks();
        UserDefaults::setDirectoryForTesting("");
        NotificationCenter::resetDefaultCenterForTesting();
    }

    TemporaryFolder m_folder;
};

}  // namespace brassline::storetest
