#include "lifecycle/Conditions.h"

#include "core/Log.h"
#include "lifecycle/DocumentTexts.h"
#include "lifecycle/Numbering.h"
#include "model/entities/BLClient.h"
#include "model/entities/BLFollowUp.h"
#include "model/entities/BLFollowUpType.h"
#include "model/entities/BLPaymentType.h"
#include "model/entities/BLSendable.h"

namespace brassline {

namespace {

const Bytes* termsOf(BLSendable& document) {
    if (auto* followUp = dynamic_cast<BLFollowUp*>(&document)) {
        // A letter states its type's closing text, not a payment type's.
        BLFollowUpType* type = followUp->followUpType();
        return type != nullptr ? type->conditions() : nullptr;
    }
    BLPaymentType* paymentType = document.paymentType();
    if (paymentType == nullptr && document.client() != nullptr) {
        paymentType = document.client()->paymentType();
    }
    return paymentType != nullptr ? paymentType->conditions() : nullptr;
}

// The document key a plain field of the terms reads.
std::string keyForField(const std::string& field) {
    if (field == "amountdue") {
        return "balance";
    }
    if (field == "name") {
        return "number";
    }
    return field;
}

}  // namespace

std::string conditionStringWithDictionary(BLSendable& document, const SubstitutionDictionary& soFar) {
    const Bytes* archived = termsOf(document);
    ManagedObjectContext* context = document.managedObjectContext();
    if (archived == nullptr || context == nullptr) {
        return {};
    }
    std::string error;
    std::optional<NumberPattern> terms = patternFromValue(Value(*archived), &error);
    if (!terms) {
        logMessage("The terms of %@ don't read: %@", document.displayName(), error);
        return {};
    }
    Numbering numbering(*context);
    std::optional<SubstitutionDictionary> own;
    std::string text;
    for (const PatternElement& element : *terms) {
        if (!element.isToken) {
            text += fillTags(element.text, soFar);
            continue;
        }
        if (element.option) {
            const NumberPattern single{element};
            text += numbering.transformedValue(&single, &document).value_or("");
            continue;
        }
        if (!own) {
            own = internalSubstitutionDictionary(document);
        }
        auto found = own->find(keyForField(element.field));
        if (found != own->end()) {
            text += found->second.toString();
        }
    }
    return text;
}

std::string originalConditionsString(BLSendable& document) {
    auto* original = dynamic_cast<BLSendable*>(document.parentDocument());
    if (original == nullptr) {
        return {};
    }
    // The terms as the parent prints them, tags filled from the parent's own keys.
    SubstitutionDictionary parent = substitutionDictionary(*original);
    auto found = parent.find("document.conditions");
    return found != parent.end() ? found->second.toString() : std::string();
}

}  // namespace brassline
