#include "model/entities/BLCustomField.h"

namespace brassline {

void BLCustomField::awakeFromCreate() {
    gen::BLCustomField::awakeFromCreate();
    nameUntitledIfNameless();
}

}  // namespace brassline
