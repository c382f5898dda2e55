#include <filesystem>
#include <memory>
#include <string>

#include <benchmark/benchmark.h>
#include <unistd.h>

#include "lifecycle/LifecycleHooks.h"
#include "model/ManagedObjectContext.h"
#include "model/RunLoop.h"
#include "model/UndoManager.h"
#include "model/entities/BLClient.h"
#include "model/entities/BLCost.h"
#include "model/entities/BLCurrency.h"
#include "model/entities/BLInvoice.h"
#include "model/entities/BLTaxRule.h"
#include "model/entities/gen/BrasslineModel.h"
#include "money/ItemHooks.h"
#include "plugins/BLJSContext.h"
#include "plugins/InterchangeRecords.h"
#include "plugins/PluginHooks.h"
#include "store/BLDoc.h"

namespace brassline {
namespace {

// An invoice of `lines` lines under a client, at cent prices under a 19 % rule, a discount
// on every third line.
BLInvoice* makeInvoice(ManagedObjectContext& context, int lines) {
    auto* client = BLClient::insertInManagedObjectContext(context);
    client->setOrganization(std::string("Acme"));
    auto* euro = BLCurrency::insertInManagedObjectContext(context);
    euro->setName(std::string("EUR"));
    auto* rule = BLTaxRule::insertInManagedObjectContext(context);
    rule->setTax1mode(int16_t{1});
    rule->setTax1value(Decimal(19));
    auto* invoice = BLInvoice::insertInManagedObjectContext(context);
    invoice->setCurrency(euro);
    invoice->setContact(client);
    for (int i = 0; i < lines; ++i) {
        BLCost* cost = BLCost::insertInManagedObjectContext(context);
        cost->setName("Line " + std::to_string(i));
        cost->setQuantity(Decimal(i % 4 + 1));
        cost->setUnitPrice(Decimal::fromParts(1999 + static_cast<unsigned>(i), -2, false));
        if (i % 3 == 0) {
            cost->setDiscount(Decimal(5));
        }
        cost->setParent(invoice);
        cost->setTaxRule(rule);
    }
    context.processPendingChanges();
    return invoice;
}

// The interchange record of an invoice of 100 lines (goal: under 1 ms), totals cached as a
// document has them once shown, and cold (every cache dropped first).
void BM_InterchangeRecordOf100LineInvoice(benchmark::State& state) {
    RunLoop::resetMainForTesting();
    installItemHooks();
    ManagedObjectContext context(gen::brasslineModel());
    context.setUndoManager(nullptr);
    BLInvoice* invoice = makeInvoice(context, 100);
    const bool cold = state.range(0) != 0;
    for (auto _ : state) {
        if (cold) {
            state.PauseTiming();
            invoice->holdfastResetCacheValues();
            for (BLContainer* child : invoice->childs()) {
                child->holdfastResetCacheValues();
            }
            state.ResumeTiming();
        }
        benchmark::DoNotOptimize(interchangeRecord(*invoice));
    }
    RunLoop::resetMainForTesting();
}
BENCHMARK(BM_InterchangeRecordOf100LineInvoice)->Arg(0)->Arg(1)->Unit(benchmark::kMicrosecond);

// A context with the full script API over a document, running an empty plug-in (goal:
// under 5 ms).
void BM_ContextWithFullAPIRunsEmptyPlugin(benchmark::State& state) {
    RunLoop::resetMainForTesting();
    ManagedObjectContext document(gen::brasslineModel());
    document.setUndoManager(nullptr);
    for (auto _ : state) {
        BLJSContext context;
        context.setupForPlugin({{"uid", Value("bench")}, {"type", Value("bench")}, {"source", Value("")}}, &document);
        benchmark::DoNotOptimize(context.runPlugin());
    }
    RunLoop::resetMainForTesting();
}
BENCHMARK(BM_ContextWithFullAPIRunsEmptyPlugin)->Unit(benchmark::kMillisecond);

// A script that inserts 1,000 invoices of 30 lines each into a company file, and the save
// of the file after it.
void BM_ScriptInserts1000InvoicesOf30LinesAndSaves(benchmark::State& state) {
    namespace fs = std::filesystem;
    installItemHooks();
    installLifecycleHooks();
    installPluginHooks();
    const std::string script = R"JS(
        var client = insertRecord('Client');
        client.organization = 'Acme';
        for (var n = 0; n < 1000; ++n) {
            var invoice = insertRecord('Invoice');
            invoice.contact = client;
            invoice.parentDocument = client;
            invoice.subject = 'Invoice ' + n;
            for (var i = 0; i < 30; ++i) {
                var line = insertRecord('Cost');
                line.name = 'Line ' + i;
                line.quantity = (i % 4) + 1;
                line.unitPrice = '19.' + (10 + i);
                line.parent = invoice;
            }
        }
    )JS";
    for (auto _ : state) {
        state.PauseTiming();
        RunLoop::resetMainForTesting();
        const fs::path folder = fs::temp_directory_path() / ("bench-plugins-" + std::to_string(::getpid()));
        fs::remove_all(folder);
        fs::create_directories(folder);
        std::unique_ptr<BLDoc> document = BLDoc::create((folder / "Bench.brassline").string(), {});
        if (!document) {
            state.SkipWithError("the company file can't be made");
            break;
        }
        state.ResumeTiming();
        {
            BLJSContext context;
            context.setupForPlugin({{"uid", Value("bench")}, {"type", Value("bench")}},
                                   &document->managedObjectContext());
            context.evaluateScript(script);
            if (!context.lastOutcome().succeeded()) {
                state.SkipWithError(context.lastOutcome().message.c_str());
                break;
            }
        }
        const bool saved = document->save();
        state.PauseTiming();
        if (!saved) {
            state.SkipWithError("the company file can't be saved");
        }
        document.reset();
        RunLoop::resetMainForTesting();
        fs::remove_all(folder);
        state.ResumeTiming();
    }
}
BENCHMARK(BM_ScriptInserts1000InvoicesOf30LinesAndSaves)->Unit(benchmark::kSecond)->Iterations(1);

}  // namespace
}  // namespace brassline

BENCHMARK_MAIN();
