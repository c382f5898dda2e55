#include "model/entities/BLTaxGroup.h"

#include "core/Localization.h"
#include "core/Log.h"
#include "model/entities/BLClientGroup.h"
#include "model/entities/BLItemGroup.h"
#include "model/entities/BLTaxRule.h"
#include "model/entities/ModelHooks.h"
#include "model/entities/ModelStrings.h"

namespace brassline {

void BLTaxGroup::awakeFromCreate() {
    gen::BLTaxGroup::awakeFromCreate();
    nameUntitledIfNameless();
}

void BLTaxGroup::setup() {
    BLBase::setup();
    addTaxRulesForGroup(*this, "ClientGroup");
}

void BLTaxGroup::setupClass(EntityDescription& entity) {
    entity.registerDerivedProperty("canEditTax", [](const ManagedObject& object) -> Value {
        return Value(static_cast<const BLTaxGroup&>(object).canEditTax());
    });
    entity.registerDerivedProperty("importance", [](const ManagedObject& object) -> Value {
        return Value(static_cast<const BLTaxGroup&>(object).importance());
    });
}

bool BLTaxGroup::canEditTax() const {
    for (BLTaxRule* rule : taxRules()) {
        if (!rule->canEditTax()) {
            return false;
        }
    }
    return true;
}

int64_t BLTaxGroup::importance() const {
    int64_t result = Decimal::saveDecimalNumberWithString(fixedAttribute(name())).toInt64();
    for (BLItemGroup* itemGroup : itemGroups()) {
        if (!itemGroup->archivedValue()) {
            result += 100;
        }
    }
    return isDefaultValue() ? result + 100 : result;
}

BLBase* BLTaxGroup::duplicate() {
    if (modelHooks().fixTaxRules) {
        modelHooks().fixTaxRules(*this);
    }
    auto* copy = static_cast<BLTaxGroup*>(cloneWithEntityReplacements({}, {"itemGroups", "taxRules"}));
    if (copy == nullptr) {
        return nullptr;
    }
    copy->setName(formatMessage(kNameWithSuffixFormat, name().value_or(""), localizedString(kNewText)));
    for (BLTaxRule* rule : taxRules().toVector()) {
        if (auto* ruleCopy = static_cast<BLTaxRule*>(rule->cloneWithEntityReplacements({}, {"costs", "taxGroup"}))) {
            ruleCopy->setTaxGroup(copy);
        }
    }
    // The new group takes the old one's place for its item groups.
    for (BLItemGroup* itemGroup : itemGroups().toVector()) {
        itemGroup->setTaxGroup(copy);
    }
    return copy;
}

}  // namespace brassline
