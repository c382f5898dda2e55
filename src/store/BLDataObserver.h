#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace brassline {

class ManagedObject;
class ManagedObjectContext;
class Object;
struct Notification;

// One per document: turns the context's batches of changes into calls of handlers found
// by name ("valueChangedIn<Entity>", "<key>ChangedIn<Entity>" over the entity and its
// super-entities) and coalesces the notifications those schedule into one post each per
// run-loop turn. Main thread; changes reported on another thread are ignored.
class BLDataObserver {
public:
    // A scheduled post: equal name and object fold into one.
    struct ScheduledNotification {
        std::string name;
        Object* object = nullptr;
        bool operator==(const ScheduledNotification&) const = default;
    };

    BLDataObserver();
    ~BLDataObserver();  // Detaches; scheduled posts are dropped.
    BLDataObserver(const BLDataObserver&) = delete;
    BLDataObserver& operator=(const BLDataObserver&) = delete;

    // Observes the objects-did-change notices of `context` (the document's main context);
    // null stops observing and drops what was scheduled. The context must outlive the
    // observation.
    void setManagedObjectContext(ManagedObjectContext* context);
    ManagedObjectContext* managedObjectContext() const { return m_context; }
    void attach(ManagedObjectContext& context) { setManagedObjectContext(&context); }
    void detach() { setManagedObjectContext(nullptr); }

    // The handler of the context's objects-did-change notification.
    void changes(const Notification& notification);
    // Adds the record and requests one fireNotifications for the next run-loop turn.
    // Ignored off the main thread.
    void scheduleNotificationName(std::string_view name, Object* object = nullptr);
    // Posts each scheduled record once, with {"context": the context} as user info.
    void fireNotifications();

    const std::vector<ScheduledNotification>& scheduledNotifications() const { return m_scheduled; }
    // How many posts fireNotifications has made since attaching.
    uint64_t sentNotifications() const { return m_sentCount; }

    // Whether a handler of this name exists (names without the trailing colon).
    static bool hasHandler(std::string_view name);

private:
    struct Dispatch;
    void dispatchObject(ManagedObject& object, const std::vector<std::string>* changedKeys);
    void cancelFire();

    ManagedObjectContext* m_context = nullptr;
    uint64_t m_observerToken = 0;
    std::vector<ScheduledNotification> m_scheduled;
    std::unique_ptr<Dispatch> m_dispatch;
    uint64_t m_fireRequest = 0;
    uint64_t m_sentCount = 0;
};

}  // namespace brassline
