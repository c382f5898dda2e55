#include "model/entities/BLImportRule.h"

#include "model/ManagedObjectContext.h"
#include "model/entities/BLItemGroup.h"
#include "model/entities/ModelStrings.h"

namespace brassline {

void BLImportRule::setup() {
    if (itemGroup() == nullptr && managedObjectContext() != nullptr) {
        setItemGroup(BLContainer::defaultItemForContext<BLItemGroup>(*managedObjectContext()));
    }
    if (!operator_()) {
        setOperator(std::string(kImportRuleDefaultOperator));
    }
    if (!field()) {
        setField(std::string(kImportRuleDefaultField));
    }
}

}  // namespace brassline
