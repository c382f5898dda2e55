#include "model/entities/BLClientGroup.h"

#include <unordered_set>

#include "model/FetchRequest.h"
#include "model/ManagedObjectContext.h"
#include "model/entities/BLTaxGroup.h"
#include "model/entities/BLTaxRule.h"

namespace brassline {

void addTaxRulesForGroup(BLBase& group, std::string_view otherEntity) {
    ManagedObjectContext* context = group.managedObjectContext();
    if (context == nullptr) {
        return;
    }
    FetchRequest request{std::string(otherEntity)};
    std::optional<std::vector<ManagedObject*>> others = context->executeFetchRequest(request);
    if (!others) {
        return;
    }
    const bool isClientGroup = group.isKindOfEntity("ClientGroup");
    for (ManagedObject* other : *others) {
        BLTaxRule* rule = BLTaxRule::insertInManagedObjectContext(*context);
        if (rule == nullptr) {
            return;
        }
        auto* clientGroup = static_cast<BLClientGroup*>(isClientGroup ? static_cast<ManagedObject*>(&group) : other);
        auto* taxGroup = static_cast<BLTaxGroup*>(isClientGroup ? other : static_cast<ManagedObject*>(&group));
        rule->setClientGroup(clientGroup);
        rule->setTaxGroup(taxGroup);
    }
}

void BLClientGroup::awakeFromCreate() {
    gen::BLClientGroup::awakeFromCreate();
    nameUntitledIfNameless();
}

void BLClientGroup::setup() {
    BLBase::setup();
    addTaxRulesForGroup(*this, "TaxGroup");
}

void BLClientGroup::setupClass(EntityDescription& entity) {
    entity.registerDerivedProperty("canEditTax", [](const ManagedObject& object) -> Value {
        return Value(static_cast<const BLClientGroup&>(object).canEditTax());
    });
}

bool BLClientGroup::canEditTax() const {
    for (BLTaxRule* rule : taxRules()) {
        if (!rule->canEditTax()) {
            return false;
        }
    }
    return true;
}

std::vector<ManagedObject*> BLClientGroup::usageObjects() const {
    std::vector<ManagedObject*> result = BLBase::usageObjects();
    std::unordered_set<const ManagedObject*> seen(result.begin(), result.end());
    for (BLTaxRule* rule : taxRules()) {
        for (ManagedObject* object : rule->usageObjects()) {
            if (seen.insert(object).second) {
                result.push_back(object);
            }
        }
    }
    return result;
}

}  // namespace brassline
