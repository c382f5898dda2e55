#include "model/entities/BLSubTotal.h"

#include "core/ValueTransformers.h"
#include "model/entities/BLTitle.h"

namespace brassline {

void BLSubTotal::setupClass(EntityDescription& entity) {
    entity.registerDerivedProperty("titleItem", [](const ManagedObject& o) -> Value {
        return Value(static_cast<Object*>(static_cast<const BLSubTotal&>(o).titleItem()));
    });
    entity.registerDerivedProperty("quantityString", [](const ManagedObject& o) -> Value {
        return Value(const_cast<BLSubTotal&>(static_cast<const BLSubTotal&>(o)).quantityString());
    });
}

std::string BLSubTotal::quantityString() {
    Decimal quantity;
    for (BLItem* item : affectedItems()) {
        item->collectQuantity(quantity);
    }
    // A fraction alone (0.5 of something) is no count worth printing under a section.
    if (quantity.absoluteNumber() < Decimal::one()) {
        return "";
    }
    return NumberTransformer(NumberStyle::Short).format(quantity);
}

std::vector<BLItem*> BLSubTotal::affectedItems() {
    std::vector<BLItem*> items;
    for (BLContainer* sibling : parentChildren()) {
        if (sibling == this) {
            break;
        }
        if (sibling->entityName() == "SubTotal" || sibling->entityName() == "Option") {
            items.clear();
            continue;
        }
        if (sibling->isKindOfEntity("Item")) {
            items.push_back(static_cast<BLItem*>(sibling));
        }
    }
    return items;
}

BLTitle* BLSubTotal::titleItem() const {
    BLTitle* title = nullptr;
    for (BLContainer* sibling : parentChildren()) {
        if (sibling == this) {
            break;
        }
        if (sibling->entityName() == "Title") {
            title = static_cast<BLTitle*>(sibling);
        }
    }
    return title;
}

Decimal BLSubTotal::sum() {
    Decimal total;
    bool inOption = false;
    for (BLContainer* sibling : parentChildren()) {
        if (sibling == this) {
            break;
        }
        const std::string& entity = sibling->entityName();
        if (entity == "Option") {
            inOption = true;
            continue;
        }
        if (inOption) {
            // Only a plain title closes an option section; it then counts like any item.
            if (entity != "Title") {
                continue;
            }
            inOption = false;
        }
        if (entity == "SubTotal") {
            total = Decimal();
            continue;
        }
        if (sibling->isKindOfEntity("Item")) {
            total += static_cast<BLItem*>(sibling)->cost().validNumber();
        }
    }
    return total;
}

}  // namespace brassline
