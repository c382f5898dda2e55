// Fill-in detection on texts of the size a lead or a long line description reaches:
// all six finders with overlap settlement, and the bracket fields alone.
#include <string>

#include <benchmark/benchmark.h>

#include "lifecycle/PlaceHolderTokens.h"

namespace {

// About 2,000 characters of German and English with names, dates, places, addresses,
// numbers, links and quotes.
std::string mixedLead() {
    const std::string paragraph =
        "Sehr geehrte Frau Müller, wie besprochen liefern wir am 12. März 2025 an die Bäckerei Schäfer GmbH, "
        "Bahnhofstraße 5, 80335 München. Das Projekt „Grüne Wiese“ kostet 1.234,50 € zzgl. 19 % MwSt. "
        "Dear Mr. John Smith, the workshop on March 12, 2025 takes place at 221 Baker Street, London NW1 6XE, "
        "United Kingdom. Call +44 20 7946 0958 or see https://example.org/workshop. ";
    std::string text;
    while (text.size() < 2000) {
        text += paragraph;
    }
    return text;
}

// About 2,000 characters with 50 bracket fields.
std::string bracketText() {
    std::string text;
    for (int i = 0; i < 50; ++i) {
        text += "Leistung vom [Datum " + std::to_string(i) + "] bei Kunde Müller in Köln, ";
    }
    return text;
}

void BM_AnalyzeString(benchmark::State& state) {
    const std::string text = mixedLead();
    for (auto _ : state) {
        benchmark::DoNotOptimize(brassline::analyzeString(text));
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * text.size()));
}
BENCHMARK(BM_AnalyzeString)->Unit(benchmark::kMicrosecond);

void BM_BracketFields(benchmark::State& state) {
    const std::string text = bracketText();
    for (auto _ : state) {
        benchmark::DoNotOptimize(brassline::placeHolderRanges(text));
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * text.size()));
}
BENCHMARK(BM_BracketFields)->Unit(benchmark::kMicrosecond);

}  // namespace

BENCHMARK_MAIN();
