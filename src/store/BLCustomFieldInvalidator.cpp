#include "store/BLCustomFieldInvalidator.h"

#include <optional>
#include <string>
#include <vector>

#include "core/Log.h"
#include "model/FetchRequest.h"
#include "model/ManagedObjectContext.h"
#include "model/entities/BLDocument.h"

namespace brassline {

BLCustomFieldInvalidator& BLCustomFieldInvalidator::sharedInvalidator() {
    static BLCustomFieldInvalidator invalidator;
    return invalidator;
}

void BLCustomFieldInvalidator::refreshObjects() {
    for (BLBase* object : takeInvalidItems()) {
        // Documents keep no separate slot for their custom field dictionary: it lives among
        // their derived values, which rebuild on demand, so all of them are dropped.
        if (auto* document = dynamic_cast<BLDocument*>(object)) {
            document->holdfastResetCacheValues();
        }
    }
}

void BLCustomFieldInvalidator::invalidateAllDocumentsInContext(ManagedObjectContext& context) {
    FetchRequest request("Document");
    std::string error;
    std::optional<std::vector<ManagedObject*>> documents = context.executeFetchRequest(request, &error);
    if (!documents) {
        logMessage("invalidateAllDocumentsInContext: %@", error);
        return;
    }
    for (ManagedObject* document : *documents) {
        addObject(dynamic_cast<BLBase*>(document));
    }
}

}  // namespace brassline
