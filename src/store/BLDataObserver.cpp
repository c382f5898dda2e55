#include "store/BLDataObserver.h"

#include <functional>
#include <unordered_map>
#include <unordered_set>
#include <utility>

#include "core/Log.h"
#include "core/Value.h"
#include "model/ManagedObjectContext.h"
#include "model/NotificationCenter.h"
#include "model/Notifications.h"
#include "model/RunLoop.h"
#include "model/entities/BLContainer.h"
#include "model/entities/BLCustomValue.h"
#include "model/entities/BLDocument.h"
#include "store/BLCacheInvalidator.h"
#include "store/BLCustomFieldInvalidator.h"
#include "store/ObservationHooks.h"
#include "store/ObservationNames.h"

namespace brassline {

namespace {

using Handler = void (*)(BLDataObserver&, ManagedObject&);

void scheduleStateUpdate(BLDataObserver& observer, ManagedObject&) {
    // updateStateControllerIfNeeded: the state controller listens for this name.
    observer.scheduleNotificationName(kUpdateStateControllerNotification);
}

// Scheduling handlers differ only in the name they schedule; one template per name keeps
// each a plain function pointer in the table.
template <const char* const* Name>
void scheduleOnly(BLDataObserver& observer, ManagedObject&) {
    observer.scheduleNotificationName(*Name);
}

constexpr const char* const* kRefreshClientInfo = &kRefreshClientInfoNotification;
constexpr const char* const* kInvalidateAddresses = &kInvalidateAddressesNotification;
constexpr const char* const* kRefreshSourceLists = &kRefreshSourceListsNotification;
constexpr const char* const* kDefaultChanged = &kDefaultChangedInContainerNotification;
constexpr const char* const* kDocumentsChangedInInvoice = &kDocumentsChangedInInvoiceNotification;
constexpr const char* const* kItemGroupsChanged = &kItemGroupsChangedNotification;
constexpr const char* const* kRefreshPayments = &kRefreshPaymentsNotification;
constexpr const char* const* kUpdateOverview = &kUpdateOverviewNotification;
constexpr const char* const* kRefreshTaxTable = &kRefreshTaxTableNotification;

void salutationChangedInClient(BLDataObserver& observer, ManagedObject&) {
    if (observationHooks().invalidateSalutations && observer.managedObjectContext() != nullptr) {
        observationHooks().invalidateSalutations(*observer.managedObjectContext());
    }
}

void parentDocumentChangedInDocument(BLDataObserver&, ManagedObject& object) {
    auto* document = dynamic_cast<BLDocument*>(&object);
    if (document != nullptr && document->parentDocument() == nullptr) {
        logMessage(kParentDocumentLostMessage);
    }
}

void documentsChangedInDocument(BLDataObserver& observer, ManagedObject&) {
    observer.scheduleNotificationName(kUpdateStateControllerNotification);
    observer.scheduleNotificationName(kDocumentsChangedNotification);
}

void dateSentChangedInInvoice(BLDataObserver&, ManagedObject&) {
    // Issuing is announced by the send path itself; the change alone needs nothing here.
}

void nameChangedInCustomValue(BLDataObserver& observer, ManagedObject& object) {
    observer.scheduleNotificationName(kCustomValueChangedNotification);
    if (auto* value = dynamic_cast<BLCustomValue*>(&object)) {
        BLCustomFieldInvalidator::sharedInvalidator().addObject(value->document());
    }
}

void nameChangedInCustomField(BLDataObserver& observer, ManagedObject&) {
    observer.scheduleNotificationName(kCustomFieldChangedNotification);
    if (observer.managedObjectContext() != nullptr) {
        BLCustomFieldInvalidator::sharedInvalidator().invalidateAllDocumentsInContext(*observer.managedObjectContext());
    }
}

void dataChangedInLayoutStorage(BLDataObserver& observer, ManagedObject& object) {
    observer.scheduleNotificationName(kLayoutStoreChangedNotification, &object);
}

void taxRuleChangedInCost(BLDataObserver&, ManagedObject& object) {
    if (auto* line = dynamic_cast<BLContainer*>(&object)) {
        line->notifyParentsForKey("cost");
    }
}

// The handlers by name. "completeModeChangedInvoice" lacks the "In" of the pattern, so no
// change ever finds it: it is kept to show that a misspelt handler stays silent.
const std::unordered_map<std::string_view, Handler>& handlerTable() {
    static const std::unordered_map<std::string_view, Handler> table = {
        {"salutationChangedInClient", &salutationChangedInClient},
        {"parentDocumentChangedInDocument", &parentDocumentChangedInDocument},
        {"sendPluginIdentifierChangedInClient", &scheduleOnly<kRefreshClientInfo>},
        {"valueChangedInClient", &scheduleOnly<kInvalidateAddresses>},
        {"archivedChangedInBase", &scheduleOnly<kRefreshSourceLists>},
        {"isDefaultChangedInContainer", &scheduleOnly<kDefaultChanged>},
        {"documentsChangedInDocument", &documentsChangedInDocument},
        {"documentsChangedInInvoice", &scheduleOnly<kDocumentsChangedInInvoice>},
        {"nameChangedInItemGroup", &scheduleOnly<kItemGroupsChanged>},
        {"amountChangedInPayment", &scheduleStateUpdate},
        {"uidChangedInPayment", &scheduleOnly<kRefreshPayments>},
        {"completeModeChangedInEstimate", &scheduleOnly<kUpdateOverview>},
        {"completeModeChangedInvoice", &scheduleOnly<kUpdateOverview>},
        {"dateSentChangedInInvoice", &dateSentChangedInInvoice},
        {"completeModeChangedInInvoice", &scheduleStateUpdate},
        {"recurringChangedInInvoice", &scheduleStateUpdate},
        {"recurringIntervalChangedInInvoice", &scheduleStateUpdate},
        {"recurringModeChangedInInvoice", &scheduleStateUpdate},
        {"recurringDateChangedInInvoice", &scheduleStateUpdate},
        {"nameChangedInCustomValue", &nameChangedInCustomValue},
        {"nameChangedInCustomField", &nameChangedInCustomField},
        {"dataChangedInLayoutStorage", &dataChangedInLayoutStorage},
        {"archivedChangedInTaxGroup", &scheduleOnly<kRefreshTaxTable>},
        {"archivedChangedInClientGroup", &scheduleOnly<kRefreshTaxTable>},
        {"taxRuleChangedInCost", &taxRuleChangedInCost},
    };
    return table;
}

Handler findHandler(const std::string& name) {
    const auto& table = handlerTable();
    auto it = table.find(name);
    return it != table.end() ? it->second : nullptr;
}

struct RecordHash {
    size_t operator()(const BLDataObserver::ScheduledNotification& record) const {
        return std::hash<std::string>{}(record.name) ^ (std::hash<const void*>{}(record.object) << 1);
    }
};

}  // namespace

// The names are built per entity and key once and remembered: a batch of thousands of
// objects of a few entities then costs a lookup per changed key, not string building.
struct BLDataObserver::Dispatch {
    std::unordered_map<const EntityDescription*, Handler> valueHandlers;
    std::unordered_map<const EntityDescription*, std::unordered_map<std::string, std::vector<Handler>>> keyHandlers;
    std::unordered_set<ScheduledNotification, RecordHash> scheduled;

