#pragma once

#include <iosfwd>
#include <optional>
#include <string>
#include <string_view>

#include "layout/BLPaymentCode.h"

namespace brassline {

class BLSendable;

namespace paymentcodecommands {

// The kinds by their command-line names: bezahlcode, epc, swiss, stripe, paypal, ocrb.
std::optional<PaymentCodeKind> kindNamed(std::string_view name);
// The payment code of the layout's `classes` text (comma-joined element class names):
// the first payment element class in the order of the kinds; nothing when there is none.
std::optional<PaymentCodeKind> kindInLayoutClasses(std::string_view classes);

// A code of `kind` as a new element of the document's layout would make it: the resource
// settings, the constants from the company's default profile, the document's values (with
// the page's Swiss preparation).
std::unique_ptr<BLPaymentCode> paymentCodeForDocument(BLSendable& document, PaymentCodeKind kind);

struct Options {
    std::string path;
    std::string uid;
    std::string kind;  // Empty: read from the document's layout.
    std::string png;   // Empty: no image.
};

// `brassline paymentcode`: prints the payload exactly as encoded (lines separated by LF,
// no line feed added; the coding line for ocrb), writes the symbol as a PNG when asked,
// and tells on `err` what is wrong with the request. 0 when a code is drawn as it should
// be; 1 with a message when there is none, it stays hidden, or the Swiss code would draw
// its warning sign.
int paymentCode(const Options& options, std::ostream& out, std::ostream& err);

}  // namespace paymentcodecommands
}  // namespace brassline
