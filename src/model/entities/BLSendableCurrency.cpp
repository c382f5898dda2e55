// The change of a document's currency: its lines move with it.
#include "model/ManagedObjectContext.h"
#include "model/UndoManager.h"
#include "model/entities/BLItem.h"
#include "model/entities/BLSendable.h"

namespace brassline {

void BLSendable::setCurrency(brassline::BLCurrency* value) {
    BLCurrency* old = currency();
    if (isSyncing() || value == nullptr || value == old) {
        gen::BLSendable::setCurrency(value);
        return;
    }
    // The currency and every re-priced line undo together: undoing only the currency
    // would leave prices converted into a currency the document no longer has.
    ManagedObjectContext* context = managedObjectContext();
    UndoManager* undo = context != nullptr ? context->undoManager() : nullptr;
    if (undo != nullptr) {
        undo->beginUndoGrouping();
    }
    gen::BLSendable::setCurrency(value);
    for (BLItem* item : itemChildren(*this)) {
        item->convertFromCurrency(old, value);
    }
    resetCaches();
    for (const char* key : {"cost", "canPay", "balance", "statusImage", "tableInfo"}) {
        notifyParentsForKey(key);
    }
    if (undo != nullptr) {
        undo->endUndoGrouping();
    }
}

}  // namespace brassline