    Handler valueHandler(const EntityDescription& entity) {
        auto it = valueHandlers.find(&entity);
        if (it == valueHandlers.end()) {
            it = valueHandlers.emplace(&entity, findHandler("valueChangedIn" + entity.name())).first;
        }
        return it->second;
    }

    const std::vector<Handler>& keyHandlersFor(const EntityDescription& entity, const std::string& key) {
        auto& byKey = keyHandlers[&entity];
        auto it = byKey.find(key);
        if (it == byKey.end()) {
            std::vector<Handler> found;
            for (const EntityDescription* level = &entity; level != nullptr; level = level->superentity()) {
                if (Handler handler = findHandler(key + "ChangedIn" + level->name())) {
                    found.push_back(handler);
                }
            }
            it = byKey.emplace(key, std::move(found)).first;
        }
        return it->second;
    }
};

bool BLDataObserver::hasHandler(std::string_view name) {
    return handlerTable().contains(name);
}

BLDataObserver::BLDataObserver() : m_dispatch(std::make_unique<Dispatch>()) {}

BLDataObserver::~BLDataObserver() {
    setManagedObjectContext(nullptr);
}

void BLDataObserver::setManagedObjectContext(ManagedObjectContext* context) {
    if (context == m_context) {
        return;
    }
    if (m_observerToken != 0) {
        NotificationCenter::defaultCenter().removeObserver(m_observerToken);
        m_observerToken = 0;
    }
    cancelFire();
    m_scheduled.clear();
    m_dispatch->scheduled.clear();
    m_sentCount = 0;
    m_context = context;
    if (context != nullptr) {
        m_observerToken = NotificationCenter::defaultCenter().addObserver(
            kObjectsDidChangeNotification, context,
            [this](const Notification& notification) { changes(notification); });
    }
}

void BLDataObserver::cancelFire() {
    if (m_fireRequest != 0) {
        RunLoop::main().cancel(m_fireRequest);
        m_fireRequest = 0;
    }
}

void BLDataObserver::changes(const Notification& notification) {
    // Handlers touch the main context and schedule on the main run loop; a notice from a
    // context used on another thread must not reach them.
    if (!RunLoop::isMainThread() || m_context == nullptr || notification.object != m_context) {
        return;
    }
    auto array = [&](const char* key) -> const Value::Array* {
        auto it = notification.userInfo.find(key);
        return it != notification.userInfo.end() ? it->second.array() : nullptr;
    };
    const Value::Array* updated = array(kUpdatedObjectsKey);
    const Value::Array* changedKeys = array(kChangedKeysKey);
    const Value::Array* inserted = array(kInsertedObjectsKey);
    const Value::Array* refreshed = array(kRefreshedObjectsKey);

    std::vector<std::string> keys;
    auto keysOfEvent = [&](ManagedObject& object) {
        keys.clear();
        for (const auto& [key, value] : object.changedValuesForCurrentEvent()) {
            keys.push_back(key);
        }
    };
    std::unordered_set<ManagedObject*> seen;
    const bool mayOverlap = refreshed != nullptr && !refreshed->empty();

    if (updated != nullptr) {
        for (size_t i = 0; i < updated->size(); ++i) {
            auto* object = dynamic_cast<ManagedObject*>((*updated)[i].object());
            if (object == nullptr) {
                continue;
            }
            keys.clear();
            if (changedKeys != nullptr && i < changedKeys->size()) {
                if (const Value::Array* list = (*changedKeys)[i].array()) {
                    for (const Value& key : *list) {
                        if (const std::string* text = key.string()) {
                            keys.push_back(*text);
                        }
                    }
                }
            } else {
                keysOfEvent(*object);
            }
            if (mayOverlap) {
                seen.insert(object);
            }
            dispatchObject(*object, &keys);
        }
    }
    auto dispatchWithEventKeys = [&](const Value::Array* objects) {
        if (objects == nullptr) {
            return;
        }
        for (const Value& value : *objects) {
            auto* object = dynamic_cast<ManagedObject*>(value.object());
            if (object == nullptr || (mayOverlap && !seen.insert(object).second)) {
                continue;
            }
            keysOfEvent(*object);
            dispatchObject(*object, &keys);
        }
    };
    dispatchWithEventKeys(inserted);
    dispatchWithEventKeys(refreshed);

    if (refreshed != nullptr && observationHooks().objectRefreshed) {
        for (const Value& value : *refreshed) {
            if (auto* object = dynamic_cast<ManagedObject*>(value.object())) {
                observationHooks().objectRefreshed(*object);
            }
        }
    }
}

void BLDataObserver::dispatchObject(ManagedObject& object, const std::vector<std::string>* changedKeys) {
    const EntityDescription& entity = object.entity();
    if (Handler handler = m_dispatch->valueHandler(entity)) {
        handler(*this, object);
    }
    if (changedKeys == nullptr) {
        return;
    }
    for (const std::string& key : *changedKeys) {
        for (Handler handler : m_dispatch->keyHandlersFor(entity, key)) {
            handler(*this, object);
        }
    }
}

void BLDataObserver::scheduleNotificationName(std::string_view name, Object* object) {
    if (!RunLoop::isMainThread()) {
        logMessage("Notification %@ scheduled off the main thread; dropped.", name);
        return;
    }
    // A batch schedules the same few records over and over: those are found without
    // building a record for the set.
    constexpr size_t kScanLimit = 8;
    if (m_scheduled.size() <= kScanLimit) {
        for (const ScheduledNotification& existing : m_scheduled) {
            if (existing.object == object && existing.name == name) {
                return;
            }
        }
    }
    ScheduledNotification record{std::string(name), object};
    if (!m_dispatch->scheduled.insert(record).second) {
        return;
    }
    m_scheduled.push_back(std::move(record));
    // One pending request, not one per change: a request already waiting fires on the same
    // turn that a fresh one would, so re-requesting would only cost timer work per record.
    if (m_fireRequest == 0) {
        m_fireRequest = RunLoop::main().performAfterDelay(0.0, [this] {
            m_fireRequest = 0;
            fireNotifications();
        });
    }
}

void BLDataObserver::fireNotifications() {
    cancelFire();
    if (m_scheduled.empty()) {
        return;
    }
    // Taken before posting: a receiver that schedules again starts the next batch instead
    // of being emptied away with this one.
    std::vector<ScheduledNotification> batch;
    batch.swap(m_scheduled);
    m_dispatch->scheduled.clear();
    logMessage(kFireNotificationsBreadcrumb);
    Value context(static_cast<Object*>(m_context));
    for (const ScheduledNotification& record : batch) {
        NotificationCenter::defaultCenter().postNotificationName(record.name, record.object,
                                                                 Value::Dictionary{{kContextKey, context}});
        ++m_sentCount;
    }
}

}  // namespace brassline
