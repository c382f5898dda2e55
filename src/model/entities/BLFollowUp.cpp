#include "model/entities/BLFollowUp.h"

#include "model/ManagedObjectContext.h"
#include "model/entities/BLCurrency.h"
#include "model/entities/BLFollowUpType.h"
#include "model/entities/BLTeamMember.h"

namespace brassline {

void BLFollowUp::setupClass(EntityDescription& entity) {
    entity.registerDerivedProperty("currency", [](const ManagedObject& object) -> Value {
        return Value(static_cast<Object*>(static_cast<const BLFollowUp&>(object).currency()));
    });
}

BLCurrency* BLFollowUp::currency() const {
    return parentDocument() != nullptr ? parentDocument()->currency() : nullptr;
}

void BLFollowUp::setCurrency(brassline::BLCurrency* value) {
    // Dropped: the parent's currency is the follow-up's.
    (void)value;
}

void BLFollowUp::setup() {
    BLSendable::setup();
    if (BLFollowUpType* type = followUpType(); type != nullptr && type->payInterval()) {
        setPayInterval(type->payInterval());
    }
    if (teamMember() == nullptr && managedObjectContext() != nullptr) {
        setTeamMember(defaultItemForContext<BLTeamMember>(*managedObjectContext()));
    }
}

}  // namespace brassline
