#pragma once

#include <string>
#include <string_view>

namespace brassline {

class BLContainer;
class ManagedObjectContext;

// State that the entity classes keep per context: whether the document is ready for
// default objects (the company-file layer sets it once its first-run set-up is done) and
// the default item cache ("__defaultItemCache"), by class or entity name. Main thread only.
// State is keyed by the context's serial number, which no later context reuses; a
// context that goes away should still be forgotten, so the table does not grow.
class BLContextState {
public:
    // Asks the installed hook if there is one, else the flag of the context's main
    // context (child contexts climb to it). Unset flags read as ready: a scratch context
    // without a document has no first-run set-up to wait for.
    static bool readyForDefaultValues(const ManagedObjectContext& context);
    static void setReadyForDefaultValues(const ManagedObjectContext& context, bool ready);

    // The cached default object under `key`; null when none or when it was deleted.
    static BLContainer* cachedDefaultItem(const ManagedObjectContext& context, std::string_view key);
    static void setCachedDefaultItem(const ManagedObjectContext& context, std::string_view key, BLContainer* item);
    static void clearDefaultItemCache(const ManagedObjectContext& context);

    static void forgetContext(const ManagedObjectContext& context);
    // For ProcessState::resetForTesting.
    static void forgetAllContexts();
};

}  // namespace brassline
