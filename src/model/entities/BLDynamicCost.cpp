#include "model/entities/BLDynamicCost.h"

#include "core/Log.h"
#include "model/entities/BLTaxRule.h"
#include "model/entities/ModelHooks.h"

namespace brassline {

void BLDynamicCost::setupClass(EntityDescription& entity) {
    entity.registerDerivedProperty("affectedItemsValid", [](const ManagedObject& o) -> Value {
        return Value(const_cast<BLDynamicCost&>(static_cast<const BLDynamicCost&>(o)).affectedItemsValid());
    });
    entity.registerDerivedProperty(
        "unitPrice",
        [](const ManagedObject& o) -> Value {
            return Value(const_cast<BLDynamicCost&>(static_cast<const BLDynamicCost&>(o)).lineUnitPrice());
        },
        [](ManagedObject& o, const Value& value) {
            static_cast<BLDynamicCost&>(o).setPrimitiveUnitPrice(value.isNull() ? std::nullopt
                                                                                : std::optional(value.toDecimal()));
        });
}

void BLDynamicCost::awakeFromFetch() {
    BLCost::awakeFromFetch();
    if (!primitiveCost()) {
        setPrimitiveCost(Decimal());
    }
    if (!primitivePluginIdentifier()) {
        setPrimitivePluginIdentifier(std::string(kDefaultPluginIdentifier));
    }
}

void BLDynamicCost::setCost(std::optional<Decimal> value) {
    if (primitiveCost() == value) {
        return;
    }
    gen::BLDynamicCost::setCost(std::move(value));
}

std::vector<BLItem*> BLDynamicCost::affectedItems() {
    std::vector<BLItem*> items;
    int16_t range = rangeTypeValue();
    for (BLContainer* sibling : parentChildren()) {
        // A line deleted in this change is still a child until the deletion is processed.
        if (sibling->isDeleted()) {
            continue;
        }
        if (sibling == this) {
            if (range == LastItem && items.size() > 1) {
                items.erase(items.begin(), items.end() - 1);
            }
            break;
        }
        if (range == ItemsFromLastTitle && itemIsTitle(sibling)) {
            items.clear();
        } else if (itemIsCost(sibling)) {
            items.push_back(static_cast<BLItem*>(sibling));
        }
    }
    return items;
}

bool BLDynamicCost::affectedItemsValid() {
    for (BLItem* item : affectedItems()) {
        const BLTaxRule* rule = item->isKindOfEntity("Cost") ? static_cast<BLCost*>(item)->taxRule() : nullptr;
        if (rule != taxRule()) {
            return false;
        }
    }
    return true;
}

bool BLDynamicCost::calculateDynamicValues(bool flash) {
    // The plug-in writes back through setters that recalculate: the guard stops the loop.
    if (m_blockCalculations) {
        return false;
    }
    m_blockCalculations = true;
    if (!pluginIdentifier()) {
        setPrimitivePluginIdentifier(std::string(kDefaultPluginIdentifier));
    }
    Decimal price = sum();
    bool changed = unitPrice() != price;
    setPrimitiveUnitPrice(price);
    if (modelHooks().runDynamicCost) {
        Value::Array records;
        for (BLItem* item : affectedItems()) {
            records.emplace_back(static_cast<Object*>(item));
        }
        Value::Dictionary input{{"unitPrice", Value(price)},
                                {"factor", Value(lineQuantity())},
                                {"quantity", Value(lineQuantity())},
                                {"items", Value(std::move(records))}};
        if (dateCreation()) {
            input["dateCreation"] = Value(*dateCreation());
        }
        if (std::optional<Value::Dictionary> result = modelHooks().runDynamicCost(*this, input)) {
            for (const auto& [key, value] : *result) {
                if (key == "cost") {
                    Decimal amount = Decimal::saveDecimalNumberWithString(value.toString()).fixedValue();
                    changed = changed || primitiveCost() != amount;
                    setCost(amount);
                } else if (key.rfind("customField.", 0) == 0) {
                    setValueForCustomField(value, std::string_view(key).substr(12));
                    changed = true;
                } else {
                    setValueForKey(value, key);
                    changed = true;
                }
            }
        } else {
            logMessage("Dynamic cost %@: the plug-in gave no result", pluginIdentifier().value_or(""));
        }
    }
    if (changed) {
        triggerChangeForKey("affectedItemsValid");
        BLItem::resetCaches();
    }
    m_blockCalculations = false;
    (void)flash;
    return changed;
}

void BLDynamicCost::setQuantity(std::optional<Decimal> value) {
    BLCost::setQuantity(std::move(value));
    calculateDynamicValues(false);
}

void BLDynamicCost::setRangeType(std::optional<int16_t> value) {
    gen::BLDynamicCost::setRangeType(value);
    calculateDynamicValues(false);
}

void BLDynamicCost::setPluginIdentifier(std::optional<std::string> value) {
    gen::BLDynamicCost::setPluginIdentifier(std::move(value));
    calculateDynamicValues(false);
}

}  // namespace brassline
