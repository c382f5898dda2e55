#include "layout/QRSymbol.h"

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <memory>
#include <string>

#include <cairo.h>
#include <qrencode.h>

#include "core/Log.h"

namespace brassline {

namespace {

constexpr double kSwissCrossMillimetres = 7.0;
constexpr double kSwissSymbolMillimetres = 46.0;

struct QRcodeDeleter {
    void operator()(QRcode* code) const { QRcode_free(code); }
};

void fillWhite(cairo_t* cr, double x, double y, double width, double height) {
    cairo_set_source_rgb(cr, 1.0, 1.0, 1.0);
    cairo_rectangle(cr, x, y, width, height);
    cairo_fill(cr);
}

}  // namespace

std::optional<QRSymbol> QRSymbol::encode(std::string_view text) {
    if (text.empty()) {
        logMessage("QR symbol: nothing to encode");
        return std::nullopt;
    }
    // libqrencode reads a C string: a text with a NUL byte would lose its tail unseen.
    if (text.find('\0') != std::string_view::npos) {
        logMessage("QR symbol: the text holds a NUL byte and is not encoded");
        return std::nullopt;
    }
    std::string copy(text);
    errno = 0;
    std::unique_ptr<QRcode, QRcodeDeleter> code(QRcode_encodeString(copy.c_str(), 0, QR_ECLEVEL_M, QR_MODE_8, 1));
    if (!code) {
        logMessage("QR symbol: %@ bytes cannot be encoded (errno %d)", text.size(), errno);
        return std::nullopt;
    }
    auto count = static_cast<size_t>(code->width) * static_cast<size_t>(code->width);
    std::vector<uint8_t> modules(count);
    // Bit 0 of each byte of libqrencode's matrix is the module's colour (1 dark).
    for (size_t index = 0; index < count; ++index) {
        modules[index] = code->data[index] & 1U;
    }
    return QRSymbol(code->version, code->width, std::move(modules));
}

void drawQRSymbol(cairo_t* cr, const QRSymbol& symbol, const DrawingRect& rect, const QRSymbolStyle& style) {
    double side = std::min(rect.width, rect.height);
    if (side <= 0.0) {
        return;
    }
    int quiet = std::max(0, style.quietZoneModules);
    int span = symbol.width() + 2 * quiet;
    double module = side / span;
    double left = rect.x + (rect.width - side) / 2.0;
    double top = rect.y + (rect.height - side) / 2.0;

    cairo_save(cr);
    fillWhite(cr, left, top, side, side);
    double symbolLeft = left + quiet * module;
    double symbolTop = top + quiet * module;
    // One path, filled once, so that neighbouring modules join without seams. Each run of
    // dark modules in a row is one rectangle, stretched down over the rows below that have
    // the very same run: fewer, larger rectangles make a smaller PDF page.
    const int width = symbol.width();
    std::vector<uint8_t> covered(static_cast<size_t>(width) * static_cast<size_t>(width), 0);
    auto isRunAt = [&](int row, int start, int end) {
        if ((start > 0 && symbol.isDark(start - 1, row)) || (end < width && symbol.isDark(end, row))) {
            return false;
        }
        for (int column = start; column < end; ++column) {
            if (!symbol.isDark(column, row)) {
                return false;
            }
        }
        return true;
    };
    cairo_new_path(cr);
    for (int row = 0; row < width; ++row) {
        int column = 0;
        while (column < width) {
            if (!symbol.isDark(column, row)) {
                ++column;
                continue;
            }
            int start = column;
            while (column < width && symbol.isDark(column, row)) {
                ++column;
            }
            if (covered[static_cast<size_t>(row * width + start)] != 0) {
                continue;  // Drawn with the same run of a row above.
            }
            int height = 1;
            while (row + height < width && isRunAt(row + height, start, column)) {
                covered[static_cast<size_t>((row + height) * width + start)] = 1;
                ++height;
            }
            cairo_rectangle(cr, symbolLeft + start * module, symbolTop + row * module, (column - start) * module,
                            height * module);
        }
    }
    cairo_set_fill_rule(cr, CAIRO_FILL_RULE_WINDING);
    cairo_set_source_rgb(cr, style.color.red, style.color.green, style.color.blue);
    cairo_fill(cr);
    if (style.swissCross) {
        double symbolSide = symbol.width() * module;
        drawSwissCross(cr, symbolLeft + symbolSide / 2.0, symbolTop + symbolSide / 2.0,
                       symbolSide * kSwissCrossMillimetres / kSwissSymbolMillimetres);
    }
    cairo_restore(cr);
}

void drawSwissCross(cairo_t* cr, double centreX, double centreY, double side) {
    cairo_save(cr);
    fillWhite(cr, centreX - side / 2.0, centreY - side / 2.0, side, side);
    // A white margin of 0.5 mm on 7 mm keeps the black square off the modules around it.
    double black = side * 6.0 / 7.0;
    cairo_set_source_rgb(cr, 0.0, 0.0, 0.0);
    cairo_rectangle(cr, centreX - black / 2.0, centreY - black / 2.0, black, black);
    cairo_fill(cr);
    // The Swiss cross: arms a sixth longer than they are broad.
    double arm = black * 0.18;
    double span = arm * 10.0 / 3.0;
    cairo_set_source_rgb(cr, 1.0, 1.0, 1.0);
    cairo_rectangle(cr, centreX - arm / 2.0, centreY - span / 2.0, arm, span);
    cairo_rectangle(cr, centreX - span / 2.0, centreY - arm / 2.0, span, arm);
    cairo_set_fill_rule(cr, CAIRO_FILL_RULE_WINDING);
    cairo_fill(cr);
    cairo_restore(cr);
}

void drawColorWarning(cairo_t* cr, const DrawingRect& rect) {
    double size = std::min(rect.width, rect.height / (std::sqrt(3.0) / 2.0));
    if (size <= 0.0) {
        return;
    }
    double height = size * std::sqrt(3.0) / 2.0;
    double left = rect.x + (rect.width - size) / 2.0;
    double top = rect.y + (rect.height - height) / 2.0;
    double line = size / 24.0;

    cairo_save(cr);
    cairo_new_path(cr);
    cairo_move_to(cr, left + size / 2.0, top + line);
    cairo_line_to(cr, left + size - line, top + height - line);
    cairo_line_to(cr, left + line, top + height - line);
    cairo_close_path(cr);
    cairo_set_source_rgb(cr, 1.0, 0.8, 0.0);
    cairo_fill_preserve(cr);
    cairo_set_line_join(cr, CAIRO_LINE_JOIN_ROUND);
    cairo_set_line_width(cr, line * 1.5);
    cairo_set_source_rgb(cr, 0.0, 0.0, 0.0);
    cairo_stroke(cr);

    // The exclamation mark: a bar narrowing downwards and a dot.
    double centre = left + size / 2.0;
    double barTop = top + height * 0.32;
    double barBottom = top + height * 0.70;
    cairo_move_to(cr, centre - size * 0.045, barTop);
    cairo_line_to(cr, centre + size * 0.045, barTop);
    cairo_line_to(cr, centre + size * 0.025, barBottom);
    cairo_line_to(cr, centre - size * 0.025, barBottom);
    cairo_close_path(cr);
    cairo_fill(cr);
    cairo_arc(cr, centre, top + height * 0.80, size * 0.04, 0.0, 2.0 * M_PI);
    cairo_fill(cr);
    cairo_restore(cr);
}

}  // namespace brassline
