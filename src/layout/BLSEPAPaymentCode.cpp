#include "layout/BLSEPAPaymentCode.h"

#include "layout/PaymentText.h"
#include "model/entities/BLContact.h"

namespace brassline {

namespace {

size_t characterCount(std::string_view text) {
    size_t count = 0;
    for (char c : text) {
        count += (static_cast<unsigned char>(c) & 0xC0) != 0x80 ? 1 : 0;
    }
    return count;
}

}  // namespace

void BLSEPAPaymentCode::fillDefaultsValueFromProfile(const BLContact& profile) {
    setSettingValueForKey(Value(profile.iban().value_or(std::string())), kParameterIBAN);
    setSettingValueForKey(Value(profile.organizationOrName()), kParameterName);
    setSettingValueForKey(Value(profile.bic().value_or(std::string())), kParameterBIC);
}

std::string BLSEPAPaymentCode::URL() const {
    auto all = cleanedParams();
    auto get = [&](const char* name) {
        auto found = all.find(name);
        return found == all.end() ? std::string() : found->second;
    };
    std::string iban = removeWhiteFromIBAN(singleLine(get(kParameterIBAN)));
    std::string amountLine;
    if (all.count(kParameterAmount) != 0 && all.count(kParameterCurrency) != 0) {
        amountLine = get(kParameterCurrency) + get(kParameterAmount);
    }
    std::string text = "BCD\n001\n1\nSCT\n";
    text += removeWhiteFromIBAN(get(kParameterBIC)) + "\n";
    text += singleLine(get(kParameterName)) + "\n";
    text += iban + "\n";
    text += amountLine + "\n";
    text += "\n";
    // A Belgian account takes the structured communication as the remittance reference
    // (line 10) and then no unstructured text.
    if (iban.rfind("BE", 0) == 0 && all.count(kParameterOGM) != 0) {
        return text + get(kParameterOGM) + "\n";
    }
    if (all.count(kParameterReason) != 0) {
        text += "\n" + get(kParameterReason) + "\n";
    }
    return text;
}

std::vector<std::string> BLSEPAPaymentCode::parameterProblems() const {
    std::vector<std::string> problems = BLPaymentCode::parameterProblems();
    std::string iban = param(kParameterIBAN);
    if (iban.empty()) {
        problems.emplace_back("The IBAN is missing");
    } else if (!isValidIBAN(iban)) {
        problems.push_back("The IBAN " + iban + " fails its check");
    }
    if (std::string currency = param(kParameterCurrency); !currency.empty() && currency != "EUR") {
        problems.push_back("The currency " + currency + " is not the euro of SEPA credit transfers");
    }
    if (param(kParameterBIC).empty()) {
        problems.emplace_back("The BIC is missing");
    }
    std::string name = singleLine(param(kParameterName));
    if (name.empty()) {
        problems.emplace_back("The creditor's name is missing");
    } else if (characterCount(name) > 70) {
        problems.emplace_back("The creditor's name is longer than 70 characters");
    }
    if (characterCount(param(kParameterReason)) > 140) {
        problems.emplace_back("The text is longer than 140 characters");
    }
    // EPC069-12 caps the whole payload at 331 bytes.
    if (URL().size() > 331) {
        problems.emplace_back("The request is longer than the 331 bytes of an EPC code");
    }
    return problems;
}

}  // namespace brassline
