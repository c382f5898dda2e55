#pragma once

#include <optional>
#include <string>

#include "layout/QRSymbol.h"

namespace brassline {

class BLPaymentCode;

// The element's properties that the drawing of a payment code reads.
struct PaymentCodeAppearance {
    bool useColor = false;
    std::optional<DrawingColor> color;
    bool hideOnDirectDebit = false;
};

enum class PaymentCodeDrawing {
    Hidden,   // shouldDisplay said no: nothing drawn.
    Drawn,    // The symbol (or the OCR-B text) stands in the code bounds.
    Warning,  // Drawn, with the warning sign over the element: the Swiss parameters are invalid.
    Failed,   // The payload could not be encoded (logged); nothing drawn.
};

// The element's bounds inset by 1.0 on each side, made integral (outwards to whole units).
DrawingRect codeBounds(const DrawingRect& bounds);

// What a payment element's `draw` calls with its bounds: when the code shows, the payload
// as a QR symbol proportionally in the code bounds (in the element's colour when it uses
// one and the kind allows it), or the OCR-B line, or the digits of the amount boxes (eight
// cells of francs, a dot's cell, two of centimes, across the code bounds); a Swiss code
// with invalid parameters gets the warning sign over the whole element.
PaymentCodeDrawing drawPaymentCode(cairo_t* cr, const BLPaymentCode& code, const DrawingRect& bounds,
                                   const PaymentCodeAppearance& appearance);

// The code's symbol alone as a PNG file: `pixelsPerModule` pixels a module, with the
// standard's quiet zone of four modules, through the same drawing. False with the reason
// in `error` when there is no symbol or the file cannot be written.
bool writePaymentCodePNG(const BLPaymentCode& code, const std::string& path, int pixelsPerModule, std::string* error);

}  // namespace brassline
