// Payment codes on pages: a layout pass over many invoices builds one payload and draws one
// symbol per document. Goals: payload and symbol under half a millisecond; the symbol on a
// finished one-page PDF (cairo compresses the page) under 5 ms, so that 1,000 documents
// spend a few seconds at most on their codes.
#include <string>

#include <benchmark/benchmark.h>
#include <cairo-pdf.h>
#include <cairo.h>

#include "layout/BLSwissPaymentCode.h"
#include "layout/PaymentCodeDrawing.h"
#include "layout/QRSymbol.h"

namespace {

using brassline::BLSwissPaymentCode;
using brassline::Value;

Value constant(const char* name, const char* value) {
    return Value(Value::Dictionary{{"parameterName", Value(name)}, {"value", Value(value)}});
}

BLSwissPaymentCode swissCode() {
    BLSwissPaymentCode code;
    code.setSettings({constant("IBAN", "CH93 0076 2011 6238 5295 7"), constant("name", "Orvane Works S\u00E0rl"),
                      constant("street", "Rue du Lac 1268"), constant("zip", "2501"), constant("city", "Biel"),
                      constant("countryCode", "CH"), constant("amount", "3949.75"), constant("currency", "CHF"),
                      constant("reason", "Rechnung RE-2026-00042 \u00FCber Gartenarbeiten")});
    code.substituteValues({{"recipient.organizationOrName", Value("Pia-Maria Rutschmann-Schnyder")},
                           {"recipient.street", Value("Grosse Marktgasse 28")},
                           {"recipient.zip", Value("9400")},
                           {"recipient.city", Value("Rorschach")}});
    return code;
}

cairo_status_t discard(void*, const unsigned char*, unsigned int) {
    return CAIRO_STATUS_SUCCESS;
}

void BM_SwissPayload(benchmark::State& state) {
    BLSwissPaymentCode code = swissCode();
    for (auto _ : state) {
        benchmark::DoNotOptimize(code.URL());
    }
}
BENCHMARK(BM_SwissPayload);

void BM_EncodeSwissSymbol(benchmark::State& state) {
    std::string payload = swissCode().URL();
    for (auto _ : state) {
        benchmark::DoNotOptimize(brassline::QRSymbol::encode(payload));
    }
}
BENCHMARK(BM_EncodeSwissSymbol);

// The symbol as the preview draws it: a 600-pixel image.
void BM_DrawSwissSymbolOnImage(benchmark::State& state) {
    std::optional<brassline::QRSymbol> symbol = brassline::QRSymbol::encode(swissCode().URL());
    cairo_surface_t* surface = cairo_image_surface_create(CAIRO_FORMAT_RGB24, 600, 600);
    cairo_t* cr = cairo_create(surface);
    brassline::QRSymbolStyle style;
    style.swissCross = true;
    for (auto _ : state) {
        brassline::drawQRSymbol(cr, *symbol, {0.0, 0.0, 600.0, 600.0}, style);
    }
    cairo_destroy(cr);
    cairo_surface_destroy(surface);
}
BENCHMARK(BM_DrawSwissSymbolOnImage);

// The whole step on paper: payload, symbol, vector modules and cross on a 46 mm element,
// and the one-page PDF finished (drawPaymentCode adds the display rules, which need a
// document in a store).
void BM_SwissCodeOnePagePDF(benchmark::State& state) {
    BLSwissPaymentCode code = swissCode();
    const double side = 46.0 / 25.4 * 72.0;
    brassline::QRSymbolStyle style;
    style.swissCross = true;
    for (auto _ : state) {
        cairo_surface_t* surface = cairo_pdf_surface_create_for_stream(discard, nullptr, 595.0, 842.0);
        cairo_t* cr = cairo_create(surface);
        std::optional<brassline::QRSymbol> symbol = brassline::QRSymbol::encode(code.URL());
        brassline::drawQRSymbol(cr, *symbol, brassline::codeBounds({180.0, 600.0, side + 2.0, side + 2.0}), style);
        cairo_destroy(cr);
        cairo_surface_finish(surface);
        cairo_surface_destroy(surface);
    }
}
BENCHMARK(BM_SwissCodeOnePagePDF);

// The same page without the code: what the PDF costs by itself.
void BM_EmptyOnePagePDF(benchmark::State& state) {
    for (auto _ : state) {
        cairo_surface_t* surface = cairo_pdf_surface_create_for_stream(discard, nullptr, 595.0, 842.0);
        cairo_t* cr = cairo_create(surface);
        cairo_destroy(cr);
        cairo_surface_finish(surface);
        cairo_surface_destroy(surface);
    }
}
BENCHMARK(BM_EmptyOnePagePDF);

}  // namespace

BENCHMARK_MAIN();
