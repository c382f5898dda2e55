#include "model/entities/BLCatalogItem.h"

#include "model/ManagedObjectContext.h"
#include "model/entities/BLCurrency.h"
#include "model/entities/BLItemGroup.h"
#include "model/entities/ModelHooks.h"

namespace brassline {

void BLCatalogItem::setup() {
    if (weight() && *weight() == Decimal()) {
        setWeight(std::nullopt);
    }
    if (ManagedObjectContext* context = managedObjectContext()) {
        if (currency() == nullptr) {
            setCurrency(defaultItemForContext<BLCurrency>(*context));
        }
        if (itemGroup() == nullptr) {
            setItemGroup(defaultItemForContext<BLItemGroup>(*context));
        }
    }
    if (!unitPrice()) {
        setUnitPrice(Decimal());
    }
    if (!unitPriceGross()) {
        setUnitPriceGross(Decimal());
    }
}

void BLCatalogItem::awakeFromFetch() {
    gen::BLCatalogItem::awakeFromFetch();
    setup();
    if (modelHooks().setupUnitPriceGross) {
        modelHooks().setupUnitPriceGross(*this);
    }
}

}  // namespace brassline
