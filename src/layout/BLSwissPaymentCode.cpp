#include "layout/BLSwissPaymentCode.h"

#include "layout/PaymentReferences.h"
#include "layout/PaymentText.h"
#include "model/entities/BLContact.h"
#include "model/entities/BLSendable.h"

namespace brassline {

namespace {

// What swissBankingString drops from a text, besides the characters it turns into others.
std::string droppedCharacters(std::string_view text) {
    std::string dropped;
    const auto* bytes = reinterpret_cast<const unsigned char*>(text.data());
    size_t index = 0;
    while (index < text.size()) {
        size_t length = bytes[index] < 0x80 ? 1 : bytes[index] < 0xE0 ? 2 : bytes[index] < 0xF0 ? 3 : 4;
        std::string_view character = text.substr(index, length);
        std::string alone = swissBankingString(character);
        if (alone.empty()) {
            dropped += character;
        }
        index += length;
    }
    return dropped;
}

}  // namespace

void BLSwissPaymentCode::fillDefaultsValueFromProfile(const BLContact& profile) {
    Value number = settingsValueForKey(kParameterStreetNumber);
    if (!number.isNull()) {
        std::string street = trimmed(settingsValueForKey(kParameterStreet).toString());
        std::string numberText = trimmed(number.toString());
        if (!numberText.empty() && street.size() >= numberText.size() &&
            street.compare(street.size() - numberText.size(), numberText.size(), numberText) == 0) {
            street.resize(street.size() - numberText.size());
        }
        setSettingValueForKey(Value(trimmed(trimmed(street) + " " + numberText)), kParameterStreet);
        removeSettingValueForKey(kParameterStreetNumber);
    }
    setSettingValueForKey(Value(profile.iban().value_or(std::string())), kParameterIBAN);
    setSettingValueForKey(Value(profile.organizationOrName()), kParameterName);
    setSettingValueForKey(Value(profile.address().value_or(std::string())), kParameterStreet);
    setSettingValueForKey(Value(profile.zip().value_or(std::string())), kParameterZip);
    setSettingValueForKey(Value(profile.city().value_or(std::string())), kParameterCity);
    setSettingValueForKey(Value(profile.countryCode().value_or(std::string())), kParameterCountryCode);
}

std::vector<std::string> BLSwissPaymentCode::requiredParamters() const {
    return {kParameterCountryCode, kParameterCity, kParameterIBAN, kParameterZip, kParameterStreet, kParameterName};
}

bool BLSwissPaymentCode::validParameters() const {
    return BLPaymentCode::validParameters() && isValidIBAN(param(kParameterIBAN)) && amountProblem().empty();
}

std::vector<std::string> BLSwissPaymentCode::parameterProblems() const {
    std::vector<std::string> problems = BLPaymentCode::parameterProblems();
    std::string iban = param(kParameterIBAN);
    if (!iban.empty() && !isValidIBAN(iban)) {
        problems.push_back("The IBAN " + iban + " fails its check");
    }
    std::string currency = param(kParameterCurrency);
    if (!currency.empty() && currency != "CHF" && currency != "EUR") {
        problems.push_back("The currency " + currency + " is neither CHF nor EUR");
    }
    struct Field {
        const char* label;
        std::string text;
    };
    for (const Field& field : {Field{"creditor's name", param(kParameterName)}, Field{"city", param(kParameterCity)},
                               Field{"debtor's name", substitutionText("recipient.organizationOrName")},
                               Field{"debtor's street", substitutionText("recipient.street")},
                               Field{"debtor's city", substitutionText("recipient.city")}}) {
        if (std::string dropped = droppedCharacters(field.text); !dropped.empty()) {
            problems.push_back(std::string("The ") + field.label +
                               " loses characters outside the Swiss set: " + dropped);
        }
    }
    return problems;
}

std::string BLSwissPaymentCode::IBAN() const {
    return removeWhiteFromIBAN(rawIBAN());
}

std::string BLSwissPaymentCode::referenceNumber() const {
    auto found = substitutionValues().find(kSubstitutionObjectKey);
    if (found != substitutionValues().end()) {
        if (auto* document = dynamic_cast<const BLSendable*>(found->second.object())) {
            return ch_padded_refnumber(*document);
        }
    }
    return ch_pad(substitutionText("document.ch_refnumber"), 27);
}

std::string BLSwissPaymentCode::URL() const {
    auto all = cleanedParams();
    auto get = [&](const char* name) {
        auto found = all.find(name);
        return found == all.end() ? std::string() : found->second;
    };
    std::string iban = IBAN();
    bool qrIBAN = isQRIBAN(iban);

    std::string streetLine = get(kParameterStreet);
    if (std::string number = get(kParameterStreetNumber); !number.empty()) {
        streetLine += " " + number;
    }
    SwissStreetAddress creditorStreet = separateSwissStreetAddress(streetLine);
    std::string country = trimmed(get(kParameterCountryCode));
    if (country != "CH" && country != "LI") {
        country = "CH";
    }
    SwissStreetAddress debtorStreet = separateSwissStreetAddress(substitutionText("recipient.street"));
    std::string debtorCountry = singleLine(substitutionText("recipient.countryCode"));
    if (debtorCountry.empty()) {
        debtorCountry = "CH";
    }

    std::vector<std::string> lines = {
        "SPC",
        "0200",
        "1",
        iban,
        "S",
        swissBankingString(trimmed(get(kParameterName))),
        creditorStreet.street,
        creditorStreet.number,
        trimmed(get(kParameterZip)),
        swissBankingString(trimmed(get(kParameterCity))),
        country,
        "",
        "",
        "",
        "",
        "",
        "",
        "",  // The ultimate creditor is reserved for future use.
        get(kParameterAmount),
        get(kParameterCurrency),
        "S",
        singleLine(trimmed(swissBankingString(substitutionText("recipient.organizationOrName")))),
        swissBankingString(debtorStreet.street),
        swissBankingString(debtorStreet.number),
        singleLine(trimmed(swissBankingString(substitutionText("recipient.zip")))),
        singleLine(trimmed(swissBankingString(substitutionText("recipient.city")))),
        debtorCountry,
        qrIBAN ? "QRR" : "NON",
        qrIBAN ? referenceNumber() : std::string(),
        qrIBAN ? std::string() : get(kParameterReason),
        "EPD",
    };
    std::string text;
    for (size_t index = 0; index < lines.size(); ++index) {
        if (index > 0) {
            text += '\n';
        }
        text += lines[index];
    }
    // A non-breaking space is no character of the Swiss set; it reads as a blank.
    std::string result;
    for (size_t index = 0; index < text.size(); ++index) {
        if (text.compare(index, 2, "\u00A0") == 0) {
            result += ' ';
            ++index;
        } else {
            result += text[index];
        }
    }
    return result;
}

void prepareSubstitutionForSwissCode(SubstitutionDictionary& values, const BLSwissPaymentCode& code) {
    std::string raw = code.rawIBAN();
    values["sender.IBAN"] = raw;
    if (!isQRIBAN(raw)) {
        auto number = values.find("document.number");
        values["document.ch_refnumber"] = number == values.end() ? Value("") : number->second;
    }
}

}  // namespace brassline
