#include <cmath>
#include <string>

#include <cairo-svg.h>
#include <cairo.h>
#include <gtest/gtest.h>

#include "core/Log.h"
#include "layout/BLSwissPaymentCode.h"
#include "layout/PaymentCodeDrawing.h"
#include "layout/QRSymbol.h"

namespace brassline {
namespace {

// An image surface to draw on and read back pixel by pixel.
class Canvas {
public:
    Canvas(int width, int height)
        : m_surface(cairo_image_surface_create(CAIRO_FORMAT_RGB24, width, height)), m_cr(cairo_create(m_surface)) {
        cairo_set_source_rgb(m_cr, 0.5, 0.5, 0.5);
        cairo_paint(m_cr);
    }
    ~Canvas() {
        cairo_destroy(m_cr);
        cairo_surface_destroy(m_surface);
    }
    Canvas(const Canvas&) = delete;
    Canvas& operator=(const Canvas&) = delete;

    cairo_t* cr() { return m_cr; }
    // The pixel as 0xRRGGBB.
    uint32_t pixel(double x, double y) {
        cairo_surface_flush(m_surface);
        const unsigned char* data = cairo_image_surface_get_data(m_surface);
        int stride = cairo_image_surface_get_stride(m_surface);
        const auto* row = reinterpret_cast<const uint32_t*>(data + static_cast<int>(y) * stride);
        return row[static_cast<int>(x)] & 0xFFFFFFU;
    }

private:
    cairo_surface_t* m_surface;
    cairo_t* m_cr;
};

constexpr uint32_t kBlack = 0x000000;
constexpr uint32_t kWhite = 0xFFFFFF;
constexpr uint32_t kGrey = 0x808080;

TEST(QRSymbolTest, VersionGrowsWithTheTextUpToTheLargestSymbol) {
    struct Row {
        size_t bytes;
        int version;
    };
    // Level M in 8-bit mode holds 14 bytes in version 1, 26 in version 2 and 2,331 in 40.
    const Row rows[] = {{1, 1}, {14, 1}, {15, 2}, {26, 2}, {27, 3}, {2331, 40}};
    for (const Row& row : rows) {
        SCOPED_TRACE(row.bytes);
        std::optional<QRSymbol> symbol = QRSymbol::encode(std::string(row.bytes, 'a'));
        ASSERT_TRUE(symbol.has_value());
        EXPECT_EQ(symbol->version(), row.version);
        EXPECT_EQ(symbol->width(), 17 + 4 * row.version);
    }
    LogCapture log;
    EXPECT_FALSE(QRSymbol::encode(std::string(2332, 'a')).has_value());
    EXPECT_FALSE(QRSymbol::encode("").has_value());
    EXPECT_FALSE(QRSymbol::encode(std::string("a\0b", 3)).has_value());
    EXPECT_EQ(log.lines().size(), 3U);
}

TEST(QRSymbolTest, EveryModuleIsPaintedWhereItBelongs) {
    std::optional<QRSymbol> symbol = QRSymbol::encode("BCD\n001\n1\nSCT");
    ASSERT_TRUE(symbol.has_value());
    // 4 pixels a module, a quiet zone of 2 modules, drawn at (10, 20) in a wider rectangle:
    // the square is centred horizontally.
    int modules = symbol->width() + 4;
    double side = modules * 4.0;
    Canvas canvas(static_cast<int>(side) + 60, static_cast<int>(side) + 40);
    QRSymbolStyle style;
    style.quietZoneModules = 2;
    drawQRSymbol(canvas.cr(), *symbol, {10.0, 20.0, side + 40.0, side}, style);
    double left = 10.0 + 20.0;
    for (int row = 0; row < symbol->width(); ++row) {
        for (int column = 0; column < symbol->width(); ++column) {
            uint32_t expected = symbol->isDark(column, row) ? kBlack : kWhite;
            ASSERT_EQ(canvas.pixel(left + (column + 2) * 4 + 2, 20 + (row + 2) * 4 + 2), expected)
                << "module " << column << ", " << row;
        }
    }
    // The quiet zone is white, outside the square the ground shows.
    EXPECT_EQ(canvas.pixel(left + 1, 21), kWhite);
    EXPECT_EQ(canvas.pixel(left - 2, 21), kGrey);
    // The finder pattern's corner is dark in every symbol.
    EXPECT_TRUE(symbol->isDark(0, 0));
}

TEST(QRSymbolTest, ColourReplacesBlack) {
    std::optional<QRSymbol> symbol = QRSymbol::encode("colour");
    ASSERT_TRUE(symbol.has_value());
    Canvas canvas(84, 84);
    QRSymbolStyle style;
    style.color = {1.0, 0.0, 0.0};
    drawQRSymbol(canvas.cr(), *symbol, {0.0, 0.0, 84.0, 84.0}, style);
    EXPECT_EQ(canvas.pixel(2, 2), 0xFF0000U);       // Module (0, 0) is dark.
    EXPECT_EQ(canvas.pixel(4 + 2, 4 + 2), kWhite);  // Module (1, 1) lies in the finder's white ring.
}

TEST(QRSymbolTest, SwissCrossIsSevenForty6thsOfTheSymbolAndCentred) {
    std::optional<QRSymbol> symbol = QRSymbol::encode(std::string(300, 'x'));
    ASSERT_TRUE(symbol.has_value());
    // 10 pixels a module; the cross's side c = S × 7 / 46 for the symbol side S.
    double s = symbol->width() * 10.0;
    double c = s * 7.0 / 46.0;
    double centre = s / 2.0;
    Canvas canvas(static_cast<int>(s), static_cast<int>(s));
    QRSymbolStyle style;
    style.swissCross = true;
    drawQRSymbol(canvas.cr(), *symbol, {0.0, 0.0, s, s}, style);
    EXPECT_EQ(canvas.pixel(centre, centre), kWhite);  // The cross itself.
    // The black square has side 6c/7; just inside its corner, off the arms, it is black.
    double blackCorner = 3.0 * c / 7.0 - 2.0;
    EXPECT_EQ(canvas.pixel(centre - blackCorner, centre - blackCorner), kBlack);
    EXPECT_EQ(canvas.pixel(centre + blackCorner, centre + blackCorner), kBlack);
    // Between 3c/7 and c/2 from the centre lies the white margin.
    double margin = 13.0 * c / 28.0;
    EXPECT_EQ(canvas.pixel(centre - margin, centre - margin), kWhite);
    EXPECT_EQ(canvas.pixel(centre + margin, centre + margin), kWhite);
    // An arm reaches 0.3 of the black square from the centre: white at 0.25.
    double arm = 0.25 * 6.0 * c / 7.0;
    EXPECT_EQ(canvas.pixel(centre + arm, centre), kWhite);
    EXPECT_EQ(canvas.pixel(centre, centre - arm), kWhite);
}

TEST(QRSymbolTest, VectorOutputHasPathsAndNoImage) {
    std::optional<QRSymbol> symbol = QRSymbol::encode("BCD\n001\n1\nSCT\n\nOrvane\nDE89370400440532013000");
    ASSERT_TRUE(symbol.has_value());
    std::string svg;
    cairo_surface_t* surface = cairo_svg_surface_create_for_stream(
        [](void* closure, const unsigned char* data, unsigned int length) {
            static_cast<std::string*>(closure)->append(reinterpret_cast<const char*>(data), length);
            return CAIRO_STATUS_SUCCESS;
        },
        &svg, 130.0, 130.0);
    cairo_t* cr = cairo_create(surface);
    QRSymbolStyle style;
    style.swissCross = true;
    drawQRSymbol(cr, *symbol, {0.0, 0.0, 130.4, 130.4}, style);
    cairo_destroy(cr);
    cairo_surface_finish(surface);
    cairo_surface_destroy(surface);
    EXPECT_NE(svg.find("<path"), std::string::npos);
    EXPECT_EQ(svg.find("<image"), std::string::npos);
}

TEST(PaymentCodeDrawingTest, CodeBoundsAreInsetAndIntegral) {
    DrawingRect inset = codeBounds({10.3, 20.6, 100.2, 50.0});
    // 11.3 → 11, 21.6 → 21; the far edges 109.5 → 110 and 69.6 → 70.
    EXPECT_EQ(inset.x, 11.0);
    EXPECT_EQ(inset.y, 21.0);
    EXPECT_EQ(inset.width, 99.0);
    EXPECT_EQ(inset.height, 49.0);
}

TEST(PaymentCodeDrawingTest, InvalidSwissCodeDrawsTheWarningOverTheElement) {
    BLSwissPaymentCode code;
    code.setSettings({Value(Value::Dictionary{{"parameterName", Value("IBAN")}, {"value", Value("CH00")}})});
    Canvas canvas(200, 200);
    // No substitution values (the editor): the code shows, and warns.
    EXPECT_EQ(drawPaymentCode(canvas.cr(), code, {0.0, 0.0, 200.0, 200.0}, {}), PaymentCodeDrawing::Warning);
    // The middle of the sign is its yellow ground, left of the exclamation mark.
    EXPECT_EQ(canvas.pixel(80, 130), 0xFFCC00U);

    // A colour is refused: the Swiss code stays black.
    PaymentCodeAppearance red{true, DrawingColor{1.0, 0.0, 0.0}, false};
    Canvas second(200, 200);
    drawPaymentCode(second.cr(), code, {0.0, 0.0, 200.0, 200.0}, red);
    EXPECT_EQ(second.pixel(2, 2), kBlack);
}

TEST(PaymentCodeDrawingTest, HiddenCodeDrawsNothing) {
    BLSwissPaymentCode code;
    code.substituteValues({});  // Values without a document: nothing to pay.
    Canvas canvas(50, 50);
    EXPECT_EQ(drawPaymentCode(canvas.cr(), code, {0.0, 0.0, 50.0, 50.0}, {}), PaymentCodeDrawing::Hidden);
    EXPECT_EQ(canvas.pixel(25, 25), kGrey);
}

}  // namespace
}  // namespace brassline
