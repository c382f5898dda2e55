#include "model/entities/BLClient.h"

#include "model/ManagedObjectContext.h"
#include "model/entities/BLClientGroup.h"
#include "model/entities/BLCurrency.h"
#include "model/entities/BLLanguage.h"
#include "model/entities/BLPaymentType.h"
#include "model/entities/BLPreference.h"
#include "model/entities/BLProfile.h"
#include "model/entities/ModelHooks.h"
#include "model/entities/ModelStrings.h"

namespace brassline {

void BLClient::setup() {
    ManagedObjectContext* context = managedObjectContext();
    if (context == nullptr) {
        return;
    }
    if (paymentType() == nullptr) {
        setPaymentType(defaultItemForContext<BLPaymentType>(*context));
    }
    Value gross = BLPreference::preferenceValue(*context, kPrefDefaultUseGrossPrices);
    if (!gross.isNull()) {
        setUseGrossPrices(gross.toBool());
    }
    BLProfile* profile = defaultItemForContext<BLProfile>(*context);
    if (!countryCode() && profile != nullptr) {
        setCountryCode(profile->countryCode());
    }
    if (currency() == nullptr) {
        setCurrency(defaultItemForContext<BLCurrency>(*context));
    }
    if (clientGroup() == nullptr) {
        setClientGroup(defaultItemForContext<BLClientGroup>(*context));
    }
    if (profile != nullptr) {
        if (layout() == nullptr) {
            setLayout(profile->layout());
        }
        if (estimateLayout() == nullptr) {
            setEstimateLayout(profile->estimateLayout());
        }
        if (statementLayout() == nullptr) {
            setStatementLayout(profile->statementLayout());
        }
    }
    Value interval = BLPreference::preferenceValue(*context, kPrefInvoicePayInterval);
    if (!interval.isNull()) {
        setPayInterval(static_cast<int16_t>(interval.toInt64()));
    }
    if (!clientID() && modelHooks().createClientNumber) {
        modelHooks().createClientNumber(*this);
    }
    if (!dateCreation()) {
        setDateCreation(Date::now());
    }
    if (language() == nullptr) {
        setLanguage(defaultItemForContext<BLLanguage>(*context));
    }
    if (!sendPluginIdentifier() && profile != nullptr) {
        setSendPluginIdentifier(profile->sendPluginIdentifier());
    }
}

void BLClient::fixMissingValues() {
    BLBase::fixMissingValues();
    ManagedObjectContext* context = managedObjectContext();
    if (context == nullptr) {
        return;
    }
    if (clientGroup() == nullptr) {
        setClientGroup(defaultItemForContext<BLClientGroup>(*context));
    }
    if (!countryCode()) {
        if (BLProfile* profile = defaultItemForContext<BLProfile>(*context)) {
            setCountryCode(profile->countryCode());
        }
    }
    if (currency() == nullptr) {
        setCurrency(defaultItemForContext<BLCurrency>(*context));
    }
}

bool BLClient::canDelete() const {
    return documents().empty() && assignedDocuments().empty() && childs().empty();
}

std::vector<std::string> BLClient::allowedDocuments() const {
    return {"BLPayment", "BLInvoice", "BLEstimate", "BLProject", "BLExternalFile", "BLExternalFileGroup"};
}

}  // namespace brassline
