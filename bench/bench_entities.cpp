#include <memory>

#include <benchmark/benchmark.h>

#include "model/ManagedObjectContext.h"
#include "model/PersistentStore.h"
#include "model/RunLoop.h"
#include "model/UndoManager.h"
#include "model/entities/BLClient.h"
#include "model/entities/BLContextState.h"
#include "model/entities/BLCost.h"
#include "model/entities/BLGroup.h"
#include "model/entities/BLInvoice.h"
#include "model/entities/gen/BrasslineModel.h"

namespace brassline {
namespace {

// An invoice of 1,000 lines in 100 groups of 10: the root clone copies every line, keeps
// the groups' order and links each clone to its source.
void BM_CloneInvoiceWithThousandItems(benchmark::State& state) {
    RunLoop::resetMainForTesting();
    auto context = std::make_unique<ManagedObjectContext>(gen::brasslineModel());
    context->setUndoManager(nullptr);
    BLInvoice* invoice = BLInvoice::insertInManagedObjectContext(*context);
    for (int g = 0; g < 100; ++g) {
        BLGroup* group = BLGroup::insertInManagedObjectContext(*context);
        group->setParent(invoice);
        for (int i = 0; i < 10; ++i) {
            BLCost* cost = BLCost::insertInManagedObjectContext(*context);
            cost->setQuantity(Decimal(i + 1));
            cost->setUnitPrice(Decimal(12));
            cost->setName(std::string("line"));
            cost->setParent(group);
        }
    }
    context->processPendingChanges();
    for (auto _ : state) {
        BLBase* copy = invoice->clone();
        benchmark::DoNotOptimize(copy);
        state.PauseTiming();
        copy->deleteObject();
        RunLoop::main().runUntilIdle();
        state.ResumeTiming();
    }
    state.SetItemsProcessed(state.iterations() * 1100);
    BLContextState::forgetContext(*context);
    RunLoop::resetMainForTesting();
}
BENCHMARK(BM_CloneInvoiceWithThousandItems)->Unit(benchmark::kMillisecond);

// countDocuments of a client with 10,000 invoices, the cache dropped before each count.
void BM_CountDocumentsOfTenThousand(benchmark::State& state) {
    RunLoop::resetMainForTesting();
    auto context = std::make_unique<ManagedObjectContext>(gen::brasslineModel());
    context->setUndoManager(nullptr);
    BLClient* client = BLClient::insertInManagedObjectContext(*context);
    for (int i = 0; i < 10000; ++i) {
        BLInvoice* invoice = BLInvoice::insertInManagedObjectContext(*context);
        invoice->gen::BLDocument::setParentDocument(client);
    }
    RunLoop::resetMainForTesting();
    for (auto _ : state) {
        state.PauseTiming();
        client->holdfastResetCacheValues();
        client->resetCachesDown();
        state.ResumeTiming();
        benchmark::DoNotOptimize(client->countDocuments());
    }
    state.SetItemsProcessed(state.iterations() * 10000);
    BLContextState::forgetContext(*context);
}
BENCHMARK(BM_CountDocumentsOfTenThousand)->Unit(benchmark::kMicrosecond);

// The same count answered from the cache.
void BM_CountDocumentsCached(benchmark::State& state) {
    RunLoop::resetMainForTesting();
    auto context = std::make_unique<ManagedObjectContext>(gen::brasslineModel());
    context->setUndoManager(nullptr);
    BLClient* client = BLClient::insertInManagedObjectContext(*context);
    for (int i = 0; i < 10000; ++i) {
        BLInvoice::insertInManagedObjectContext(*context)->gen::BLDocument::setParentDocument(client);
    }
    client->countDocuments();
    for (auto _ : state) {
        benchmark::DoNotOptimize(client->countDocuments());
    }
    BLContextState::forgetContext(*context);
}
BENCHMARK(BM_CountDocumentsCached);

}  // namespace
}  // namespace brassline

BENCHMARK_MAIN();
