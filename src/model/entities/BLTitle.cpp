#include "model/entities/BLTitle.h"

namespace brassline {

int64_t BLTitle::duration() {
    int64_t seconds = 0;
    for (BLItem* item : affectedItems()) {
        item->collectDuration(seconds);
    }
    return seconds;
}

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
