#include <atomic>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "model/NotificationCenter.h"

namespace brassline {

namespace {

// A poster to filter on; identity is all that matters.
class NotifyingObject : public Object {
public:
    Value valueForKey(std::string_view) const override { return {}; }
    std::string_view className() const override { return "NotifyingObject"; }
};

}  // namespace

TEST(NotificationCenterTest, DeliversByNameAndObjectInRegistrationOrder) {
    NotificationCenter center;
    NotifyingObject invoice;
    NotifyingObject client;
    std::vector<std::string> received;
    auto observe = [&](std::string label, std::string_view name, Object* object) {
        center.addObserver(name, object, [&received, label](const Notification&) { received.push_back(label); });
    };
    observe("refresh-any", "BLRefreshItem", nullptr);
    observe("all", "", nullptr);
    observe("refresh-invoice", "BLRefreshItem", &invoice);
    observe("all-client", "", &client);
    observe("preview", "BLRefreshPreview", nullptr);

    struct Row {
        const char* name;
        Object* object;
        std::vector<std::string> expected;
    };
    const Row rows[] = {
        {"BLRefreshItem", &invoice, {"refresh-any", "all", "refresh-invoice"}},
        {"BLRefreshItem", &client, {"refresh-any", "all", "all-client"}},
        {"BLRefreshItem", nullptr, {"refresh-any", "all"}},
        {"BLRefreshPreview", &client, {"all", "all-client", "preview"}},
        {"UpdateNotifications", nullptr, {"all"}},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(std::string(row.name) + (row.object == &invoice ? " invoice" : row.object ? " client" : " nil"));
        received.clear();
        center.postNotificationName(row.name, row.object);
        EXPECT_EQ(received, row.expected);
    }
}

TEST(NotificationCenterTest, PassesNameObjectAndUserInfo) {
    NotificationCenter center;
    NotifyingObject poster;
    Notification seen;
    center.addObserver("ChangedDefaultCurrency", nullptr, [&](const Notification& n) { seen = n; });
    center.postNotificationName("ChangedDefaultCurrency", &poster, Value::Dictionary{{"code", Value("CHF")}});
    EXPECT_EQ(seen.name, "ChangedDefaultCurrency");
    EXPECT_EQ(seen.object, &poster);
    EXPECT_EQ(seen.userInfo.at("code"), Value("CHF"));
}

TEST(NotificationCenterTest, ObserversChangedDuringDeliveryTakeEffectAtOnce) {
    NotificationCenter center;
    std::vector<std::string> received;
    NotificationCenter::Token self = 0;
    NotificationCenter::Token victim = 0;
    NotificationCenter::Token added = 0;

    self = center.addObserver("X", nullptr, [&](const Notification&) {
        received.push_back("self");
        center.removeObserver(self);  // Its own handler keeps running to the end.
        received.push_back("self-after-removal");
    });
    center.addObserver("X", nullptr, [&](const Notification&) {
        received.push_back("remover");
        center.removeObserver(victim);
        if (added == 0)
            added = center.addObserver("X", nullptr, [&](const Notification&) { received.push_back("added"); });
    });
    victim = center.addObserver("X", nullptr, [&](const Notification&) { received.push_back("victim"); });

    center.postNotificationName("X");
    // The victim was removed before its turn; the observer added during the post waits.
    EXPECT_EQ(received, (std::vector<std::string>{"self", "self-after-removal", "remover"}));

    received.clear();
    center.postNotificationName("X");
    EXPECT_EQ(received, (std::vector<std::string>{"remover", "added"}));
    EXPECT_EQ(center.observerCount(), 2u);

    center.removeObserver(victim);  // Already gone: ignored.
    EXPECT_EQ(center.observerCount(), 2u);
}

TEST(NotificationCenterTest, PostingFromAHandlerDeliversTheInnerNotificationFirst) {
    NotificationCenter center;
    std::vector<std::string> received;
    center.addObserver("Outer", nullptr, [&](const Notification&) {
        received.push_back("outer");
        center.postNotificationName("Inner");
        received.push_back("outer-done");
    });
    center.addObserver("Inner", nullptr, [&](const Notification&) { received.push_back("inner"); });
    center.postNotificationName("Outer");
    EXPECT_EQ(received, (std::vector<std::string>{"outer", "inner", "outer-done"}));
}

TEST(NotificationCenterTest, RegistrationFromSeveralThreadsWhilePosting) {
    NotificationCenter center;
    constexpr int kThreads = 4;
    constexpr int kRounds = 200;
    std::atomic<int> deliveries{0};
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t) {
        threads.emplace_back([&] {
            for (int i = 0; i < kRounds; ++i) {
                auto token = center.addObserver("Tick", nullptr, [&](const Notification&) { ++deliveries; });
                center.postNotificationName("Tick");
                center.removeObserver(token);
            }
        });
    }
    for (auto& thread : threads)
        thread.join();
    EXPECT_EQ(center.observerCount(), 0u);
    // Each post sees at least the observer its own thread added just before.
    EXPECT_GE(deliveries.load(), kThreads * kRounds);
}

TEST(NotificationCenterTest, ResettingTheDefaultCenterKeepsItButDropsObservers) {
    NotificationCenter& before = NotificationCenter::defaultCenter();
    int calls = 0;
    before.addObserver("UpdatePermanentInvoices", nullptr, [&](const Notification&) { ++calls; });
    NotificationCenter::resetDefaultCenterForTesting();
    EXPECT_EQ(&NotificationCenter::defaultCenter(), &before);
    NotificationCenter::defaultCenter().postNotificationName("UpdatePermanentInvoices");
    EXPECT_EQ(calls, 0);
}

}  // namespace brassline
