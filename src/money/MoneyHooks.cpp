#include "money/MoneyHooks.h"

#include "model/entities/BLTaxGroup.h"
#include "model/entities/ModelHooks.h"
#include "money/BLCurrencyConverter.h"
#include "money/TaxRepairs.h"

namespace brassline {

void installMoneyHooks() {
    ModelHooks& hooks = modelHooks();
    hooks.updateTaxRule = [](BLDocument& document) { updateTaxRule(document); };
    hooks.fixTaxRules = [](BLTaxGroup& group) {
        if (group.managedObjectContext() != nullptr) {
            fixTaxRules(*group.managedObjectContext());
        }
    };
    // A new book currency asks the service for fresh rates; without a service (the
    // default) the request is not made and the stored rates stay.
    hooks.reloadCurrencyConverter = [](ManagedObjectContext& context) {
        BLCurrencyConverter converter(context);
        converter.load();
    };
}

}  // namespace brassline
