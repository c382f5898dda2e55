#pragma once

#include <algorithm>
#include <memory>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "model/BLSyncHelper.h"
#include "model/ManagedObjectContext.h"
#include "model/NotificationCenter.h"
#include "model/Notifications.h"
#include "model/RunLoop.h"
#include "model/entities/BLContextState.h"
#include "model/entities/ModelHooks.h"
#include "model/entities/gen/BrasslineModel.h"
#include "store/BLCacheInvalidator.h"
#include "store/ObservationHooks.h"

namespace brassline::observationtest {

// Every notification posted on the default centre apart from the contexts' own change
// notices, in order.
class NotificationLog {
public:
    struct Entry {
        std::string name;
        Object* object = nullptr;
        Object* context = nullptr;  // The "context" of the user info, when present.
    };

    NotificationLog() {
        m_token = NotificationCenter::defaultCenter().addObserver("", nullptr, [this](const Notification& note) {
            if (note.name == kObjectsDidChangeNotification || note.name == kContextWillSaveNotification ||
                note.name == kContextDidSaveNotification) {
                return;
            }
            auto it = note.userInfo.find("context");
            m_entries.push_back({note.name, note.object, it != note.userInfo.end() ? it->second.object() : nullptr});
        });
    }
    ~NotificationLog() { NotificationCenter::defaultCenter().removeObserver(m_token); }

    const std::vector<Entry>& entries() const { return m_entries; }
    size_t count(const std::string& name) const {
        return static_cast<size_t>(
            std::count_if(m_entries.begin(), m_entries.end(), [&](const Entry& entry) { return entry.name == name; }));
    }
    // The distinct names posted with a context in the user info (the observer's posts,
    // not the model's own), sorted.
    std::vector<std::string> names() const {
        std::vector<std::string> names;
        for (const Entry& entry : m_entries) {
            if (entry.context != nullptr) {
                names.push_back(entry.name);
            }
        }
        std::sort(names.begin(), names.end());
        names.erase(std::unique(names.begin(), names.end()), names.end());
        return names;
    }
    void clear() { m_entries.clear(); }

private:
    NotificationCenter::Token m_token = 0;
    std::vector<Entry> m_entries;
};

// A fresh in-memory business context per test, with the run loop claimed by the test's
// thread and every shared hook, invalidator and flag reset around it.
class ObservationFixture : public ::testing::Test {
protected:
    void SetUp() override {
        RunLoop::resetMainForTesting();
        RunLoop::main();
        NotificationCenter::resetDefaultCenterForTesting();
        resetModelHooks();
        resetObservationHooks();
        BLCacheInvalidator::resetSharedForTesting();
        BLSyncHelper::setIsSyncing(false);
        m_context = std::make_unique<ManagedObjectContext>(gen::brasslineModel());
        m_log = std::make_unique<NotificationLog>();
    }
    void TearDown() override {
        m_log.reset();
        BLCacheInvalidator::resetSharedForTesting();
        BLContextState::forgetContext(*m_context);
        m_context.reset();
        // Queued work runs after the context has gone, so a task holding it by address shows.
        RunLoop::main().runUntilIdle();
        RunLoop::resetMainForTesting();
        resetModelHooks();
        resetObservationHooks();
        NotificationCenter::resetDefaultCenterForTesting();
    }

    ManagedObjectContext& context() { return *m_context; }
    NotificationLog& log() { return *m_log; }
    template <typename T>
    T* insert() {
        return T::insertInManagedObjectContext(*m_context);
    }
    // Lets the context announce its changes and the observers post what they scheduled.
    void settle() { RunLoop::main().runUntilIdle(); }

private:
    std::unique_ptr<ManagedObjectContext> m_context;
    std::unique_ptr<NotificationLog> m_log;
};

}  // namespace brassline::observationtest
