#include "model/entities/BLTitle.h"

namespace brassline {

std::vector<BLItem*> BLTitle::affectedItems() {
    std::vector<BLItem*> items;
    bool afterSelf = false;
    for (BLContainer* sibling : parentChildren()) {
        if (sibling == this) {
            afterSelf = true;
            continue;
        }
        if (!afterSelf || !sibling->isKindOfEntity("Item")) {
            continue;
        }
        if (itemIsTitle(sibling)) {
            break;
        }
        items.push_back(static_cast<BLItem*>(sibling));
        if (sibling->entityName() == "SubTotal") {
            break;
        }
    }
    return items;
}

}  // namespace brassline
