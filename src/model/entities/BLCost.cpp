#include "model/entities/BLCost.h"

#include <algorithm>
#include <cctype>

#include "model/ManagedObjectContext.h"
#include "model/entities/BLCatalogItem.h"
#include "model/entities/BLCurrency.h"
#include "model/entities/BLGroup.h"
#include "model/entities/BLInvoice.h"
#include "model/entities/BLItemGroup.h"
#include "model/entities/BLSendable.h"
#include "model/entities/LineRounding.h"
#include "model/entities/ModelHooks.h"
#include "model/entities/ModelStrings.h"

namespace brassline {

namespace {

// Metric amounts fill the line's caches, so the const object of a key read is read mutably.
BLCost& lineOf(const ManagedObject& object) {
    return const_cast<BLCost&>(static_cast<const BLCost&>(object));
}

}  // namespace

void BLCost::setupClass(EntityDescription& entity) {
    entity.registerDerivedProperty("catalogItem", [](const ManagedObject& object) -> Value {
        return Value(static_cast<Object*>(const_cast<BLCost&>(static_cast<const BLCost&>(object)).catalogItem()));
    });
    entity.registerDerivedProperty(
        "undiscountedAmount", [](const ManagedObject& o) -> Value { return Value(lineOf(o).undiscountedAmount()); });
    entity.registerDerivedProperty("effectiveCostPrice", [](const ManagedObject& o) -> Value {
        std::optional<Decimal> price = lineOf(o).effectiveCostPrice();
        return price ? Value(*price) : Value();
    });
    entity.registerDerivedProperty("catalogCostPrice", [](const ManagedObject& o) -> Value {
        std::optional<Decimal> price = lineOf(o).catalogCostPrice();
        return price ? Value(*price) : Value();
    });
    entity.registerDerivedProperty("hasTimeUnit",
                                   [](const ManagedObject& o) -> Value { return Value(lineOf(o).hasTimeUnit()); });
    entity.registerDerivedProperty("quantityUnitCode", [](const ManagedObject& o) -> Value {
        return Value(lineOf(o).hasTimeUnit() ? "HUR" : "C62");
    });
    entity.registerDerivedProperty("timeUnits", [](const ManagedObject& o) -> Value {
        Value::Array units;
        for (std::string& unit : lineOf(o).timeUnits()) {
            units.emplace_back(std::move(unit));
        }
        return Value(std::move(units));
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
    if (userDefaultIsOn(kInsertDatesOnItemCreationDefault)) {
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
    // Most lines carry no discount: the division is the costly step of a line, and
    // subtracting a zero discount changes nothing.
    std::optional<Decimal> percent = discount();
    if (!percent || percent->isZero()) {
        return amount;
    }
    return amount - (amount / Decimal::hundred() * *percent);
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

void BLCost::setParent(brassline::BLContainer* value) {
    gen::BLCost::setParent(value);
    if (isSyncing()) {
        return;
    }
    updateRateIfNeeded();
    updateItemGroupIfNeeded();
    updateTaxRule();
}

void BLCost::updateRateIfNeeded() {
    if (unitPrice() && !unitPrice()->isZero()) {
        return;
    }
    std::vector<std::string> units = timeUnits();
    if (std::find(units.begin(), units.end(), unit().value_or("")) == units.end()) {
        return;
    }
    if (const BLSendable* owner = sendable()) {
        if (std::optional<Decimal> rate = owner->effectiveRate()) {
            setUnitPrice(*rate);
        }
    }
}

bool BLCost::hasTimeUnit() const {
    std::string text = unit().value_or("");
    for (char& c : text) {
        c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    }
    std::vector<std::string> units = timeUnits();
    return std::find(units.begin(), units.end(), text) != units.end();
}

void BLCost::updateItemGroupIfNeeded() {
    BLContainer* container = parent();
    if (container == nullptr || !itemIsContainer(container)) {
        return;
    }
    // A summary carries its own item group; a group's is that of its first line.
    BLCost* reference = nullptr;
    if (auto* summary = dynamic_cast<BLCost*>(container)) {
        reference = summary;
    } else if (auto* group = dynamic_cast<BLGroup*>(container)) {
        std::vector<BLCost*> lines = group->costs();
        reference = lines.empty() ? nullptr : lines.front();
    }
    if (reference != nullptr && reference != this && reference->taxRule() != taxRule() &&
        reference->itemGroup() != nullptr) {
        setItemGroup(reference->itemGroup());
    }
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

void BLCost::convertFromCurrency(const BLCurrency* from, const BLCurrency* to) {
    if (from == nullptr || to == nullptr || from == to) {
        return;
    }
    // The price is stored converted; quantity and discount carry over, so the line's cost
    // follows from the new price under the target currency's rounding. A summary line's
    // children convert as well.
    if (unitPrice()) {
        setUnitPrice(from->convertValue(*unitPrice(), to));
    }
    BLItem::convertFromCurrency(from, to);
}

}  // namespace brassline
