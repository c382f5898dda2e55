#include "layout/ZPPaymentCodeNumberTransformers.h"

#include "layout/PaymentReferences.h"
#include "lifecycle/Substitution.h"

namespace brassline {

std::string ZPPaymentCodeNumberTransformer::format(const Decimal& amount) const {
    if (amount.isNaN()) {
        return "NaN";
    }
    Decimal rounded = amount.fixedValue();
    std::string text = rounded.absoluteNumber().toString();
    size_t point = text.find('.');
    std::string whole = text.substr(0, point);
    std::string fraction = point == std::string::npos ? std::string() : text.substr(point + 1);
    fraction.resize(2, '0');
    return (rounded.isNegative() ? "-" : "") + whole + m_decimalMark + fraction;
}

Value ZPPaymentCodeNumberTransformer::transformedValue(const Value& value) const {
    if (value.isNumber()) {
        return Value(format(value.toDecimal()));
    }
    if (const std::string* text = value.string()) {
        if (std::optional<Decimal> number = Decimal::parse(*text)) {
            return Value(format(*number));
        }
    }
    return {};
}

void installPaymentCodeHooks() {
    setValueTransformerForName("ZPBezahlCodeNumberTransformer", std::make_unique<ZPBezahlCodeNumberTransformer>());
    setValueTransformerForName("ZPSEPACodeNumberTransformer", std::make_unique<ZPSEPACodeNumberTransformer>());
    SubstitutionHooks& hooks = substitutionHooks();
    hooks.swissOCRLine = [](BLSendable& document) { return ch_ocr_line(document); };
    hooks.swissReferenceNumber = [](BLSendable& document) { return ch_refnumber(document); };
    hooks.OGMString = [](BLSendable& document) { return OGMString(document); };
}

}  // namespace brassline
