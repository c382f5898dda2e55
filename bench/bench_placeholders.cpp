#include <memory>
#include <string>

#include <benchmark/benchmark.h>

#include "core/ValueTransformers.h"
#include "lifecycle/DocumentTexts.h"
#include "lifecycle/Substitution.h"
#include "lifecycle/SubstitutionCache.h"
#include "model/ManagedObjectContext.h"
#include "model/RunLoop.h"
#include "model/UndoManager.h"
#include "model/entities/BLClient.h"
#include "model/entities/BLCost.h"
#include "model/entities/BLCurrency.h"
#include "model/entities/BLInvoice.h"
#include "model/entities/gen/BrasslineModel.h"
#include "money/ItemHooks.h"

namespace brassline {
namespace {

struct Fixture {
    std::unique_ptr<ManagedObjectContext> context;
    BLInvoice* invoice = nullptr;
};

// An issued invoice of a client with `lines` lines at cent prices, a discount on every
// third line.
Fixture makeInvoice(int lines) {
    RunLoop::resetMainForTesting();
    installItemHooks();
    setCurrentFormattingLocale("en_US");
    Fixture fixture;
    fixture.context = std::make_unique<ManagedObjectContext>(gen::brasslineModel());
    fixture.context->setUndoManager(nullptr);
    BLCurrency* euro = BLCurrency::insertInManagedObjectContext(*fixture.context);
    euro->setName(std::string("EUR"));
    BLClient* client = BLClient::insertInManagedObjectContext(*fixture.context);
    client->setFirstName(std::string("Ada"));
    client->setLastName(std::string("Lovelace"));
    BLInvoice* invoice = BLInvoice::insertInManagedObjectContext(*fixture.context);
    invoice->setCurrency(euro);
    invoice->setParentDocument(client);
    invoice->setName(std::string("RE-0042"));
    invoice->setDateSent(Date::dateWithYear(2026, 3, 5));
    invoice->setDateDue(Date::dateWithYear(2026, 4, 4));
    for (int i = 0; i < lines; ++i) {
        BLCost* cost = BLCost::insertInManagedObjectContext(*fixture.context);
        cost->setQuantity(Decimal(i % 4 + 1));
        cost->setUnitPrice(Decimal::fromParts(1999 + static_cast<unsigned>(i), -2, false));
        if (i % 3 == 0) {
            cost->setDiscount(Decimal(5));
        }
        cost->setParent(invoice);
    }
    fixture.context->processPendingChanges();
    RunLoop::resetMainForTesting();
    // The item group fetch runs on the main thread only: this thread is it.
    RunLoop::main();
    fixture.invoice = invoice;
    return fixture;
}

// The whole document dictionary, built afresh each time (no cache, totals cold).
void BM_InvoiceDictionaryCold(benchmark::State& state) {
    Fixture fixture = makeInvoice(static_cast<int>(state.range(0)));
    for (auto _ : state) {
        state.PauseTiming();
        fixture.invoice->holdfastResetCacheValues();
        BLSubstitutionCache::resetForTesting();
        state.ResumeTiming();
        SubstitutionDictionary dictionary = buildDocumentSubstitutionDictionary(*fixture.invoice);
        benchmark::DoNotOptimize(dictionary);
    }
}
BENCHMARK(BM_InvoiceDictionaryCold)->Arg(100)->Unit(benchmark::kMicrosecond);

// A text of about 2,000 characters holding 50 tags, filled from a finished dictionary.
void BM_FillText(benchmark::State& state) {
    Fixture fixture = makeInvoice(100);
    SubstitutionDictionary dictionary = buildDocumentSubstitutionDictionary(*fixture.invoice);
    const char* keys[] = {"document.number", "recipient.lastname", "document.costwithtaxes", "document.sent",
                          "missing.key"};
    std::string text;
    for (int i = 0; i < 50; ++i) {
        text += "Dolor sit amet, <";
        text += keys[i % 5];
        text += "/> ";
    }
    while (text.size() < 2000) {
        text += "Lorem ipsum. ";
    }
    state.counters["characters"] = static_cast<double>(text.size());
    for (auto _ : state) {
        std::string filled = fillTags(text, dictionary);
        benchmark::DoNotOptimize(filled);
    }
}
BENCHMARK(BM_FillText)->Unit(benchmark::kMicrosecond);

}  // namespace
}  // namespace brassline

BENCHMARK_MAIN();
