#include "model/entities/BLCost.h"

#include "model/ManagedObjectContext.h"
#include "model/entities/BLCatalogItem.h"
#include "model/entities/BLInvoice.h"
#include "model/entities/BLItemGroup.h"
#include "model/entities/ModelHooks.h"
#include "model/entities/ModelStrings.h"

namespace brassline {

void BLCost::setupClass(EntityDescription& entity) {
    entity.registerDerivedProperty("catalogItem", [](const ManagedObject& object) -> Value {
        return Value(static_cast<Object*>(const_cast<BLCost&>(static_cast<const BLCost&>(object)).catalogItem()));
    });
}

BLCatalogItem* BLCost::catalogItem() {
    return static_cast<BLCatalogItem*>(firstSourceWithEntityName("CatalogItem"));
}

void BLCost::awakeFromCreate() {
    gen::BLCost::awakeFromCreate();
    if (entityName() == "Cost" && !unitPrice()) {
        setPrimitiveUnitPrice(Decimal());
    }
    if (modelHooks().userDefaultBool && modelHooks().userDefaultBool(kInsertDatesOnItemCreationDefault)) {
        setPrimitiveDateCreation(Date::now());
    }
}

void BLCost::setup() {
    BLDocument::setup();
    if (itemGroup() == nullptr && managedObjectContext() != nullptr) {
        setItemGroup(defaultItemForContext<BLItemGroup>(*managedObjectContext()));
    }
    if (!quantity()) {
        setQuantity(Decimal(1));
    }
}

void BLCost::fixMissingValues() {
    BLBase::fixMissingValues();
    if (itemGroup() == nullptr && managedObjectContext() != nullptr) {
        setItemGroup(defaultItemForContext<BLItemGroup>(*managedObjectContext()));
    }
}

bool BLCost::canDelete() const {
    BLInvoice* owner = invoice();
    return owner != nullptr && owner->canDelete();
}

BLBase* BLCost::cloneWithEntityReplacements(const EntityReplacements& replacements,
                                            const std::vector<std::string>& skip) {
    std::vector<std::string> keys = skip;
    keys.emplace_back("language");
    BLBase* copy = BLBase::cloneWithEntityReplacements(replacements, keys);
    if (copy != nullptr) {
        copy->setup();
    }
    return copy;
}

void BLCost::hasBeenClonedFrom(BLBase* source) {
    (void)source;
    if (BLCatalogItem* item = catalogItem()) {
        setCostPrice(item->costPrice());
    }
}

}  // namespace brassline
