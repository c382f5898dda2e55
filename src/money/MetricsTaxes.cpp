#include "money/MetricsTaxes.h"

#include "model/entities/BLInvoice.h"
#include "model/entities/BLSendable.h"

namespace brassline {

std::vector<BLTaxCalculator> taxDictionaryForMetrics(BLSendable& sendable) {
    std::vector<BLTaxCalculator> table = taxDictionary(sendable);
    if (!sendable.isKindOfEntity("Invoice") || sendable.isKindOfEntity("PartialInvoice")) {
        return table;
    }
    bool started = false;
    for (BLDocument* document : sendable.documents()) {
        auto* partial = dynamic_cast<BLSendable*>(document);
        if (partial == nullptr || !partial->isKindOfEntity("PartialInvoice") || !partial->dateSent()) {
            continue;
        }
        if (!started) {
            // The invoice's own taxes become fixed values that the instalments reduce.
            for (BLTaxCalculator& calculator : table) {
                calculator.preCalculatedTax = calculator.tax();
            }
            started = true;
        }
        for (BLTaxCalculator& part : taxDictionary(*partial)) {
            for (BLTaxCalculator& calculator : table) {
                if (calculator.taxRule == part.taxRule) {
                    calculator.amount = calculator.amount - part.amount;
                    calculator.preCalculatedTax = *calculator.preCalculatedTax - part.tax();
                    break;
                }
            }
        }
    }
    return table;
}

}  // namespace brassline
