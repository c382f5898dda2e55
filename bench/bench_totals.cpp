#include <memory>
#include <vector>

#include <benchmark/benchmark.h>

#include "model/ManagedObjectContext.h"
#include "model/RunLoop.h"
#include "model/UndoManager.h"
#include "model/entities/BLCost.h"
#include "model/entities/BLCurrency.h"
#include "model/entities/BLInvoice.h"
#include "model/entities/gen/BrasslineModel.h"
#include "money/ItemHooks.h"

namespace brassline {
namespace {

// Invoices in one context, each with `lines` lines at cent prices with a discount on
// every third line, so that the rounding and discount paths run.
struct InvoiceSet {
    std::unique_ptr<ManagedObjectContext> context;
    std::vector<BLInvoice*> invoices;
};

InvoiceSet makeInvoices(int count, int lines) {
    RunLoop::resetMainForTesting();
    installItemHooks();
    InvoiceSet set;
    set.context = std::make_unique<ManagedObjectContext>(gen::brasslineModel());
    set.context->setUndoManager(nullptr);
    BLCurrency* euro = BLCurrency::insertInManagedObjectContext(*set.context);
    euro->setName(std::string("EUR"));
    for (int n = 0; n < count; ++n) {
        BLInvoice* invoice = BLInvoice::insertInManagedObjectContext(*set.context);
        invoice->setCurrency(euro);
        for (int i = 0; i < lines; ++i) {
            BLCost* cost = BLCost::insertInManagedObjectContext(*set.context);
            cost->setQuantity(Decimal(i % 4 + 1));
            cost->setUnitPrice(Decimal::fromParts(1999 + static_cast<unsigned>(i), -2, false));
            if (i % 3 == 0) {
                cost->setDiscount(Decimal(5));
            }
            cost->setParent(invoice);
        }
        set.invoices.push_back(invoice);
    }
    set.context->processPendingChanges();
    RunLoop::resetMainForTesting();
    return set;
}

// Every invoice's caches dropped before each pass: the walk over all lines.
void BM_CostWithTaxesCold(benchmark::State& state) {
    InvoiceSet set = makeInvoices(static_cast<int>(state.range(0)), 10);
    for (auto _ : state) {
        state.PauseTiming();
        for (BLInvoice* invoice : set.invoices) {
            invoice->holdfastResetCacheValues();
        }
        state.ResumeTiming();
        Decimal total;
        for (BLInvoice* invoice : set.invoices) {
            total += invoice->costWithTaxes();
        }
        benchmark::DoNotOptimize(total);
    }
    state.SetItemsProcessed(state.iterations() * state.range(0));
}
BENCHMARK(BM_CostWithTaxesCold)->Arg(10000)->Unit(benchmark::kMillisecond);

// The same read again: each answer comes from the per-object cache.
void BM_CostWithTaxesCached(benchmark::State& state) {
    InvoiceSet set = makeInvoices(static_cast<int>(state.range(0)), 10);
    for (BLInvoice* invoice : set.invoices) {
        benchmark::DoNotOptimize(invoice->costWithTaxes());
    }
    for (auto _ : state) {
        Decimal total;
        for (BLInvoice* invoice : set.invoices) {
            total += invoice->costWithTaxes();
        }
        benchmark::DoNotOptimize(total);
    }
    state.SetItemsProcessed(state.iterations() * state.range(0));
}
BENCHMARK(BM_CostWithTaxesCached)->Arg(10000)->Unit(benchmark::kMillisecond);

// One invoice of 10,000 lines, cold.
void BM_CostWithTaxesLongInvoice(benchmark::State& state) {
    InvoiceSet set = makeInvoices(1, static_cast<int>(state.range(0)));
    BLInvoice* invoice = set.invoices.front();
    for (auto _ : state) {
        invoice->holdfastResetCacheValues();
        benchmark::DoNotOptimize(invoice->costWithTaxes());
    }
}
BENCHMARK(BM_CostWithTaxesLongInvoice)->Arg(10000)->Unit(benchmark::kMillisecond);

}  // namespace
}  // namespace brassline

BENCHMARK_MAIN();
