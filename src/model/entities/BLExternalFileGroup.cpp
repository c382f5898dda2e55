#include "model/entities/BLExternalFileGroup.h"

namespace brassline {

void BLExternalFileGroup::awakeFromCreate() {
    gen::BLExternalFileGroup::awakeFromCreate();
    nameUntitledIfNameless();
    if (!isSyncing()) {
        setDateCreation(Date::now());
    }
}

}  // namespace brassline
