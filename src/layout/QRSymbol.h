#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

using cairo_t = struct _cairo;

namespace brassline {

// A rectangle in the drawing's units (points on pages, pixels on images), origin top left.
struct DrawingRect {
    double x = 0.0;
    double y = 0.0;
    double width = 0.0;
    double height = 0.0;
};

// A colour in sRGB, components from 0 to 1.
struct DrawingColor {
    double red = 0.0;
    double green = 0.0;
    double blue = 0.0;
};

// The modules of one QR Code symbol: the text as UTF-8 bytes in 8-bit mode, error
// correction level M, the smallest version that holds it. Immutable; any thread.
class QRSymbol {
public:
    // Nothing (logged) when the text is empty or beyond the largest symbol (2,331 bytes).
    static std::optional<QRSymbol> encode(std::string_view text);

    int version() const { return m_version; }
    // Modules on a side, without the quiet zone (21 for version 1, 177 for version 40).
    int width() const { return m_width; }
    bool isDark(int column, int row) const {
        return m_modules[static_cast<size_t>(row) * static_cast<size_t>(m_width) + static_cast<size_t>(column)] != 0;
    }

private:
    QRSymbol(int version, int width, std::vector<uint8_t> modules)
        : m_version(version), m_width(width), m_modules(std::move(modules)) {}

    int m_version;
    int m_width;
    std::vector<uint8_t> m_modules;
};

struct QRSymbolStyle {
    DrawingColor color;
    // White modules around the symbol inside the drawn square (the standard asks for 4).
    int quietZoneModules = 0;
    // The Swiss cross of the QR-bill in the middle: 7 x 7 mm on a symbol of 46 x 46 mm.
    bool swissCross = false;
};

// Paints the symbol into the largest square centred in `rect`: a white ground, then every
// dark module as a square of one filled path (vector output, no bitmap), then the cross.
void drawQRSymbol(cairo_t* cr, const QRSymbol& symbol, const DrawingRect& rect, const QRSymbolStyle& style);
// The Swiss cross as the QR-bill guidelines draw it: a white square of side `side` centred on
// the point, a black square inside it and the white cross on that.
void drawSwissCross(cairo_t* cr, double centreX, double centreY, double side);
// The warning sign of a payment element that cannot make a valid request, filling `rect`
// as far as its proportions allow.
void drawColorWarning(cairo_t* cr, const DrawingRect& rect);

}  // namespace brassline
