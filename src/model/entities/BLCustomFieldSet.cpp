#include "model/entities/BLCustomFieldSet.h"

#include "model/entities/ModelHooks.h"

namespace brassline {

void BLCustomFieldSet::awakeFromCreate() {
    gen::BLCustomFieldSet::awakeFromCreate();
    if (modelHooks().resetCustomFieldManager && managedObjectContext() != nullptr) {
        modelHooks().resetCustomFieldManager(*managedObjectContext());
    }
}

}  // namespace brassline
