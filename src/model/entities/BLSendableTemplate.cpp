#include "model/entities/BLSendableTemplate.h"

#include "model/entities/ModelHooks.h"

namespace brassline {

void BLSendableTemplate::willBeCloned() {
    if (modelHooks().updateFromCatalogItemsIfNeeded) {
        modelHooks().updateFromCatalogItemsIfNeeded(*this);
    }
}

}  // namespace brassline
