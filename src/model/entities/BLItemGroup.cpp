#include "model/entities/BLItemGroup.h"

#include "model/ManagedObjectContext.h"
#include "model/entities/BLTaxGroup.h"

namespace brassline {

void BLItemGroup::awakeFromCreate() {
    gen::BLItemGroup::awakeFromCreate();
    nameUntitledIfNameless();
}

void BLItemGroup::setup() {
    BLBase::setup();
    if (taxGroup() == nullptr && managedObjectContext() != nullptr) {
        setTaxGroup(defaultItemForContext<BLTaxGroup>(*managedObjectContext()));
    }
}

}  // namespace brassline
