#include "model/entities/BLPayment.h"

#include "model/ManagedObjectContext.h"
#include "model/entities/BLCurrency.h"

namespace brassline {

void BLPayment::awakeFromCreate() {
    gen::BLPayment::awakeFromCreate();
    if (!isSyncing()) {
        setDateCreation(Date::now());
    }
}

void BLPayment::fixMissingValues() {
    BLBase::fixMissingValues();
    if (currency() != nullptr) {
        return;
    }
    BLCurrency* parentCurrency = parentDocument() != nullptr ? parentDocument()->currency() : nullptr;
    if (parentCurrency == nullptr && managedObjectContext() != nullptr) {
        parentCurrency = defaultItemForContext<BLCurrency>(*managedObjectContext());
    }
    setCurrency(parentCurrency);
}

}  // namespace brassline
