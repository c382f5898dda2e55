// Drawing invoice numbers in a company file that already holds 100,000 numbered
// invoices: 10,000 draws in a row, with a running counter and with a yearly counter
// that restarts at 1 on every draw and searches for the lowest free number.
#include <cstdio>
#include <memory>
#include <string>

#include <benchmark/benchmark.h>

#include "core/Date.h"
#include "core/ValueTransformers.h"
#include "lifecycle/Numbering.h"
#include "model/ManagedObjectContext.h"
#include "model/entities/BLInvoice.h"
#include "model/entities/gen/BrasslineModel.h"

namespace {

using namespace brassline;

constexpr int kExisting = 100000;
constexpr int kDraws = 10000;

PatternElement token(const char* field, const char* option) {
    return PatternElement::token(field, std::string(option));
}

// A context with 100,000 invoices of 2024 numbered "2024-00001" upwards, as the pattern
// below writes them.
std::unique_ptr<ManagedObjectContext> filledContext() {
    auto context = std::make_unique<ManagedObjectContext>(gen::brasslineModel());
    const Date sent = Date::dateWithYear(2024, 6, 1);
    char name[32];
    for (int i = 1; i <= kExisting; ++i) {
        BLInvoice* invoice = BLInvoice::insertInManagedObjectContext(*context);
        std::snprintf(name, sizeof name, "2024-%05d", i);
        invoice->setName(std::string(name));
        invoice->setDateSent(sent);
    }
    return context;
}

void draw(benchmark::State& state, const char* resetMode) {
    TimeZone::setCurrent("Europe/Berlin");
    setCurrentFormattingLocale("de_DE");
    Clock::setNow(Date::dateWithYear(2024, 7, 1));
    for (auto _ : state) {
        state.PauseTiming();
        std::unique_ptr<ManagedObjectContext> context = filledContext();
        std::vector<BLInvoice*> drafts;
        for (int i = 0; i < kDraws; ++i) {
            BLInvoice* invoice = BLInvoice::insertInManagedObjectContext(*context);
            invoice->setDateSent(Date::dateWithYear(2024, 7, 1));
            drafts.push_back(invoice);
        }
        Numbering numbering(*context);
        NumberingKind kind = *numberingKindForPrefsKey("invoice");
        numbering.setPattern(
            kind, {token("year", "ZPYear"), PatternElement::literal("-"), token("increment", "ZPIncrement5")});
        numbering.setCurrentCounter(kind, kExisting + 1);
        DocumentNumberingPreferences(*context).setValueForKeyPath(Value(resetMode), "invoice.numberResetMode");
        state.ResumeTiming();
        for (BLInvoice* invoice : drafts) {
            benchmark::DoNotOptimize(numbering.createNumber(*invoice));
        }
        state.PauseTiming();
        bool expected = drafts.back()->name() == std::optional<std::string>("2024-110000");
        context.reset();
        if (!expected) {
            state.SkipWithError("the last number drawn is not 2024-110000");
            break;
        }
        state.ResumeTiming();
    }
    state.SetItemsProcessed(state.iterations() * kDraws);
    Clock::setNow(std::nullopt);
}

void BM_DrawRunningCounter(benchmark::State& state) {
    draw(state, "never");
}
BENCHMARK(BM_DrawRunningCounter)->Unit(benchmark::kMillisecond)->Iterations(3);

void BM_DrawYearlyRestartingCounter(benchmark::State& state) {
    draw(state, "year");
}
BENCHMARK(BM_DrawYearlyRestartingCounter)->Unit(benchmark::kMillisecond)->Iterations(3);

}  // namespace

BENCHMARK_MAIN();
