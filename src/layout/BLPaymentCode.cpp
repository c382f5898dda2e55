#include "layout/BLPaymentCode.h"

#include <algorithm>
#include <fstream>
#include <iterator>

#include "core/Log.h"
#include "layout/BLLinkPaymentCodes.h"
#include "layout/BLOCRBPaymentCode.h"
#include "layout/BLSEPAPaymentCode.h"
#include "layout/BLSwissPaymentCode.h"
#include "layout/PaymentText.h"
#include "model/entities/BLClient.h"
#include "model/entities/BLSendable.h"
#include "store/BLSetupDefaultsController.h"

namespace brassline {

namespace {

constexpr const char* kParameterNameKey = "parameterName";
constexpr const char* kKeyKey = "key";
constexpr const char* kValueKey = "value";

struct ElementClass {
    const char* name;
    PaymentCodeKind kind;
};

constexpr ElementClass kElementClasses[] = {
    {"BLLayoutQRCodeView", PaymentCodeKind::BezahlCode}, {"BLLayoutSEPAQRCodeView", PaymentCodeKind::EPC},
    {"BLLayoutESRQRCodeView", PaymentCodeKind::Swiss},   {"BLLayoutStripeQRCodeView", PaymentCodeKind::Stripe},
    {"BLLayoutPayPalView", PaymentCodeKind::PayPal},     {"BLLayoutOCRBView", PaymentCodeKind::OCRB},
    {"BLLayoutESRCostView", PaymentCodeKind::ESRCost},
};

bool hasKey(const Value& record) {
    const Value& key = record[kKeyKey];
    return key.string() != nullptr && !key.string()->empty();
}

// A client pays by direct debit when its IBAN, mandate id and mandate date are all set.
bool usesSEPADirectDebit(const BLContact& client) {
    auto filled = [](const std::optional<std::string>& text) { return text && !text->empty(); };
    return filled(client.iban()) && filled(client.sepaMandateID()) && client.sepaMandateDate().has_value();
}

// The largest amount that the EPC and Swiss standards let a payment request carry.
const Decimal& maximumAmount() {
    static const Decimal maximum = *Decimal::parse("999999999.99");
    return maximum;
}

}  // namespace

std::unique_ptr<BLPaymentCode> BLPaymentCode::forElementClass(std::string_view className) {
    for (const ElementClass& entry : kElementClasses) {
        if (className == entry.name) {
            return forKind(entry.kind);
        }
    }
    return nullptr;
}

std::unique_ptr<BLPaymentCode> BLPaymentCode::forKind(PaymentCodeKind kind) {
    switch (kind) {
        case PaymentCodeKind::BezahlCode:
            return std::unique_ptr<BLPaymentCode>(new BLPaymentCode());
        case PaymentCodeKind::EPC:
            return std::make_unique<BLSEPAPaymentCode>();
        case PaymentCodeKind::Swiss:
            return std::make_unique<BLSwissPaymentCode>();
        case PaymentCodeKind::Stripe:
            return std::make_unique<BLStripePaymentCode>();
        case PaymentCodeKind::PayPal:
            return std::make_unique<BLPayPalPaymentCode>();
        case PaymentCodeKind::OCRB:
            return std::make_unique<BLOCRBPaymentCode>();
        case PaymentCodeKind::ESRCost:
            return std::make_unique<BLESRCostPaymentCode>();
    }
    return nullptr;
}

std::unique_ptr<BLPaymentCode> BLPaymentCode::clone() const {
    return copy();
}

std::unique_ptr<BLPaymentCode> BLPaymentCode::copy() const {
    return std::unique_ptr<BLPaymentCode>(new BLPaymentCode(*this));
}

Value::Array BLPaymentCode::defaultSettings(std::string_view className) {
    std::string path =
        BLSetupDefaultsController::resourcesDirectory() + "/PaymentCodes/" + std::string(className) + ".plist";
    std::ifstream in(path, std::ios::binary);
    if (!in) {
        logMessage("Payment code settings %@ are missing", path);
        return {};
    }
    Bytes bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    std::string error;
    std::optional<Value> list = Value::fromPropertyList(bytes, &error);
    if (!list || list->array() == nullptr) {
        logMessage("Payment code settings %@ are not a list: %@", path, error);
        return {};
    }
    Value::Array withKey;
    Value::Array constants;
    for (const Value& record : *list->array()) {
        if (record.dictionary() == nullptr || record[kParameterNameKey].string() == nullptr) {
            logMessage("Payment code settings %@: a record without a parameter name is skipped", path);
            continue;
        }
        (hasKey(record) ? withKey : constants).push_back(record);
    }
    withKey.insert(withKey.end(), constants.begin(), constants.end());
    return withKey;
}

Value BLPaymentCode::settingsValueForKey(std::string_view parameterName) const {
    for (const Value& record : m_settings) {
        if (record[kParameterNameKey] == Value(parameterName)) {
            return record[kValueKey];
        }
    }
    return {};
}

void BLPaymentCode::setSettingValueForKey(const Value& value, std::string_view parameterName) {
    Value::Dictionary replacement{{kParameterNameKey, Value(parameterName)}};
    if (!value.isNull()) {
        replacement[kValueKey] = value;
    }
    for (Value& record : m_settings) {
        if (record[kParameterNameKey] == Value(parameterName)) {
            record = Value(std::move(replacement));
            return;
        }
    }
    m_settings.emplace_back(std::move(replacement));
}

void BLPaymentCode::removeSettingValueForKey(std::string_view parameterName) {
    std::erase_if(m_settings, [&](const Value& record) { return record[kParameterNameKey] == Value(parameterName); });
}

void BLPaymentCode::substituteValues(const SubstitutionDictionary& values) {
    m_substitutionValues = values;
    m_hasSubstitutionValues = true;
}

std::string BLPaymentCode::substitutionText(std::string_view key) const {
    auto found = m_substitutionValues.find(key);
    if (found == m_substitutionValues.end() || found->second.object() != nullptr) {
        return {};
    }
    return found->second.toString();
}

std::map<std::string, std::string, std::less<>> BLPaymentCode::params() const {
    std::map<std::string, std::string, std::less<>> result;
    for (const Value& record : m_settings) {
        const std::string* name = record[kParameterNameKey].string();
        if (name == nullptr) {
            continue;
        }
        std::string value = hasKey(record) ? substitutionText(*record[kKeyKey].string()) : record[kValueKey].toString();
        if (!value.empty()) {
            result[*name] = std::move(value);
        }
    }
    return result;
}

std::string BLPaymentCode::param(std::string_view name) const {
    auto all = params();
    auto found = all.find(name);
    return found == all.end() ? std::string() : found->second;
}

void BLPaymentCode::fillDefaultsValueFromProfile(const BLContact& profile) {
    (void)profile;
}

bool BLPaymentCode::validParameters() const {
    return missingParameterProblems().empty();
}

std::vector<std::string> BLPaymentCode::missingParameterProblems() const {
    std::vector<std::string> problems;
    auto all = params();
    for (const std::string& name : requiredParamters()) {
        auto found = all.find(name);
        if (found == all.end() || trimmed(found->second).empty()) {
            problems.push_back("The parameter \"" + name + "\" has no value");
        }
    }
    return problems;
}

std::vector<std::string> BLPaymentCode::parameterProblems() const {
    std::vector<std::string> problems = missingParameterProblems();
    if (std::string amount = amountProblem(); !amount.empty()) {
        problems.push_back(std::move(amount));
    }
    return problems;
}

std::string BLPaymentCode::amountProblem() const {
    std::string text = param(kParameterAmount);
    if (text.empty()) {
        return {};
    }
    std::replace(text.begin(), text.end(), ',', '.');
    std::optional<Decimal> amount = Decimal::parse(text);
    if (!amount) {
        return "The amount \"" + text + "\" is no number";
    }
    if (*amount <= Decimal()) {
        return "The amount " + text + " is not above 0";
    }
    if (*amount > maximumAmount()) {
        return "The amount " + text + " is above 999,999,999.99";
    }
    return {};
}

std::string BLPaymentCode::URL() const {
    auto all = cleanedParams();
    std::string text =
        all.count("bic") != 0 && all.count("iban") != 0 ? "bank://singlepaymentsepa?" : "bank://singlepayment?";
    bool first = true;
    for (const auto& [name, value] : all) {
        if (!first) {
            text += '&';
        }
        first = false;
        // Account numbers are often typed in groups; banking apps read them without blanks.
        text += name + "=" + (name == "iban" || name == "bic" ? removeWhiteFromIBAN(value) : value);
    }
    return percentEscapedURL(text);
}

std::string BLPaymentCode::hiddenReason(bool hideOnDirectDebit) const {
    if (!m_hasSubstitutionValues) {
        return {};
    }
    auto found = m_substitutionValues.find(kSubstitutionObjectKey);
    auto* document = found == m_substitutionValues.end() ? nullptr : dynamic_cast<BLSendable*>(found->second.object());
    if (hideOnDirectDebit && document != nullptr) {
        if (BLClient* client = document->client(); client != nullptr && usesSEPADirectDebit(*client)) {
            return "The client pays by direct debit and the element hides then";
        }
    }
    if (document == nullptr) {
        return "There is no document to pay";
    }
    if (document->balanceAtSendDate().toFloat() <= 0.0f) {
        return "Nothing is left to pay";
    }
    if (document->entityName() == "Estimate") {
        return "An estimate shows no payment code";
    }
    return {};
}

}  // namespace brassline
