#include "model/NotificationCenter.h"

#include <atomic>
#include <mutex>
#include <utility>
#include <vector>

namespace brassline {

namespace {

struct Observer {
    NotificationCenter::Token token = 0;
    std::string name;
    Object* object = nullptr;
    NotificationCenter::Handler handler;
    // Set under the centre's lock and read without it by a post that took a snapshot.
    std::atomic<bool> removed{false};

    bool wants(const Notification& notification) const {
        return (name.empty() || name == notification.name) && (object == nullptr || object == notification.object);
    }
};

}  // namespace

struct NotificationCenter::Impl {
    mutable std::mutex lock;
    // In order of registration: tokens only grow, so appending keeps the order.
    std::vector<std::shared_ptr<Observer>> observers;
    Token nextToken = 1;
};

NotificationCenter& NotificationCenter::defaultCenter() {
    // Never destroyed: observers may post from static destructors of other units.
    static NotificationCenter* center = new NotificationCenter;
    return *center;
}

void NotificationCenter::resetDefaultCenterForTesting() {
    defaultCenter().removeAllObservers();
}

NotificationCenter::NotificationCenter() : m_impl(std::make_unique<Impl>()) {}

NotificationCenter::~NotificationCenter() = default;

NotificationCenter::Token NotificationCenter::addObserver(std::string_view name, Object* object, Handler handler) {
    auto observer = std::make_shared<Observer>();
    observer->name = std::string(name);
    observer->object = object;
    observer->handler = std::move(handler);
    std::lock_guard guard(m_impl->lock);
    observer->token = m_impl->nextToken++;
    m_impl->observers.push_back(observer);
    return observer->token;
}

void NotificationCenter::removeObserver(Token token) {
    std::lock_guard guard(m_impl->lock);
    auto& observers = m_impl->observers;
    for (auto it = observers.begin(); it != observers.end(); ++it) {
        if ((*it)->token == token) {
            (*it)->removed.store(true, std::memory_order_release);
            observers.erase(it);
            return;
        }
    }
}

void NotificationCenter::removeAllObservers() {
    std::lock_guard guard(m_impl->lock);
    for (const auto& observer : m_impl->observers)
        observer->removed.store(true, std::memory_order_release);
    m_impl->observers.clear();
}

size_t NotificationCenter::observerCount() const {
    std::lock_guard guard(m_impl->lock);
    return m_impl->observers.size();
}

void NotificationCenter::postNotification(const Notification& notification) {
    // Handlers run without the lock so that they can post, add and remove observers. The
    // snapshot's shared pointers keep a handler alive while it runs, even if it removes
    // itself; the removed flag keeps a handler removed by an earlier one from running.
    std::vector<std::shared_ptr<Observer>> receivers;
    {
        std::lock_guard guard(m_impl->lock);
        for (const auto& observer : m_impl->observers) {
            if (observer->wants(notification))
                receivers.push_back(observer);
        }
    }
    for (const auto& observer : receivers) {
        if (!observer->removed.load(std::memory_order_acquire))
            observer->handler(notification);
    }
}

void NotificationCenter::postNotificationName(std::string_view name, Object* object, Value::Dictionary userInfo) {
    Notification notification;
    notification.name = std::string(name);
    notification.object = object;
    notification.userInfo = std::move(userInfo);
    postNotification(notification);
}

}  // namespace brassline
