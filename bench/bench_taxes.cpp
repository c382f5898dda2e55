#include <memory>
#include <string>
#include <vector>

#include <benchmark/benchmark.h>

#include "model/ManagedObjectContext.h"
#include "model/RunLoop.h"
#include "model/UndoManager.h"
#include "model/entities/BLCost.h"
#include "model/entities/BLCurrency.h"
#include "model/entities/BLInvoice.h"
#include "model/entities/BLTaxRule.h"
#include "model/entities/gen/BrasslineModel.h"
#include "money/BLTaxCalculator.h"

namespace brassline {
namespace {

// One invoice with `lines` lines spread round-robin over `rules` tax rules; every fourth
// rule stacks a second slot so that both slot paths run.
struct TaxDocument {
    std::unique_ptr<ManagedObjectContext> context;
    BLInvoice* invoice = nullptr;
};

TaxDocument makeDocument(int lines, int rules, bool gross) {
    RunLoop::resetMainForTesting();
    TaxDocument document;
    document.context = std::make_unique<ManagedObjectContext>(gen::brasslineModel());
    document.context->setUndoManager(nullptr);
    BLCurrency* euro = BLCurrency::insertInManagedObjectContext(*document.context);
    euro->setName(std::string("EUR"));
    document.invoice = BLInvoice::insertInManagedObjectContext(*document.context);
    document.invoice->setCurrency(euro);
    document.invoice->setUseGrossPrices(gross);
    document.invoice->setDiscount(Decimal(3));
    std::vector<BLTaxRule*> taxRules;
    for (int n = 0; n < rules; ++n) {
        BLTaxRule* rule = BLTaxRule::insertInManagedObjectContext(*document.context);
        rule->setTax1mode(int16_t{1});
        rule->setTax1value(Decimal(n + 1));
        if (n % 4 == 0) {
            rule->setTax2mode(int16_t{2});
            rule->setTax2value(Decimal::fromParts(25, -1, false));
        }
        taxRules.push_back(rule);
    }
    for (int i = 0; i < lines; ++i) {
        BLCost* cost = BLCost::insertInManagedObjectContext(*document.context);
        cost->setQuantity(Decimal(i % 5 + 1));
        cost->setUnitPrice(Decimal::fromParts(1999 + static_cast<unsigned>(i % 997), -2, false));
        cost->setParent(document.invoice);
        cost->setTaxRule(taxRules[static_cast<size_t>(i % rules)]);
    }
    document.context->processPendingChanges();
    RunLoop::resetMainForTesting();
    return document;
}

// The whole tax table from cold line caches: every line's cost, the sums per rule and
// the tax of each rule.
void BM_TaxTable(benchmark::State& state) {
    TaxDocument document =
        makeDocument(static_cast<int>(state.range(0)), static_cast<int>(state.range(1)), state.range(2) != 0);
    std::vector<BLContainer*> lines = document.invoice->childsArray();
    for (auto _ : state) {
        state.PauseTiming();
        for (BLContainer* line : lines) {
            line->holdfastResetCacheValues();
        }
        document.invoice->holdfastResetCacheValues();
        state.ResumeTiming();
        std::vector<BLTaxCalculator> table = taxDictionary(*document.invoice);
        benchmark::DoNotOptimize(totalTax(table));
    }
    state.SetItemsProcessed(state.iterations() * state.range(0));
}
BENCHMARK(BM_TaxTable)->Args({10000, 20, 0})->Args({10000, 20, 1})->Unit(benchmark::kMillisecond);

}  // namespace
}  // namespace brassline

BENCHMARK_MAIN();
