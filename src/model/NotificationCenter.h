#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
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
// Registration is thread-safe. A handler may add or remove observers, itself included:
// one removed during a post is not called again, one added during a post waits for the next.
class NotificationCenter {
public:
    using Token = uint64_t;
    using Handler = std::function<void(const Notification&)>;

    // The process-wide centre; resettable in tests. The reset removes every observer and
    // keeps the same centre, so references to it stay valid.
    static NotificationCenter& defaultCenter();
    static void resetDefaultCenterForTesting();

    NotificationCenter();
    ~NotificationCenter();
    NotificationCenter(const NotificationCenter&) = delete;
    NotificationCenter& operator=(const NotificationCenter&) = delete;

    // An empty name observes every notification; a null object observes every poster.
    // Tokens are never 0 and never reused.
    Token addObserver(std::string_view name, Object* object, Handler handler);
    // Unknown or already removed tokens are ignored. A post running on another thread at
    // that moment may still be inside the handler; later posts never call it.
    void removeObserver(Token token);
    void removeAllObservers();
    size_t observerCount() const;
    void postNotification(const Notification& notification);
    void postNotificationName(std::string_view name, Object* object = nullptr, Value::Dictionary userInfo = {});

private:
    struct Impl;
    std::unique_ptr<Impl> m_impl;
};

}  // namespace brassline
