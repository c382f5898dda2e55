#include "model/entities/BLPartialInvoice.h"

#include "model/entities/ModelHooks.h"

namespace brassline {

BLBase* BLPartialInvoice::duplicate() {
    BLBase* copy = BLInvoice::duplicate();
    if (modelHooks().updatePartialInvoices) {
        modelHooks().updatePartialInvoices(*this);
    }
    return copy;
}

}  // namespace brassline
