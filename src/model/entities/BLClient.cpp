#include "model/entities/BLClient.h"

#include <functional>

#include "core/Log.h"
#include "core/ValueTransformers.h"
#include "model/ManagedObjectContext.h"
#include "model/entities/BLClientGroup.h"
#include "model/entities/BLCurrency.h"
#include "model/entities/BLInvoice.h"
#include "model/entities/BLLanguage.h"
#include "model/entities/BLPaymentType.h"
#include "model/entities/BLPreference.h"
#include "model/entities/BLProfile.h"
#include "model/entities/BLSendable.h"
#include "model/entities/ContactStrings.h"
#include "model/entities/ModelHooks.h"
#include "model/entities/ModelStrings.h"

namespace brassline {

namespace {

// Amounts as the number transformer shows them: grouped, two fraction digits, in the
// display locale.
std::string amountText(const Decimal& amount) {
    static const NumberTransformer transformer(NumberStyle::Grouped, 2);
    return transformer.format(amount);
}

}  // namespace

void BLClient::setupClass(EntityDescription& entity) {
    entity.registerDerivedProperty("balance", [](const ManagedObject& object) -> Value {
        return Value(static_cast<const BLClient&>(object).balance());
    });
    entity.registerDerivedProperty("hasOpen", [](const ManagedObject& object) -> Value {
        return Value(static_cast<const BLClient&>(object).hasOpen());
    });
    entity.registerDerivedProperty("openAmount", [](const ManagedObject& object) -> Value {
        std::optional<Decimal> amount = static_cast<const BLClient&>(object).openAmount();
        return amount ? Value(*amount) : Value();
    });
}

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
    if (!clientID()) {
        createNumber();
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

std::optional<std::string> BLClient::createNumber() {
    if (std::optional<std::string> own = clientID()) {
        return own;
    }
    if (!modelHooks().createClientNumber) {
        logMessage(kNoClientNumberMessage);
        return std::nullopt;
    }
    // The numbering evaluates the pattern, advances the counter through incrementNumber
    // and searches past taken numbers; it may store the number itself.
    std::optional<std::string> number = modelHooks().createClientNumber(*this);
    if (!number || number->empty()) {
        return std::nullopt;
    }
    if (!clientID()) {
        setClientID(*number);
    }
    return clientID();
}

void BLClient::incrementNumber() {
    ManagedObjectContext* context = managedObjectContext();
    if (context == nullptr) {
        return;
    }
    const int64_t current = BLPreference::preferenceValue(*context, kPrefClientNumber).toInt64();
    auto* preference = static_cast<BLPreference*>(BLBase::insertInManagedObjectContext(
        *context, "Preference", std::string(kPreferenceUIDPrefix) + kPrefClientNumber));
    if (preference != nullptr) {
        preference->setPayload(Value(current + 1));
    }
}

namespace {

// Hands the question to each sendable below `document`; documents of other kinds (a
// project, say) only pass it on.
void collectFromSendables(const BLDocument& document, const std::function<void(BLSendable&)>& collect) {
    for (BLDocument* below : document.documents()) {
        if (auto* sendable = dynamic_cast<BLSendable*>(below)) {
            collect(*sendable);
        } else {
            collectFromSendables(*below, collect);
        }
    }
}

}  // namespace

std::map<std::string, Decimal> BLClient::collectBalance() const {
    std::map<std::string, Decimal> sums;
    collectFromSendables(*this, [&sums](BLSendable& sendable) { sendable.collectBalance(sums); });
    return sums;
}

std::string BLClient::balance() const {
    std::string text;
    for (const auto& [code, amount] : collectBalance()) {
        // The float test is the one every "is it zero" decision takes.
        if (amount.isZeroAsFloat()) {
            continue;
        }
        if (!text.empty()) {
            text += ", ";
        }
        text += code + " " + amountText(amount);
    }
    return text;
}

std::optional<Decimal> BLClient::openAmount() const {
    std::map<std::string, Decimal> sums;
    collectFromSendables(*this, [&sums](BLSendable& sendable) { sendable.collectBalanceInNativeCurrency(sums); });
    auto value = sums.find("value");
    if (value == sums.end()) {
        return std::nullopt;
    }
    return value->second;
}

void BLClient::setAddressAsDefault() {
    for (BLContainer* child : childs()) {
        if (auto* contact = dynamic_cast<BLContact*>(child)) {
            contact->setAddress(address());
            contact->setCity(city());
            contact->setZip(zip());
        }
    }
}

std::vector<std::string> BLClient::allowedDocuments() const {
    return {"BLPayment", "BLInvoice", "BLEstimate", "BLProject", "BLExternalFile", "BLExternalFileGroup"};
}

}  // namespace brassline
