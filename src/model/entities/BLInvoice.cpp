#include "model/entities/BLInvoice.h"

#include "model/ManagedObjectContext.h"
#include "model/entities/BLClient.h"
#include "model/entities/BLCurrency.h"
#include "model/entities/BLLayout.h"
#include "model/entities/BLProfile.h"
#include "model/entities/ModelHooks.h"

namespace brassline {

bool sendableAcceptsFollowUpOfProject(const std::vector<BLDocument*>& candidates) {
    if (candidates.empty()) {
        return false;
    }
    for (const BLDocument* candidate : candidates) {
        if (candidate == nullptr || candidate->entityName() != "FollowUp" || candidate->parentDocument() == nullptr ||
            !candidate->parentDocument()->isKindOfEntity("Project")) {
            return false;
        }
    }
    return true;
}

void BLInvoice::awakeFromCreate() {
    gen::BLInvoice::awakeFromCreate();
    if (isSyncing()) {
        return;
    }
    if (recurringIntervalValue() == 0) {
        setPrimitiveRecurringInterval(int16_t{1});
    }
    if (recurringModeValue() == 0) {
        setPrimitiveRecurringMode(int16_t{3});
    }
}

void BLInvoice::setup() {
    BLSendable::setup();
    if (layout() == nullptr) {
        BLLayout* fromClient = client() != nullptr ? client()->layout() : nullptr;
        if (fromClient == nullptr && managedObjectContext() != nullptr) {
            if (BLProfile* profile = defaultItemForContext<BLProfile>(*managedObjectContext())) {
                fromClient = profile->layout();
            }
        }
        setLayout(fromClient);
    }
    if (modelHooks().fixMissingLayout) {
        modelHooks().fixMissingLayout(*this);
    }
}

BLBase* BLInvoice::duplicate() {
    return duplicateAsDraft({"documents", "name", "storage", "parentDocument", "dateSent"});
}

std::vector<std::string> BLInvoice::allowedDocuments() const {
    std::vector<std::string> allowed = {"BLExternalFile", "BLExternalFileGroup"};
    // Payments only while money is open; with no balance known there is nothing to pay.
    if (modelHooks().invoiceBalance) {
        std::optional<Decimal> balance = modelHooks().invoiceBalance(*this);
        if (balance && *balance > Decimal()) {
            allowed.emplace_back("BLPayment");
        }
    }
    return allowed;
}

bool BLInvoice::allowsDocuments(const std::vector<BLDocument*>& candidates) const {
    for (const BLDocument* candidate : candidates) {
        if (candidate != nullptr && candidate->currency() != nullptr && candidate->currency() != currency()) {
            return false;
        }
    }
    return BLDocument::allowsDocuments(candidates) || sendableAcceptsFollowUpOfProject(candidates);
}

}  // namespace brassline
