#include "store/BLMaintenance.h"

#include <algorithm>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "core/Log.h"
#include "core/UniqueId.h"
#include "model/FetchRequest.h"
#include "model/ManagedObject.h"
#include "model/ManagedObjectContext.h"
#include "model/entities/BLBase.h"
#include "model/entities/BLContainer.h"

namespace brassline {

namespace {

std::vector<ManagedObject*> fetchAll(ManagedObjectContext& context, std::string_view entityName,
                                     std::string_view predicate = {}) {
    FetchRequest request{std::string(entityName)};
    if (!predicate.empty() && !request.setPredicateFormat(predicate)) {
        return {};
    }
    std::vector<ManagedObject*> objects = context.executeFetchRequest(request).value_or(std::vector<ManagedObject*>{});
    // The object number stands for the order of creation on this device; fetches make
    // no promise about order, and which duplicate survives must not vary between runs.
    std::stable_sort(objects.begin(), objects.end(), [](const ManagedObject* a, const ManagedObject* b) {
        return a->objectID().number < b->objectID().number;
    });
    return objects;
}

// The objects of the entity grouped by uid, groups of two or more only, each in the
// order of `objects`.
std::vector<std::vector<ManagedObject*>> duplicateGroups(const std::vector<ManagedObject*>& objects) {
    std::map<std::string, std::vector<ManagedObject*>> byUid;
    std::vector<std::string> order;
    for (ManagedObject* object : objects) {
        Value uid = object->valueForKey("uid");
        if (uid.isNull()) {
            continue;
        }
        auto& group = byUid[uid.toString()];
        if (group.empty()) {
            order.push_back(uid.toString());
        }
        group.push_back(object);
    }
    std::vector<std::vector<ManagedObject*>> groups;
    for (const std::string& uid : order) {
        if (byUid[uid].size() > 1) {
            groups.push_back(std::move(byUid[uid]));
        }
    }
    return groups;
}

double timestamp(const Value& value) {
    return value.date() != nullptr ? value.date()->timeIntervalSinceReferenceDate() : 0.0;
}

}  // namespace

size_t BLMaintenance::fixDefaults(ManagedObjectContext& context) {
    size_t changed = 0;
    for (const char* entityName : {"Currency", "ItemGroup", "PaymentType", "Language", "TaxGroup"}) {
        std::vector<BLContainer*> all;
        std::vector<BLContainer*> marked;
        for (ManagedObject* object : fetchAll(context, entityName)) {
            auto* container = dynamic_cast<BLContainer*>(object);
            if (container == nullptr) {
                continue;
            }
            all.push_back(container);
            if (container->isDefaultValue()) {
                marked.push_back(container);
            }
        }
        if (marked.size() == 1 || all.empty()) {
            continue;
        }
        // The most used candidate wins; on a tie the oldest, as the list is in creation order.
        const std::vector<BLContainer*>& candidates = marked.empty() ? all : marked;
        BLContainer* chosen = candidates.front();
        size_t chosenUsage = chosen->usageObjects().size();
        for (BLContainer* candidate : candidates) {
            size_t usage = candidate->usageObjects().size();
            if (usage > chosenUsage) {
                chosen = candidate;
                chosenUsage = usage;
            }
        }
        for (BLContainer* other : marked) {
            if (other != chosen) {
                other->setDefault(false);
                ++changed;
            }
        }
        if (!chosen->isDefaultValue()) {
            chosen->setIsDefault(true);
            ++changed;
        }
        logMessage("fixDefaults: %@ default is %@", std::string(entityName), chosen->valueForKey("uid").toString());
    }
    if (changed > 0) {
        BLContainer::clearDefaultItemCache(context);
    }
    return changed;
}

size_t BLMaintenance::fixZombies(ManagedObjectContext& context) {
    size_t deleted = 0;
    for (ManagedObject* object : fetchAll(context, "Sendable", "client.uid == nil && dateSent == NIL")) {
        std::string error;
        std::string uid = object->valueForKey("uid").toString();
        if (context.deleteObject(object, &error)) {
            ++deleted;
            logMessage("fixZombies: deleted %@ %@", object->entityName(), uid);
        } else {
            logMessage("fixZombies: %@ %@ can't be deleted: %@", object->entityName(), uid, error);
        }
    }
    return deleted;
}

size_t BLMaintenance::fixDuplicateUIDsForEntityName(ManagedObjectContext& context, std::string_view entityName) {
    size_t changed = 0;
    for (const auto& group : duplicateGroups(fetchAll(context, entityName))) {
        for (size_t i = 1; i < group.size(); ++i) {
            std::string fresh = uniqueBase64String();
            logMessage("fixDuplicateUIDs: %@ %@ becomes %@", group[i]->entityName(),
                       group[i]->valueForKey("uid").toString(), fresh);
            group[i]->setValueForKey(Value(fresh), "uid");
            ++changed;
        }
    }
    return changed;
}

size_t BLMaintenance::deleteDuplicateUIDsForEntityName(ManagedObjectContext& context, std::string_view entityName) {
    size_t deleted = 0;
    for (auto group : duplicateGroups(fetchAll(context, entityName))) {
        std::stable_sort(group.begin(), group.end(), [](const ManagedObject* a, const ManagedObject* b) {
            return timestamp(a->valueForKey("dateCreation")) < timestamp(b->valueForKey("dateCreation"));
        });
        for (size_t i = 1; i < group.size(); ++i) {
            std::string error;
            if (context.deleteObject(group[i], &error)) {
                ++deleted;
            } else {
                logMessage("deleteDuplicateUIDs: %@ can't be deleted: %@", group[i]->entityName(), error);
            }
        }
    }
    if (deleted > 0) {
        logMessage("deleteDuplicateUIDs: %@ duplicates of %@ deleted", std::to_string(deleted),
                   std::string(entityName));
    }
    return deleted;
}

size_t BLMaintenance::fixMissingValues(ManagedObjectContext& context, std::string_view entityName) {
    size_t count = 0;
    for (ManagedObject* object : fetchAll(context, entityName)) {
        if (auto* base = dynamic_cast<BLBase*>(object)) {
            base->fixMissingValues();
            ++count;
        }
    }
    return count;
}

size_t BLMaintenance::fixCaches(ManagedObjectContext& context) {
    size_t count = 0;
    for (ManagedObject* object : fetchAll(context, "Base")) {
        if (auto* base = dynamic_cast<BLBase*>(object)) {
            base->resetCaches();
            ++count;
        }
    }
    BLContainer::clearDefaultItemCache(context);
    return count;
}

bool BLMaintenance::cleanupPermanentInvoiceRepetitionDuplicates(ManagedObjectContext& context, size_t* deleted) {
    size_t count = 0;
    bool saved = true;
    std::string error;
    // The search runs beside the user's context, as a merge can arrive while the user edits.
    auto child = std::make_unique<ManagedObjectContext>(context, "CleanupPermanentInvoiceRepetitions");
    child->performBlockAndWait([&] {
        for (auto group : duplicateGroups(fetchAll(*child, "PermanentInvoiceRepetition"))) {
            auto keep = std::find_if(group.begin(), group.end(), [](ManagedObject* object) {
                return object->valueForKeyPath("documents.@count").toInt64() > 0;
            });
            if (keep == group.end()) {
                std::stable_sort(group.begin(), group.end(), [](const ManagedObject* a, const ManagedObject* b) {
                    int64_t sa = a->valueForKey("sequence").toInt64();
                    int64_t sb = b->valueForKey("sequence").toInt64();
                    if (sa != sb) {
                        return sa > sb;
                    }
                    return timestamp(a->valueForKey("dateCreation")) > timestamp(b->valueForKey("dateCreation"));
                });
                keep = group.begin();
            }
            ManagedObject* kept = *keep;
            for (ManagedObject* object : group) {
                if (object != kept && child->deleteObject(object, &error)) {
                    ++count;
                }
            }
        }
        if (count > 0) {
            saved = child->save(&error);
        }
    });
    child.reset();
    if (count > 0 && saved) {
        context.processPendingChanges();
        saved = context.save(&error);
    }
    if (!saved) {
        logMessage("cleanupPermanentInvoiceRepetitionDuplicates: save failed: %@", error);
    } else if (count > 0) {
        logMessage("cleanupPermanentInvoiceRepetitionDuplicates: %@ duplicates deleted", std::to_string(count));
    }
    if (deleted != nullptr) {
        *deleted = count;
    }
    return saved;
}

}  // namespace brassline
