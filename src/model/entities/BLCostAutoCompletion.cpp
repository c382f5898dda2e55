// Completion of a line from the catalog or from another line, and the item group rule that
// keeps the lines of one container under one tax rule.
#include "model/NotificationCenter.h"
#include "model/entities/BLCatalogItem.h"
#include "model/entities/BLCost.h"
#include "model/entities/BLItemGroup.h"
#include "model/entities/BLSummaryCost.h"

namespace brassline {

namespace {

// The other line's price as this document states prices. Catalog items keep both prices;
// a line of another document carries its own document's mode, so only a change of mode
// moves the price, and then by the default client group's tax of its item group.
std::optional<Decimal> completedPrice(BLCost& line, BLCost& other) {
    const bool grossHere = line.documentUsesGrossPrices();
    if (other.entityName() == "CatalogItem") {
        return grossHere ? static_cast<BLCatalogItem&>(other).unitPriceGross() : other.unitPrice();
    }
    const bool grossThere = other.documentUsesGrossPrices();
    const BLItemGroup* group = other.itemGroup();
    if (group == nullptr || grossHere == grossThere) {
        return other.unitPrice();
    }
    return grossHere ? group->addDefaultTaxTo(other.unitPrice()) : group->subtractDefaultTaxFrom(other.unitPrice());
}

}  // namespace

void BLCost::takeAutoCompletionFrom(BLItem* other) {
    auto* origin = dynamic_cast<BLCost*>(other);
    if (origin == nullptr || origin == this) {
        return;
    }
    setName(origin->name());
    setNotes(origin->notes());
    setImage(origin->image());
    setUnitPrice(completedPrice(*this, *origin));
    setWeight(origin->weight());
    if (origin->entityName() == "CatalogItem") {
        if (std::optional<Decimal> quantity = static_cast<BLCatalogItem*>(origin)->defaultQuantity()) {
            setQuantity(quantity);
        }
        // The catalog item becomes the line's source so that updateFromSource and the
        // cost price can find it again; a line completed from a line keeps its source.
        if (catalogItem() != origin) {
            setSource(origin);
        }
    }
    setUnit(origin->unit());
    setItemGroup(origin->itemGroup());
    NotificationCenter::defaultCenter().postNotificationName(kDidAutoCompleteNotification, this);
}

bool BLCost::updateFromSource() {
    BLCatalogItem* item = catalogItem();
    if (item == nullptr || item == this) {
        return false;
    }
    takeAutoCompletionFrom(item);
    return true;
}

void BLCost::setUnit(std::optional<std::string> value) {
    gen::BLCost::setUnit(std::move(value));
    if (!isSyncing()) {
        updateRateIfNeeded();
    }
}

void BLCost::setItemGroup(brassline::BLItemGroup* value) {
    if (value == itemGroup()) {
        return;
    }
    gen::BLCost::setItemGroup(value);
    if (isSyncing()) {
        return;
    }
    updateTaxRule();
    BLContainer* container = parent();
    if (container == nullptr || !itemIsContainer(container)) {
        return;
    }
    // A group or summary is one line on one tax rule: the siblings follow through the
    // stored relationship, which doesn't start this walk again from each of them.
    for (BLItem* item : itemChildren(*container)) {
        auto* sibling = dynamic_cast<BLCost*>(item);
        if (sibling != nullptr && sibling != this && sibling->taxRule() != taxRule()) {
            sibling->gen::BLCost::setItemGroup(value);
            sibling->updateTaxRule();
        }
    }
    if (auto* owner = dynamic_cast<BLCost*>(container)) {
        owner->updateTaxRule();
    }
    container->resetCaches();
}

void BLSummaryCost::takeAutoCompletionFrom(BLItem* other) {
    BLCost::takeAutoCompletionFrom(other);
    auto* summary = dynamic_cast<BLSummaryCost*>(other);
    if (summary == nullptr || summary == this) {
        return;
    }
    setDisplayType(summary->displayType());
    setSubtotal(summary->subtotal());
    for (BLItem* child : itemChildren(*summary)) {
        auto* copy = dynamic_cast<BLItem*>(child->cloneWithEntityReplacements({}, {"parent"}));
        if (copy != nullptr) {
            copy->setParent(this);
        }
    }
    resetCaches();
}

void BLSummaryCost::setItemGroup(brassline::BLItemGroup* value) {
    if (value == itemGroup()) {
        return;
    }
    BLCost::setItemGroup(value);
    if (isSyncing()) {
        return;
    }
    std::vector<BLCost*> lines;
    for (BLItem* item : itemChildren(*this)) {
        if (auto* line = dynamic_cast<BLCost*>(item)) {
            lines.push_back(line);
        }
    }
    for (BLCost* line : lines) {
        if (line->taxRule() != taxRule()) {
            line->gen::BLCost::setItemGroup(value);
        }
    }
    for (BLCost* line : lines) {
        line->updateTaxRule();
    }
    updateTaxRule();
}

}  // namespace brassline
