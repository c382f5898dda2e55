#include "lifecycle/LifecycleHooks.h"

#include "lifecycle/Numbering.h"
#include "lifecycle/SendableIssue.h"
#include "lifecycle/SendableRules.h"
#include "model/ManagedObjectContext.h"
#include "model/entities/BLClient.h"
#include "model/entities/BLProject.h"
#include "model/entities/ModelHooks.h"

namespace brassline {

namespace {

std::optional<std::string> createNumberFor(ManagedObject& object) {
    ManagedObjectContext* context = object.managedObjectContext();
    if (context == nullptr) {
        return std::nullopt;
    }
    Numbering numbering(*context);
    return numbering.createNumber(object);
}

}  // namespace

void installLifecycleHooks() {
    ModelHooks& hooks = modelHooks();
    hooks.createClientNumber = [](BLClient& client) { return createNumberFor(client); };
    hooks.createProjectNumber = [](BLProject& project) { return createNumberFor(project); };
    installSendableHooks();
    installIssueHooks();
}

}  // namespace brassline
