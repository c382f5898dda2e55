#include "layout/BLOCRBPaymentCode.h"

#include "layout/PaymentText.h"
#include "money/BLExchangeRates.h"

namespace brassline {

std::string BLOCRBPaymentCode::annotationString() const {
    return substitutionText(kOCRLineKey);
}

std::string BLOCRBPaymentCode::URL() const {
    std::string host = exchangeRatesServiceURL();
    while (!host.empty() && host.back() == '/') {
        host.pop_back();
    }
    return host + "/PaymentTools/copy.php?value=" + URLEncodeForOCR(annotationString());
}

std::vector<std::string> BLOCRBPaymentCode::parameterProblems() const {
    if (annotationString().empty()) {
        return {"The document has no coding line"};
    }
    return {};
}

BLESRCostPaymentCode::AmountBoxes BLESRCostPaymentCode::amountBoxes() const {
    std::string amount = trimmed(param(kParameterAmount));
    if (amount.empty()) {
        return {};
    }
    size_t mark = amount.find_first_of(".,");
    std::string francs = amount.substr(0, mark);
    std::string centimes = mark == std::string::npos ? std::string() : amount.substr(mark + 1);
    centimes.resize(2, '0');
    return {francs.empty() ? std::string("0") : francs, centimes};
}

std::string BLESRCostPaymentCode::annotationString() const {
    AmountBoxes boxes = amountBoxes();
    return boxes.francs.empty() ? std::string() : boxes.francs + "." + boxes.centimes;
}

std::vector<std::string> BLESRCostPaymentCode::parameterProblems() const {
    return BLPaymentCode::parameterProblems();
}

}  // namespace brassline
