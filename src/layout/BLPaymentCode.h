#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "core/Value.h"
#include "lifecycle/Substitution.h"

namespace brassline {

class BLContact;

// The kinds of payment code, one per element class that draws one.
enum class PaymentCodeKind : uint8_t { BezahlCode, EPC, Swiss, Stripe, PayPal, OCRB, ESRCost };

// The payment request of one payment element: its settings, the substitution values it
// was filled with, and the payload those give. A `BLLayoutQRCodeView` (and each subclass)
// owns one of the kind that its class names (`forElementClass`), archives `settings()`
// under "settings" and hands `substituteValues` on. Plain data; main thread like the
// layout passes.
class BLPaymentCode {
public:
    virtual ~BLPaymentCode() = default;

    // A fresh code for an element class ("BLLayoutSEPAQRCodeView"), without settings; null
    // for a class that draws no payment code.
    static std::unique_ptr<BLPaymentCode> forElementClass(std::string_view className);
    static std::unique_ptr<BLPaymentCode> forKind(PaymentCodeKind kind);
    std::unique_ptr<BLPaymentCode> clone() const;

    virtual PaymentCodeKind kind() const { return PaymentCodeKind::BezahlCode; }
    virtual std::string_view elementClassName() const { return "BLLayoutQRCodeView"; }

    // The setting records ("parameterName", "key" or "value"), in the archived form.
    const Value::Array& settings() const { return m_settings; }
    void setSettings(Value::Array settings) { m_settings = std::move(settings); }
    // The records a new element of the class starts with, from the resource property list
    // "PaymentCodes/<class>.plist": those with a substitution key first, then the constants
    // the user supplies. Empty (logged) when the resource is missing or malformed.
    static Value::Array defaultSettings(std::string_view className);
    void takeDefaultSettings() { m_settings = defaultSettings(elementClassName()); }

    // The constant of the record with that parameter name; null when there is none.
    Value settingsValueForKey(std::string_view parameterName) const;
    // Sets the constant (dropping a substitution key), adding a record when needed.
    void setSettingValueForKey(const Value& value, std::string_view parameterName);
    void removeSettingValueForKey(std::string_view parameterName);

    // The values of the document being drawn; none while the layout is edited.
    void substituteValues(const SubstitutionDictionary& values);
    bool hasSubstitutionValues() const { return m_hasSubstitutionValues; }
    const SubstitutionDictionary& substitutionValues() const { return m_substitutionValues; }
    // The substitution value of `key` as text, "" when absent.
    std::string substitutionText(std::string_view key) const;

    // Parameter name to value: a record with a key reads the substitution values, one
    // without takes its constant. Empty values are left out.
    std::map<std::string, std::string, std::less<>> params() const;
    std::map<std::string, std::string, std::less<>> cleanedParams() const { return params(); }
    // The parameter's value, "" when absent.
    std::string param(std::string_view name) const;

    // Fills the constants from the company's contact when a new element is placed.
    virtual void fillDefaultsValueFromProfile(const BLContact& profile);
    // The parameters without which the payload is no payment request (the name is spelled
    // so by the element's interface).
    virtual std::vector<std::string> requiredParamters() const { return {}; }
    // Every required parameter has a value (and, where the kind asks, the IBAN passes).
    virtual bool validParameters() const;
    // What is wrong with the request, one sentence each, for the command line and logs;
    // empty when nothing is.
    virtual std::vector<std::string> parameterProblems() const;

    // The payload.
    virtual std::string URL() const;
    // Whether the drawing may take the element's colour (the Swiss code stays black).
    virtual bool supportsColor() const { return true; }
    // Whether the Swiss cross stands in the middle of the symbol.
    virtual bool hasSwissCross() const { return false; }
    // Whether the page gets a link annotation for the payload.
    virtual bool hasLinkAnnotation() const { return true; }
    // Whether the payload is drawn as a QR symbol (the OCR-B elements draw text).
    virtual bool drawsQRSymbol() const { return true; }

    // Whether the element shows: always without substitution values (the editor);
    // otherwise not when hidden on direct debit and the client pays so, not when nothing
    // is left to pay (balanceAtSendDate at most 0, through a float), not for an estimate or
    // a missing document.
    bool shouldDisplay(bool hideOnDirectDebit) const { return hiddenReason(hideOnDirectDebit).empty(); }
    // Why the element does not show, one sentence; "" when it shows.
    std::string hiddenReason(bool hideOnDirectDebit) const;

protected:
    BLPaymentCode() = default;
    BLPaymentCode(const BLPaymentCode&) = default;
    virtual std::unique_ptr<BLPaymentCode> copy() const;
    // "The amount is above 999,999,999.99" or "" when the amount parameter fits the range
    // of the bank standards (0.01 to 999,999,999.99; absent counts as fitting).
    std::string amountProblem() const;
    std::vector<std::string> missingParameterProblems() const;

private:
    Value::Array m_settings;
    SubstitutionDictionary m_substitutionValues;
    bool m_hasSubstitutionValues = false;
};

// The parameter names a payment code reads.
inline constexpr const char* kParameterIBAN = "IBAN";
inline constexpr const char* kParameterBIC = "BIC";
inline constexpr const char* kParameterName = "name";
inline constexpr const char* kParameterReason = "reason";
inline constexpr const char* kParameterAmount = "amount";
inline constexpr const char* kParameterCurrency = "currency";
inline constexpr const char* kParameterOGM = "OGM";
inline constexpr const char* kParameterStreet = "street";
inline constexpr const char* kParameterStreetNumber = "streetNumber";
inline constexpr const char* kParameterZip = "zip";
inline constexpr const char* kParameterCity = "city";
inline constexpr const char* kParameterCountryCode = "countryCode";
inline constexpr const char* kParameterEmail = "email";

}  // namespace brassline
