#pragma once

#include "layout/BLPaymentCode.h"

namespace brassline {

// The Stripe payment link that a plug-in stored on the document when it was sent
// (`BLLayoutStripeQRCodeView`).
class BLStripePaymentCode : public BLPaymentCode {
public:
    PaymentCodeKind kind() const override { return PaymentCodeKind::Stripe; }
    std::string_view elementClassName() const override { return "BLLayoutStripeQRCodeView"; }
    // "document.meta.stripe_payment_link", else "Must send document first" (drawn as a
    // symbol all the same, so that the page says why).
    std::string URL() const override;
    std::vector<std::string> parameterProblems() const override;

protected:
    std::unique_ptr<BLPaymentCode> copy() const override { return std::make_unique<BLStripePaymentCode>(*this); }
};

inline constexpr const char* kStripeLinkKey = "document.meta.stripe_payment_link";
inline constexpr const char* kStripeUnsentText = "Must send document first";

// A PayPal payment request for the open amount (`BLLayoutPayPalView`).
class BLPayPalPaymentCode : public BLPaymentCode {
public:
    PaymentCodeKind kind() const override { return PaymentCodeKind::PayPal; }
    std::string_view elementClassName() const override { return "BLLayoutPayPalView"; }
    // "email" from the contact's email.
    void fillDefaultsValueFromProfile(const BLContact& profile) override;
    // PayPal's "/cgi-bin/webscr?cmd=_xclick" with business (the "email"), item_name (the
    // "name"), both percent-escaped, currency_code and amount.
    std::string URL() const override;
    std::vector<std::string> parameterProblems() const override;

protected:
    std::unique_ptr<BLPaymentCode> copy() const override { return std::make_unique<BLPayPalPaymentCode>(*this); }
};

inline constexpr const char* kPayPalEndpoint = "https://www.paypal.com";

}  // namespace brassline
