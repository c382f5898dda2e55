#pragma once

#include "core/ValueTransformers.h"

namespace brassline {

// Amounts in payment payloads: exactly two fraction digits (rounded plainly), no
// grouping, the given decimal mark, whatever the locale. Numbers and numeric text to
// text; anything else null.
class ZPPaymentCodeNumberTransformer : public ValueTransformer {
public:
    explicit ZPPaymentCodeNumberTransformer(char decimalMark) : m_decimalMark(decimalMark) {}
    std::string format(const Decimal& amount) const;
    Value transformedValue(const Value& value) const override;

private:
    char m_decimalMark;
};

// BezahlCode amounts: "1234,50".
class ZPBezahlCodeNumberTransformer : public ZPPaymentCodeNumberTransformer {
public:
    ZPBezahlCodeNumberTransformer() : ZPPaymentCodeNumberTransformer(',') {}
};

// EPC and Swiss QR-bill amounts: "1234.50".
class ZPSEPACodeNumberTransformer : public ZPPaymentCodeNumberTransformer {
public:
    ZPSEPACodeNumberTransformer() : ZPPaymentCodeNumberTransformer('.') {}
};

// Registers both transformers under their names, and fills the document keys
// "ch_ocr_line_new", "ch_refnumber" and "ogm.be" of the substitution values with the
// payment references. Idempotent; at start-up, main thread.
void installPaymentCodeHooks();

}  // namespace brassline
