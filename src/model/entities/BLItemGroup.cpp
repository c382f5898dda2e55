#include "model/entities/BLItemGroup.h"

#include "model/ManagedObjectContext.h"
#include "model/entities/BLClientGroup.h"
#include "model/entities/BLTaxGroup.h"
#include "model/entities/BLTaxRule.h"

namespace brassline {

namespace {

BLTaxRule* defaultRuleFor(const BLItemGroup& itemGroup) {
    const BLTaxGroup* taxGroup = itemGroup.taxGroup();
    ManagedObjectContext* context = itemGroup.managedObjectContext();
    if (taxGroup == nullptr || context == nullptr) {
        return nullptr;
    }
    const BLClientGroup* clientGroup = BLContainer::defaultItemForContext<BLClientGroup>(*context);
    if (clientGroup == nullptr) {
        return nullptr;
    }
    return BLTaxRule::matrixCell(clientGroup, taxGroup);
}

}  // namespace

Decimal BLItemGroup::addDefaultTaxTo(const std::optional<Decimal>& value) const {
    if (!value) {
        return Decimal();
    }
    const BLTaxRule* rule = defaultRuleFor(*this);
    if (rule == nullptr) {
        return *value;
    }
    return (*value + rule->calculateTaxForAmount(*value, nullptr, nullptr)).roundUpToDigits(2);
}

Decimal BLItemGroup::subtractDefaultTaxFrom(const std::optional<Decimal>& value) const {
    if (!value) {
        return Decimal();
    }
    const BLTaxRule* rule = defaultRuleFor(*this);
    if (rule == nullptr) {
        return *value;
    }
    return (*value - rule->calculateIncludedTaxForAmount(*value, nullptr, nullptr)).roundUpToDigits(2);
}

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
