#include "model/entities/BLFinancial.h"

namespace brassline {

void BLFinancial::setupClass(EntityDescription& entity) {
    // What a money document counts in metrics and the dashboard unless its class says
    // otherwise: all of it, with nothing of its own to discount or show.
    entity.registerDerivedProperty("ratioForMetrics", [](const ManagedObject&) -> Value { return Value(Decimal(1)); });
    entity.registerDerivedProperty("costForCashDiscount",
                                   [](const ManagedObject&) -> Value { return Value(Decimal()); });
    entity.registerDerivedProperty("costForDashboard", [](const ManagedObject&) -> Value { return Value(Decimal()); });
    entity.registerDerivedProperty("balanceForDashboard",
                                   [](const ManagedObject&) -> Value { return Value(Decimal()); });
    entity.registerDerivedProperty("includeInDashboard", [](const ManagedObject&) -> Value { return Value(true); });
}

void BLFinancial::setup() {
    BLDocument::setup();
    if (!dateCreation()) {
        setDateCreation(Date::now());
    }
}

}  // namespace brassline
