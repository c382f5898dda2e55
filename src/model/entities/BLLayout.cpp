#include "model/entities/BLLayout.h"

#include "model/entities/BLLayoutStorage.h"

namespace brassline {

void BLLayout::awakeFromCreate() {
    gen::BLLayout::awakeFromCreate();
    nameUntitledIfNameless();
}

BLBase* BLLayout::clone() {
    auto* copy = static_cast<BLLayout*>(cloneWithEntityReplacements(
        {}, {"documents", "estimateDocuments", "followUps", "statementDocuments", "storage"}));
    if (copy != nullptr && storage() != nullptr) {
        if (auto* storageCopy = static_cast<BLLayoutStorage*>(storage()->cloneWithEntityReplacements({}, {"layout"}))) {
            copy->setStorage(storageCopy);
        }
    }
    return copy;
}

}  // namespace brassline
