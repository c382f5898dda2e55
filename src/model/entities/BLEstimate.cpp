#include "model/entities/BLEstimate.h"

#include "model/ManagedObjectContext.h"
#include "model/entities/BLClient.h"
#include "model/entities/BLInvoice.h"
#include "model/entities/BLItem.h"
#include "model/entities/BLLayout.h"
#include "model/entities/BLPreference.h"
#include "model/entities/BLProfile.h"
#include "model/entities/ModelHooks.h"
#include "model/entities/ModelStrings.h"

namespace brassline {

void BLEstimate::setup() {
    BLSendable::setup();
    if (layout() == nullptr) {
        BLLayout* fromClient = client() != nullptr ? client()->estimateLayout() : nullptr;
        if (fromClient == nullptr && managedObjectContext() != nullptr) {
            if (BLProfile* profile = defaultItemForContext<BLProfile>(*managedObjectContext())) {
                fromClient = profile->estimateLayout();
            }
        }
        setLayout(fromClient);
    }
    if (modelHooks().fixMissingLayout) {
        modelHooks().fixMissingLayout(*this);
    }
}

void BLEstimate::setParentDocument(brassline::BLDocument* value) {
    BLSendable::setParentDocument(value);
    if (isSyncing() || dateSent()) {
        return;
    }
    if (BLClient* owner = client()) {
        setLayout(owner->estimateLayout());
    }
    if (ManagedObjectContext* context = managedObjectContext()) {
        Value validity = BLPreference::preferenceValue(*context, kPrefEstimateValidity);
        if (!validity.isNull()) {
            setPayInterval(static_cast<int16_t>(validity.toInt64()));
        }
    }
}

BLBase* BLEstimate::duplicate() {
    return duplicateAsDraft({"documents", "name", "storage", "parentDocument", "dateSent", "dateSent"});
}

bool BLEstimate::allowsDocuments(const std::vector<BLDocument*>& candidates) const {
    return BLDocument::allowsDocuments(candidates) || sendableAcceptsFollowUpOfProject(candidates);
}

}  // namespace brassline

namespace brassline {

std::vector<BLItem*> BLEstimate::nonOptionItems() const {
    std::vector<BLItem*> items;
    bool inOption = false;
    for (BLItem* item : itemChildren(*this)) {
        if (item->entityName() == "Option") {
            inOption = true;
        } else if (item->entityName() == "Title") {
            inOption = false;
        }
        if (!inOption && !BLItem::itemIsTitle(item)) {
            items.push_back(item);
        }
    }
    return items;
}

// State and words.

std::string BLEstimate::statusImage() {
    const int16_t mark = state();
    return mark == 0 ? "" : mark == 1 ? "completed" : "cancelled";
}

int16_t BLEstimate::state() const {
    const int16_t stored = completeModeValue();
    return stored == -1 ? int16_t{2} : stored;
}

void BLEstimate::setCompleteMode(std::optional<int16_t> value) {
    gen::BLEstimate::setCompleteMode(value);
    resetCaches();
}

std::string BLEstimate::label() {
    return preferredLabel("estimate.label", "estimate");
}

std::string BLEstimate::statusKey(bool /*forDisplay*/) {
    if (state() == 2) {
        return "declined";
    }
    if (state() == 1) {
        return "accepted";
    }
    return dateSent() ? "sent" : "draft";
}

}  // namespace brassline
