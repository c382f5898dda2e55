#include "layout/PaymentCodeDrawing.h"

#include <cmath>
#include <memory>
#include <string>

#include <cairo.h>

#include "core/Log.h"
#include "layout/BLOCRBPaymentCode.h"
#include "layout/BLPaymentCode.h"

namespace brassline {

namespace {

constexpr int kQuietZoneModules = 4;

struct SurfaceDeleter {
    void operator()(cairo_surface_t* surface) const { cairo_surface_destroy(surface); }
};
struct ContextDeleter {
    void operator()(cairo_t* cr) const { cairo_destroy(cr); }
};

QRSymbolStyle symbolStyle(const BLPaymentCode& code, const PaymentCodeAppearance& appearance) {
    QRSymbolStyle style;
    if (code.supportsColor() && appearance.useColor && appearance.color) {
        style.color = *appearance.color;
    }
    style.swissCross = code.hasSwissCross();
    return style;
}

bool showsWarning(const BLPaymentCode& code) {
    return code.hasSwissCross() && !code.validParameters();
}

void drawOCRLine(cairo_t* cr, const std::string& text, const DrawingRect& rect, const DrawingColor& color) {
    cairo_save(cr);
    cairo_select_font_face(cr, kOCRFontFamily, CAIRO_FONT_SLANT_NORMAL, CAIRO_FONT_WEIGHT_NORMAL);
    cairo_set_font_size(cr, kOCRLineFontSizePoints);
    cairo_font_extents_t extents;
    cairo_font_extents(cr, &extents);
    cairo_set_source_rgb(cr, color.red, color.green, color.blue);
    cairo_move_to(cr, rect.x, rect.y + extents.ascent);
    cairo_show_text(cr, text.c_str());
    cairo_restore(cr);
}

// The amount boxes of the old slip: eight cells for the francs, right-aligned, a cell for
// the separating dot, two cells for the centimes; one OCR-B digit centred in each.
void drawAmountBoxes(cairo_t* cr, const BLESRCostPaymentCode::AmountBoxes& boxes, const DrawingRect& rect,
                     const DrawingColor& color) {
    constexpr int kFrancCells = 8;
    constexpr int kCells = kFrancCells + 3;
    double cell = rect.width / kCells;
    cairo_save(cr);
    cairo_select_font_face(cr, kOCRFontFamily, CAIRO_FONT_SLANT_NORMAL, CAIRO_FONT_WEIGHT_NORMAL);
    cairo_set_font_size(cr, kOCRLineFontSizePoints);
    cairo_font_extents_t font;
    cairo_font_extents(cr, &font);
    cairo_set_source_rgb(cr, color.red, color.green, color.blue);
    auto digitAt = [&](int index, char digit) {
        char text[2] = {digit, '\0'};
        cairo_text_extents_t extents;
        cairo_text_extents(cr, text, &extents);
        cairo_move_to(cr, rect.x + (index + 0.5) * cell - extents.x_advance / 2.0, rect.y + font.ascent);
        cairo_show_text(cr, text);
    };
    std::string francs =
        boxes.francs.size() > kFrancCells ? boxes.francs.substr(boxes.francs.size() - kFrancCells) : boxes.francs;
    for (size_t index = 0; index < francs.size(); ++index) {
        digitAt(kFrancCells - static_cast<int>(francs.size()) + static_cast<int>(index), francs[index]);
    }
    for (size_t index = 0; index < boxes.centimes.size() && index < 2; ++index) {
        digitAt(kFrancCells + 1 + static_cast<int>(index), boxes.centimes[index]);
    }
    cairo_restore(cr);
}

}  // namespace

DrawingRect codeBounds(const DrawingRect& bounds) {
    double left = std::floor(bounds.x + 1.0);
    double top = std::floor(bounds.y + 1.0);
    double right = std::ceil(bounds.x + bounds.width - 1.0);
    double bottom = std::ceil(bounds.y + bounds.height - 1.0);
    return {left, top, std::max(0.0, right - left), std::max(0.0, bottom - top)};
}

PaymentCodeDrawing drawPaymentCode(cairo_t* cr, const BLPaymentCode& code, const DrawingRect& bounds,
                                   const PaymentCodeAppearance& appearance) {
    if (!code.shouldDisplay(appearance.hideOnDirectDebit)) {
        return PaymentCodeDrawing::Hidden;
    }
    QRSymbolStyle style = symbolStyle(code, appearance);
    if (const auto* amount = dynamic_cast<const BLESRCostPaymentCode*>(&code)) {
        drawAmountBoxes(cr, amount->amountBoxes(), codeBounds(bounds), style.color);
        return PaymentCodeDrawing::Drawn;
    }
    if (const auto* line = dynamic_cast<const BLOCRBPaymentCode*>(&code)) {
        drawOCRLine(cr, line->annotationString(), codeBounds(bounds), style.color);
        return PaymentCodeDrawing::Drawn;
    }
    std::optional<QRSymbol> symbol = QRSymbol::encode(code.URL());
    if (!symbol) {
        return PaymentCodeDrawing::Failed;
    }
    drawQRSymbol(cr, *symbol, codeBounds(bounds), style);
    if (showsWarning(code)) {
        drawColorWarning(cr, bounds);
        return PaymentCodeDrawing::Warning;
    }
    return PaymentCodeDrawing::Drawn;
}

bool writePaymentCodePNG(const BLPaymentCode& code, const std::string& path, int pixelsPerModule, std::string* error) {
    auto fail = [&](std::string message) {
        logMessage("Payment code PNG: %@", message);
        if (error != nullptr) {
            *error = std::move(message);
        }
        return false;
    };
    if (!code.drawsQRSymbol()) {
        return fail("this kind of payment code is a line of text, not a symbol");
    }
    std::optional<QRSymbol> symbol = QRSymbol::encode(code.URL());
    if (!symbol) {
        return fail("the payload cannot be encoded as a QR symbol");
    }
    int side = (symbol->width() + 2 * kQuietZoneModules) * std::max(1, pixelsPerModule);
    std::unique_ptr<cairo_surface_t, SurfaceDeleter> surface(
        cairo_image_surface_create(CAIRO_FORMAT_RGB24, side, side));
    std::unique_ptr<cairo_t, ContextDeleter> cr(cairo_create(surface.get()));
    QRSymbolStyle style = symbolStyle(code, PaymentCodeAppearance{});
    style.quietZoneModules = kQuietZoneModules;
    DrawingRect whole{0.0, 0.0, static_cast<double>(side), static_cast<double>(side)};
    drawQRSymbol(cr.get(), *symbol, whole, style);
    if (showsWarning(code)) {
        drawColorWarning(cr.get(), whole);
    }
    cairo_surface_flush(surface.get());
    cairo_status_t status = cairo_surface_write_to_png(surface.get(), path.c_str());
    if (status != CAIRO_STATUS_SUCCESS) {
        return fail("the file " + path + " cannot be written: " + cairo_status_to_string(status));
    }
    return true;
}

}  // namespace brassline
