#pragma once

#include "layout/BLPaymentCode.h"

namespace brassline {

// The EPC069-12 "BCD" credit transfer request, version 001, UTF-8 (`BLLayoutSEPAQRCodeView`).
class BLSEPAPaymentCode : public BLPaymentCode {
public:
    PaymentCodeKind kind() const override { return PaymentCodeKind::EPC; }
    std::string_view elementClassName() const override { return "BLLayoutSEPAQRCodeView"; }
    // "IBAN" from the contact's iban, "name" from organizationOrName, "BIC" from bic.
    void fillDefaultsValueFromProfile(const BLContact& profile) override;
    // Eleven lines joined by "\n"; a Belgian IBAN with an "OGM" parameter puts the
    // structured communication on line 10 and drops the text line.
    std::string URL() const override;
    // Beyond the base: no IBAN or one that fails its check, a currency other than EUR, no
    // BIC (version 001 needs it), no name, a name beyond 70 or a text beyond 140 characters,
    // a payload beyond 331 bytes.
    std::vector<std::string> parameterProblems() const override;

protected:
    std::unique_ptr<BLPaymentCode> copy() const override { return std::make_unique<BLSEPAPaymentCode>(*this); }
};

}  // namespace brassline
