#include "model/entities/BLItem.h"

#include <unordered_set>

#include "model/entities/BLCost.h"
#include "model/entities/BLCurrency.h"
#include "model/entities/BLSendable.h"

namespace brassline {

namespace {

bool hasEntity(const BLContainer* item, std::string_view name) {
    return item != nullptr && item->entityName() == name;
}

}  // namespace

std::vector<BLItem*> itemChildren(const BLContainer& container) {
    std::vector<BLItem*> items;
    for (BLContainer* child : container.childsArray()) {
        if (child->isKindOfEntity("Item")) {
            items.push_back(static_cast<BLItem*>(child));
        }
    }
    return items;
}

namespace {

// Amount reads fill caches (and may store a missing quantity), so the const object of a
// key read is read mutably.
BLItem& itemOf(const ManagedObject& object) {
    return const_cast<BLItem&>(static_cast<const BLItem&>(object));
}

}  // namespace

void BLItem::setupClass(EntityDescription& entity) {
    // Every item answers the line accessors; a cost's stored price, quantity and discount
    // shadow the first three with their own keys.
    entity.registerDerivedProperty("unitPrice",
                                   [](const ManagedObject& o) -> Value { return Value(itemOf(o).lineUnitPrice()); });
    entity.registerDerivedProperty("quantity",
                                   [](const ManagedObject& o) -> Value { return Value(itemOf(o).lineQuantity()); });
    entity.registerDerivedProperty("discount",
                                   [](const ManagedObject& o) -> Value { return Value(itemOf(o).lineDiscount()); });
    // The legacy name of the price: it reads the price as the class answers it (a
    // summary's sum, a group's derived price) and a line writes it through the float step
    // of `setRate`. It shadows the document's stored hourly rate, which no item uses.
    entity.registerDerivedProperty(
        "rate", [](const ManagedObject& o) -> Value { return Value(itemOf(o).lineUnitPrice()); },
        [](ManagedObject& o, const Value& value) {
            auto* line = dynamic_cast<BLCost*>(&o);
            if (line == nullptr) {
                o.setValueForUndefinedKey(value, "rate");
            } else if (value.isNull()) {
                line->setUnitPrice(std::nullopt);
            } else {
                line->setRate(value.toDecimal().toFloat());
            }
        });
    entity.registerDerivedProperty("taxes",
                                   [](const ManagedObject& o) -> Value { return Value(itemOf(o).lineTaxes()); });
    entity.registerDerivedProperty("costForPage",
                                   [](const ManagedObject& o) -> Value { return Value(itemOf(o).costForPage()); });
    entity.registerDerivedProperty("isOptional",
                                   [](const ManagedObject& o) -> Value { return Value(itemOf(o).isOptional()); });
    entity.registerDerivedProperty("fullIndex",
                                   [](const ManagedObject& o) -> Value { return Value(itemOf(o).fullIndex()); });
    entity.registerDerivedProperty("sum", [](const ManagedObject& o) -> Value { return Value(itemOf(o).sum()); });
    entity.registerDerivedProperty(
        "affectedItems", [](const ManagedObject& o) -> Value { return objectListValue(itemOf(o).affectedItems()); });
    entity.registerDerivedProperty("isLeaf", [](const ManagedObject& o) -> Value { return Value(itemOf(o).isLeaf()); });
    entity.registerDerivedProperty("itemIsChildOfSummary", [](const ManagedObject& o) -> Value {
        return Value(itemOf(o).itemIsChildOfSummary());
    });
    // The metric amounts that the overview and charts sum over lines.
    entity.registerDerivedProperty("ratioForMetrics",
                                   [](const ManagedObject& o) -> Value { return Value(itemOf(o).ratioForMetrics()); });
    entity.registerDerivedProperty("amountForMetrics",
                                   [](const ManagedObject& o) -> Value { return Value(itemOf(o).amountForMetrics()); });
    entity.registerDerivedProperty(
        "netAmountForMetrics", [](const ManagedObject& o) -> Value { return Value(itemOf(o).netAmountForMetrics()); });
    entity.registerDerivedProperty("grossAmountForMetrics", [](const ManagedObject& o) -> Value {
        return Value(itemOf(o).grossAmountForMetrics());
    });
    entity.registerDerivedProperty("finalRate",
                                   [](const ManagedObject& o) -> Value { return Value(itemOf(o).finalRate()); });
    entity.registerDerivedProperty("costInNativeCurrency", [](const ManagedObject& o) -> Value {
        return Value(itemOf(o).costInNativeCurrency());
    });
}

void BLItem::resetCaches() {
    BLDocument::resetCaches();
    std::unordered_set<const BLContainer*> visited{this};
    for (BLContainer* current = parent(); current != nullptr && visited.insert(current).second;
         current = current->parent()) {
        if (!current->isKindOfEntity("Item")) {
            current->resetCaches();
            break;
        }
        current->BLBase::resetCaches();
    }
}

bool BLItem::itemIsTitle(const BLContainer* item) {
    return hasEntity(item, "Title") || hasEntity(item, "Option");
}

bool BLItem::itemIsSectionEnd(const BLContainer* item) {
    return hasEntity(item, "SectionEnd");
}

bool BLItem::itemIsContainer(const BLContainer* item) {
    return hasEntity(item, "Group") || hasEntity(item, "SummaryCost");
}

bool BLItem::itemIsCost(const BLContainer* item) {
    return hasEntity(item, "Cost") || itemIsContainer(item) || hasEntity(item, "DynamicCost");
}

bool BLItem::itemIsOptional(const BLContainer* item) {
    if (item == nullptr || item->parent() == nullptr) {
        return false;
    }
    bool optional = false;
    for (BLContainer* sibling : item->parent()->childsArray()) {
        if (hasEntity(sibling, "Option")) {
            optional = true;
        } else if (hasEntity(sibling, "Title")) {
            optional = false;
        }
        if (sibling == item) {
            return optional;
        }
    }
    return false;
}

bool BLItem::itemIsChildOfSummary() const {
    return hasEntity(parent(), "SummaryCost");
}

std::vector<BLContainer*> BLItem::parentChildren() const {
    return parent() != nullptr ? parent()->childsArray() : std::vector<BLContainer*>{};
}

const BLCurrency* BLItem::documentCurrency() const {
    const BLSendable* owner = sendable();
    return owner != nullptr ? owner->currency() : nullptr;
}

Decimal BLItem::documentDiscountFraction() const {
    const BLSendable* owner = sendable();
    return owner != nullptr ? owner->discountFraction() : Decimal::one();
}

bool BLItem::documentUsesGrossPrices() const {
    const BLSendable* owner = sendable();
    return owner != nullptr && owner->useGrossPricesValue();
}

Decimal BLItem::net() {
    if (sendable() == nullptr) {
        return cost();
    }
    Decimal value = cost() * documentDiscountFraction();
    return documentUsesGrossPrices() ? value - lineTaxes() : value;
}

Decimal BLItem::gross() {
    if (sendable() == nullptr) {
        return cost();
    }
    Decimal value = cost() * documentDiscountFraction();
    return documentUsesGrossPrices() ? value : value + lineTaxes();
}

Decimal BLItem::costForPage() {
    return isOptional() ? Decimal() : cost();
}

Decimal BLItem::sum() {
    Decimal total;
    for (BLItem* item : affectedItems()) {
        total += item->cost().validNumber();
    }
    return total;
}

int64_t BLItem::indexForDocument(const BLContainer* container) const {
    if (container == nullptr) {
        return 0;
    }
    int64_t index = 0;
    for (BLContainer* child : container->childsArray()) {
        if (!itemIsCost(child)) {
            continue;
        }
        ++index;
        if (child == this) {
            return index;
        }
    }
    return 0;
}

std::string BLItem::fullIndex() const {
    return fullIndexForDocument(sendable());
}

std::string BLItem::fullIndexForDocument(const BLContainer* document) const {
    if (document == nullptr) {
        return "";
    }
    if (itemIsChildOfSummary()) {
        auto* summary = static_cast<const BLItem*>(parent());
        int64_t index = indexForDocument(summary);
        return summary->fullIndexForDocument(document) + "." + std::to_string(index);
    }
    std::vector<BLContainer*> items = document->childsArray();
    bool hasTitle = false;
    for (BLContainer* item : items) {
        hasTitle = hasTitle || itemIsTitle(item);
    }
    if (!hasTitle) {
        if (!itemIsCost(this)) {
            return "";
        }
        int64_t index = indexForDocument(document);
        return index > 0 ? std::to_string(index) : "";
    }
    int64_t major = 0;
    int64_t minor = 0;
    bool flat = items.empty() || !itemIsTitle(items.front());
    bool ended = false;
    for (BLContainer* item : items) {
        std::string number;
        if (itemIsTitle(item)) {
            ++major;
            number = std::to_string(major);
            flat = false;
            ended = false;
            minor = 0;
        } else if (itemIsSectionEnd(item)) {
            ended = true;
        } else if (itemIsCost(item)) {
            ++minor;
            if (flat || ended) {
                ++major;
            }
            if (ended) {
                number = std::to_string(major);
            } else if (flat) {
                number = std::to_string(minor);
            } else {
                number = std::to_string(major) + "." + std::to_string(minor);
            }
        } else if (hasEntity(item, "SubTotal")) {
            number = std::to_string(major);
        }
        if (item == this) {
            return number;
        }
    }
    return "";
}

void BLItem::convertFromCurrency(const BLCurrency* from, const BLCurrency* to) {
    for (BLItem* child : itemChildren(*this)) {
        child->convertFromCurrency(from, to);
    }
}

}  // namespace brassline
