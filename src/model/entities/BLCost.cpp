#include "model/entities/BLCost.h"

#include "model/ManagedObjectContext.h"
#include "model/entities/BLCatalogItem.h"
#include "model/entities/BLInvoice.h"
#include "model/entities/BLItemGroup.h"
#include "model/entities/ModelHooks.h"
#include "model/entities/ModelStrings.h"
#include "model/entities/BLSendable.h"
#include "model/entities/LineRounding.h"

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

Decimal BLCost::lineQuantity() {
    if (std::optional<Decimal> stored = quantity()) {
        return *stored;
    }
    setPrimitiveQuantity(Decimal::one());
    return Decimal::one();
}

Decimal BLCost::costForGroup() {
    Decimal amount = lineQuantity() * lineUnitPrice();
    return amount - (amount / Decimal::hundred() * lineDiscount());
}

Decimal BLCost::cost() {
    return roundByCurrency(documentCurrency(), costForGroup());
}

Decimal BLCost::discountAmount() {
    return (undiscountedAmount() / Decimal::hundred() * lineDiscount()).fixedValue();
}

Decimal BLCost::totalDiscount() {
    if (!discount()) {
        return {};
    }
    return undiscountedAmount() / Decimal::hundred() * *discount();
}

Decimal BLCost::totalWeight() {
    return weight() ? *weight() * lineQuantity() : Decimal();
}

std::optional<Decimal> BLCost::effectiveCostPrice() {
    if (costPrice()) {
        return costPrice();
    }
    if (BLCatalogItem* item = catalogItem(); item != nullptr && item != this) {
        // The catalog's price counts only where no conversion stands between the two.
        const BLCurrency* from = item->currency();
        const BLCurrency* to = documentCurrency();
        if (from == nullptr || to == nullptr || from == to) {
            if (std::optional<Decimal> price = item->effectiveCostPrice()) {
                return price;
            }
        }
    }
    auto* origin = dynamic_cast<BLCost*>(source());
    if (origin != nullptr && origin != this && origin != catalogItem()) {
        return origin->effectiveCostPrice();
    }
    return std::nullopt;
}

Decimal BLCost::margin() {
    std::optional<Decimal> price = effectiveCostPrice();
    return price ? net() - *price * lineQuantity() : net();
}

void BLCost::incrementQuantity() {
    setQuantity(lineQuantity() + Decimal::one());
}

void BLCost::invertQuantities() {
    setQuantity(lineQuantity().invert());
}

void BLCost::setQuantity(std::optional<Decimal> value) {
    gen::BLCost::setQuantity(std::move(value));
    if (!isSyncing()) {
        resetCaches();
    }
}

void BLCost::setUnitPrice(std::optional<Decimal> value) {
    gen::BLCost::setUnitPrice(std::move(value));
    if (!isSyncing()) {
        resetCaches();
    }
}

void BLCost::setDiscount(std::optional<Decimal> value) {
    gen::BLCost::setDiscount(std::move(value));
    if (!isSyncing()) {
        resetCaches();
    }
}

}  // namespace brassline
