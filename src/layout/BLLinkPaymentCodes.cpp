#include "layout/BLLinkPaymentCodes.h"

#include "layout/PaymentText.h"
#include "model/entities/BLContact.h"

namespace brassline {

std::string BLStripePaymentCode::URL() const {
    std::string link = trimmed(substitutionText(kStripeLinkKey));
    return link.empty() ? std::string(kStripeUnsentText) : link;
}

std::vector<std::string> BLStripePaymentCode::parameterProblems() const {
    if (trimmed(substitutionText(kStripeLinkKey)).empty()) {
        return {"The document has no Stripe payment link yet: it is made when the document is sent"};
    }
    return {};
}

void BLPayPalPaymentCode::fillDefaultsValueFromProfile(const BLContact& profile) {
    setSettingValueForKey(Value(profile.email().value_or(std::string())), kParameterEmail);
}

std::string BLPayPalPaymentCode::URL() const {
    return std::string(kPayPalEndpoint) +
           "/cgi-bin/webscr?cmd=_xclick&business=" + URLEncodeForOCR(param(kParameterEmail)) +
           "&item_name=" + URLEncodeForOCR(param(kParameterName)) + "&currency_code=" + param(kParameterCurrency) +
           "&amount=" + param(kParameterAmount);
}

std::vector<std::string> BLPayPalPaymentCode::parameterProblems() const {
    std::vector<std::string> problems = BLPaymentCode::parameterProblems();
    if (param(kParameterEmail).empty()) {
        problems.emplace_back("The PayPal address (email) is missing");
    }
    return problems;
}

}  // namespace brassline
