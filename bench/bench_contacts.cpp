// Finding IBANs in the free text of 10,000 bank transfers, as the payment matcher reads a
// statement: most texts hold one account number among invoice numbers and names, some
// none, some two, a few in other scripts.
#include <random>
#include <string>
#include <vector>

#include <benchmark/benchmark.h>

#include "core/BLParser.h"

namespace {

std::vector<std::string> transferTexts() {
    const std::vector<std::string> ibans = {"DE89370400440532013000", "CH9300762011623852957",
                                            "GB29NWBK60161331926819", "FR1420041010050500013M02606",
                                            "NL91ABNA0417164300",     "AT611904300234573201"};
    const std::vector<std::string> words = {"Rechnung",    "RE-2026-0042", "Miete",       "Danke",    "Invoice",
                                            "Müller GmbH", "Zahlung",      "Ref.",        "1.234,56", "EUR",
                                            "Facture",     "Überweisung",  "Kunde 10042", "virement", "оплата"};
    std::mt19937 random(11);
    std::vector<std::string> texts;
    texts.reserve(10000);
    for (int i = 0; i < 10000; ++i) {
        std::string text;
        const int length = 6 + static_cast<int>(random() % 14);
        for (int w = 0; w < length; ++w) {
            text += words[random() % words.size()];
            text += ' ';
            if (w == length / 2 && random() % 10 != 0) {
                text += ibans[random() % ibans.size()] + ' ';
            }
        }
        if (random() % 8 == 0) {
            text += "IBAN " + ibans[random() % ibans.size()];
        }
        texts.push_back(std::move(text));
    }
    return texts;
}

void BM_ExtractIBANs10000Texts(benchmark::State& state) {
    const std::vector<std::string> texts = transferTexts();
    size_t found = 0;
    for (auto _ : state) {
        found = 0;
        for (const std::string& text : texts) {
            found += brassline::extractIBANs(text).size();
        }
        benchmark::DoNotOptimize(found);
    }
    state.counters["ibans"] = static_cast<double>(found);
    state.SetItemsProcessed(static_cast<int64_t>(state.iterations()) * static_cast<int64_t>(texts.size()));
}
BENCHMARK(BM_ExtractIBANs10000Texts)->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
