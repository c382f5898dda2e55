#include "money/ItemHooks.h"

#include "model/entities/BLInvoice.h"
#include "model/entities/ModelHooks.h"

namespace brassline {

void installItemHooks() {
    // The balance is cached on the invoice; the hook's const view only stands in the way
    // of filling that cache.
    modelHooks().invoiceBalance = [](const BLInvoice& invoice) -> std::optional<Decimal> {
        return const_cast<BLInvoice&>(invoice).balance();
    };
}

}  // namespace brassline
