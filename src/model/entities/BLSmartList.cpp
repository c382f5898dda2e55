#include "model/entities/BLSmartList.h"

namespace brassline {

void BLSmartList::awakeFromCreate() {
    gen::BLSmartList::awakeFromCreate();
    nameUntitledIfNameless();
}

}  // namespace brassline
