#pragma once

#include "layout/BLPaymentCode.h"

namespace brassline {

// The coding line of the old Swiss payment slip in OCR-B (`BLLayoutOCRBView`): drawn as
// text at the slip's place, with a link that copies the line.
class BLOCRBPaymentCode : public BLPaymentCode {
public:
    PaymentCodeKind kind() const override { return PaymentCodeKind::OCRB; }
    std::string_view elementClassName() const override { return "BLLayoutOCRBView"; }
    bool drawsQRSymbol() const override { return false; }
    // The text drawn: "document.ch_ocr_line_new".
    virtual std::string annotationString() const;
    // The copy link on the system's service host, "/PaymentTools/copy.php?value=" with the
    // line through URLEncodeForOCR; the path alone when no host is set.
    std::string URL() const override;
    std::vector<std::string> parameterProblems() const override;

protected:
    std::unique_ptr<BLPaymentCode> copy() const override { return std::make_unique<BLOCRBPaymentCode>(*this); }
};

inline constexpr const char* kOCRLineKey = "document.ch_ocr_line_new";
// The coding line is set in OCR-B (Debian's fonts-ocr-b) at 10 points.
inline constexpr const char* kOCRFontFamily = "OCR B";
inline constexpr double kOCRLineFontSizePoints = 10.0;

// The amount boxes of the old slip (`BLLayoutESRCostView`): francs and centimes of the open
// amount, each in its own boxes.
class BLESRCostPaymentCode : public BLOCRBPaymentCode {
public:
    PaymentCodeKind kind() const override { return PaymentCodeKind::ESRCost; }
    std::string_view elementClassName() const override { return "BLLayoutESRCostView"; }
    struct AmountBoxes {
        std::string francs;    // "3949"; "" without an amount.
        std::string centimes;  // "75"; "" without an amount.
    };
    // From the "amount" parameter (two digits after a point or comma).
    AmountBoxes amountBoxes() const;
    // "3949.75", or "" without an amount.
    std::string annotationString() const override;
    std::vector<std::string> parameterProblems() const override;

protected:
    std::unique_ptr<BLPaymentCode> copy() const override { return std::make_unique<BLESRCostPaymentCode>(*this); }
};

}  // namespace brassline
