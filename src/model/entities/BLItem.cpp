#include "model/entities/BLItem.h"

#include <unordered_set>

namespace brassline {

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

}  // namespace brassline
