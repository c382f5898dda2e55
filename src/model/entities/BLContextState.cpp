#include "model/entities/BLContextState.h"

#include <map>
#include <unordered_map>

#include "model/ManagedObjectContext.h"
#include "model/entities/BLContainer.h"
#include "model/entities/ModelHooks.h"

namespace brassline {

namespace {

struct State {
    std::optional<bool> ready;
    // Object IDs rather than pointers: the entry is resolved through the context, so a
    // stale entry answers nothing instead of a freed object.
    std::map<std::string, ObjectID, std::less<>> defaultItems;
};

// By serial number: a context made later at a freed context's address never finds the
// state of the one before.
std::unordered_map<uint64_t, State>& states() {
    static std::unordered_map<uint64_t, State> table;
    return table;
}

State& stateFor(const ManagedObjectContext& context) {
    return states()[context.serialNumber()];
}

}  // namespace

bool BLContextState::readyForDefaultValues(const ManagedObjectContext& context) {
    if (modelHooks().readyForDefaultValues) {
        return modelHooks().readyForDefaultValues(context);
    }
    const ManagedObjectContext* main = &context;
    while (main->parentContext() != nullptr) {
        main = main->parentContext();
    }
    return stateFor(*main).ready.value_or(true);
}

void BLContextState::setReadyForDefaultValues(const ManagedObjectContext& context, bool ready) {
    stateFor(context).ready = ready;
}

BLContainer* BLContextState::cachedDefaultItem(const ManagedObjectContext& context, std::string_view key) {
    State& state = stateFor(context);
    auto found = state.defaultItems.find(key);
    if (found == state.defaultItems.end()) {
        return nullptr;
    }
    ManagedObject* object = const_cast<ManagedObjectContext&>(context).objectWithID(found->second);
    if (object == nullptr || object->isDeleted()) {
        state.defaultItems.erase(found);
        return nullptr;
    }
    return static_cast<BLContainer*>(object);
}

void BLContextState::setCachedDefaultItem(const ManagedObjectContext& context, std::string_view key,
                                          BLContainer* item) {
    State& state = stateFor(context);
    if (item == nullptr) {
        auto found = state.defaultItems.find(key);
        if (found != state.defaultItems.end()) {
            state.defaultItems.erase(found);
        }
        return;
    }
    state.defaultItems.insert_or_assign(std::string(key), item->objectID());
}

void BLContextState::clearDefaultItemCache(const ManagedObjectContext& context) {
    stateFor(context).defaultItems.clear();
}

void BLContextState::forgetContext(const ManagedObjectContext& context) {
    states().erase(context.serialNumber());
}

void BLContextState::forgetAllContexts() {
    states().clear();
}

}  // namespace brassline
