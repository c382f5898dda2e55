#pragma once

#include "layout/BLPaymentCode.h"

namespace brassline {

// The Swiss QR-bill payload "SPC" version 0200 with structured addresses, after the Swiss
// Implementation Guidelines for the QR-bill (`BLLayoutESRQRCodeView`). A QR-IBAN carries
// the document's QR reference ("QRR"), any other IBAN the text ("NON").
class BLSwissPaymentCode : public BLPaymentCode {
public:
    PaymentCodeKind kind() const override { return PaymentCodeKind::Swiss; }
    std::string_view elementClassName() const override { return "BLLayoutESRQRCodeView"; }
    // Merges an older "streetNumber" record into "street", then takes "IBAN", "name",
    // "street" (address), "zip", "city" and "countryCode" from the contact.
    void fillDefaultsValueFromProfile(const BLContact& profile) override;
    // "countryCode", "city", "IBAN", "zip", "street", "name".
    std::vector<std::string> requiredParamters() const override;
    // The required parameters have values, the IBAN passes its check and the amount, when
    // there is one, lies from 0.01 to 999,999,999.99.
    bool validParameters() const override;
    // Beyond the base: the IBAN, the currency (CHF or EUR) and the characters that the
    // Swiss set drops from the addresses.
    std::vector<std::string> parameterProblems() const override;
    // 31 lines joined by "\n", ending with "EPD"; non-breaking spaces become blanks.
    std::string URL() const override;
    bool supportsColor() const override { return false; }
    bool hasSwissCross() const override { return true; }
    bool hasLinkAnnotation() const override { return false; }

    // The "IBAN" parameter as it is, and without white space.
    std::string rawIBAN() const { return param(kParameterIBAN); }
    std::string IBAN() const;

protected:
    std::unique_ptr<BLPaymentCode> copy() const override { return std::make_unique<BLSwissPaymentCode>(*this); }

private:
    std::string referenceNumber() const;
};

// A page's preparation for a Swiss payment element: "sender.IBAN" becomes the element's
// raw IBAN, and with an IBAN that is no QR-IBAN "document.ch_refnumber" becomes the
// document number.
void prepareSubstitutionForSwissCode(SubstitutionDictionary& values, const BLSwissPaymentCode& code);

}  // namespace brassline
