#include "model/entities/BLSummaryCost.h"

namespace brassline {

void BLSummaryCost::awakeFromCreate() {
    BLCost::awakeFromCreate();
    setPrimitiveSubtotal(true);
    setPrimitiveDisplayType(int16_t{1});
}

}  // namespace brassline
