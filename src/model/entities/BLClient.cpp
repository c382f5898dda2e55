#include "model/entities/BLClient.h"

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

std::string currencyCode(const BLCurrency* currency) {
    return currency != nullptr ? currency->code().value_or(std::string()) : std::string();
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

std::map<std::string, Decimal> BLClient::collectBalance() const {
    std::map<std::string, Decimal> sums;
    if (!modelHooks().invoiceBalance) {
        return sums;
    }
    for (BLDocument* document : collectDocumentsWithEntityName("Invoice")) {
        auto* invoice = static_cast<BLInvoice*>(document);
        std::optional<Decimal> open = modelHooks().invoiceBalance(*invoice);
        if (!open) {
            continue;
        }
        const BLCurrency* currency = invoice->currency() != nullptr ? invoice->currency() : this->currency();
        sums[currencyCode(currency)] += *open;
    }
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
    std::map<std::string, Decimal> sums = collectBalance();
    if (sums.empty()) {
        return std::nullopt;
    }
    ManagedObjectContext* context = managedObjectContext();
    const BLCurrency* native = context != nullptr ? BLCurrency::defaultItemForContext(*context) : nullptr;
    const std::string nativeCode = currencyCode(native);
    Decimal total;
    for (const auto& [code, amount] : sums) {
        if (code.empty() || code == nativeCode) {
            total += amount;
        } else if (!amount.isZeroAsFloat()) {
            logMessage("Open amount of %@ needs a rate for %@", displayName(), code);
            return std::nullopt;
        }
    }
    return total;
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
