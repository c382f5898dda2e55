#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>

#include "core/Value.h"

namespace brassline {

// A notification: a string name, the object that posts it (borrowed, may be null) and a
// dictionary of user info.
struct Notification {
    std::string name;
    Object* object = nullptr;
    Value::Dictionary userInfo;
};

// Delivers notifications by name to observers on the posting thread, synchronously and
// in the order the observers were added. An observer that registers for an empty name
// receives every notification; one with an object receives only that object's posts.
class NotificationCenter {
public:
    using Token = uint64_t;
    using Handler = std::function<void(const Notification&)>;

    // The process-wide centre; resettable in tests.
    static NotificationCenter& defaultCenter();
    static void resetDefaultCenterForTesting();

    NotificationCenter();
    ~NotificationCenter();
    NotificationCenter(const NotificationCenter&) = delete;
    NotificationCenter& operator=(const NotificationCenter&) = delete;

    Token addObserver(std::string_view name, Object* object, Handler handler);
    void removeObserver(Token token);
    void postNotification(const Notification& notification);
    void postNotificationName(std::string_view name, Object* object = nullptr, Value::Dictionary userInfo = {});

private:
    struct Impl;
    Impl* m_impl;
};

}  // namespace brassline
