#include "lifecycle/SendableRules.h"

#include <string>
#include <vector>

#include "core/Log.h"
#include "lifecycle/FilingCopy.h"
#include "model/FetchRequest.h"
#include "model/ManagedObjectContext.h"
#include "model/entities/BLClient.h"
#include "model/entities/BLPaymentType.h"
#include "model/entities/BLSendable.h"
#include "model/entities/ModelHooks.h"

namespace brassline {

namespace {

constexpr const char* kEstimatePaymentType = "BLEstimate";

std::vector<BLPaymentType*> fetchPaymentTypes(ManagedObjectContext& context, const char* format,
                                              const std::vector<Value>& arguments) {
    FetchRequest request("PaymentType");
    std::string error;
    if (!request.setPredicateFormat(format, arguments, &error)) {
        logMessage("Payment type fetch refused: %@", error);
        return {};
    }
    std::vector<BLPaymentType*> result;
    if (std::optional<std::vector<ManagedObject*>> found = context.executeFetchRequest(request)) {
        for (ManagedObject* object : *found) {
            if (auto* type = dynamic_cast<BLPaymentType*>(object)) {
                result.push_back(type);
            }
        }
    }
    return result;
}

bool hasType(const BLPaymentType* paymentType) {
    return paymentType != nullptr && !paymentType->type().value_or("").empty();
}

}  // namespace

BLPaymentType* migratedPaymentTypeForDocument(BLSendable& sendable) {
    ManagedObjectContext* context = sendable.managedObjectContext();
    if (context == nullptr) {
        return nullptr;
    }
    std::vector<BLPaymentType*> typed = fetchPaymentTypes(*context, "type == %@", {Value(kEstimatePaymentType)});
    for (BLPaymentType* candidate : typed) {
        if (candidate->isDefaultValue()) {
            return candidate;
        }
    }
    return typed.empty() ? nullptr : typed.front();
}

void updatePaymentType(BLSendable& sendable) {
    ManagedObjectContext* context = sendable.managedObjectContext();
    if (context == nullptr || !context->isMainContext()) {
        return;
    }
    BLPaymentType* current = sendable.paymentType();
    if (sendable.isKindOfEntity("Estimate")) {
        if (current != nullptr && current->type().value_or("") == kEstimatePaymentType) {
            return;
        }
        if (BLPaymentType* validity = migratedPaymentTypeForDocument(sendable)) {
            sendable.setPaymentType(validity);
        }
        return;
    }
    if (!sendable.isKindOfEntity("Invoice") || !hasType(current)) {
        return;
    }
    BLPaymentType* replacement = nullptr;
    if (BLClient* client = sendable.client()) {
        replacement = client->paymentType();
    }
    if (replacement == nullptr) {
        // "type LIKE NULL AND isDefault == 1": the untyped test is made here, where an
        // empty text counts as no type as well.
        for (BLPaymentType* candidate : fetchPaymentTypes(*context, "isDefault == 1", {})) {
            if (!hasType(candidate)) {
                replacement = candidate;
                break;
            }
        }
    }
    if (replacement != nullptr) {
        sendable.setPaymentType(replacement);
    }
}

void installSendableHooks() {
    ModelHooks& hooks = modelHooks();
    hooks.updatePaymentType = [](BLSendable& sendable) { updatePaymentType(sendable); };
    hooks.writeDocument = [](BLSendable& sendable, bool overwrite) {
        FilingResult result = writeDocument(sendable, overwrite);
        if (result.outcome == FilingResult::Outcome::Failed) {
            logMessage("Filing copy of %@ failed: %@", sendable.uid().value_or(""), result.message);
        }
    };
}

}  // namespace brassline
