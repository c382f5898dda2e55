// The object runtime's hot paths: a fetch by uid among a million objects, a predicate
// through key-value coding over managed objects, and a collection operator over a tree.

#include <memory>
#include <string>
#include <vector>

#include <benchmark/benchmark.h>

#include "model/FetchRequest.h"
#include "model/ManagedObjectContext.h"
#include "model/Predicate.h"
#include "model/UndoManager.h"
#include "testmodel/TMClient.h"
#include "testmodel/TMCost.h"
#include "testmodel/TMInvoice.h"
#include "testmodel/TMLabel.h"
#include "testmodel/gen/TestModel.h"

namespace brassline {
namespace {

std::unique_ptr<ManagedObjectContext> makeContext() {
    auto context = std::make_unique<ManagedObjectContext>(gen::testModel());
    // Bulk set-up is not the user's to undo.
    context->setUndoManager(nullptr);
    return context;
}

struct MillionLabels {
    std::unique_ptr<ManagedObjectContext> context = makeContext();
    std::vector<std::string> uids;
    MillionLabels() {
        uids.reserve(1000000);
        for (int i = 0; i < 1000000; ++i) {
            TMLabel* label = TMLabel::insertInManagedObjectContext(*context);
            uids.push_back(*label->uid());
        }
    }
};

MillionLabels& millionLabels() {
    static MillionLabels* labels = new MillionLabels();
    return *labels;
}

void BM_ObjectWithUidAmongAMillion(benchmark::State& state) {
    MillionLabels& labels = millionLabels();
    const EntityDescription& entity = TMLabel::entityDescription();
    size_t i = 0;
    for (auto _ : state) {
        benchmark::DoNotOptimize(labels.context->objectWithUid(entity, labels.uids[i]));
        i = (i + 7919) % labels.uids.size();
    }
}
BENCHMARK(BM_ObjectWithUidAmongAMillion);

void BM_FetchUidEqualsAmongAMillion(benchmark::State& state) {
    MillionLabels& labels = millionLabels();
    std::vector<FetchRequest> requests;
    for (size_t i = 0; i < 1000; ++i) {
        FetchRequest request("Label");
        (void)request.setPredicateFormat("uid == %@", {Value(labels.uids[i * 997])});
        requests.push_back(std::move(request));
    }
    size_t i = 0;
    for (auto _ : state) {
        auto result = labels.context->executeFetchRequest(requests[i]);
        benchmark::DoNotOptimize(result);
        i = (i + 1) % requests.size();
    }
}
BENCHMARK(BM_FetchUidEqualsAmongAMillion);

void BM_PredicateOverManagedObjects(benchmark::State& state) {
    static std::unique_ptr<ManagedObjectContext> context = makeContext();
    static std::vector<Value> invoices;
    if (invoices.empty()) {
        const char* names[] = {"Müller GmbH", "Schmidt & Partner", "MUELLER AG", "Ottmüller KG", "Weber"};
        std::vector<TMClient*> clients;
        for (const char* name : names) {
            TMClient* client = TMClient::insertInManagedObjectContext(*context);
            client->setName(name);
            clients.push_back(client);
        }
        for (int i = 0; i < 100000; ++i) {
            TMInvoice* invoice = TMInvoice::insertInManagedObjectContext(*context);
            invoice->setClient(clients[static_cast<size_t>(i) % clients.size()]);
            if (i % 2 == 0) {
                invoice->setDateSent(Date(1000.0 * i));
            }
            invoices.emplace_back(static_cast<Object*>(invoice));
        }
    }
    std::optional<Predicate> predicate = Predicate::parse("client.name CONTAINS[cd] 'mül' AND dateSent != nil");
    size_t matches = 0;
    for (auto _ : state) {
        matches = 0;
        for (const Value& invoice : invoices) {
            matches += predicate->evaluate(invoice) ? 1 : 0;
        }
        benchmark::DoNotOptimize(matches);
    }
    state.SetItemsProcessed(static_cast<int64_t>(state.iterations() * invoices.size()));
    state.counters["matches"] = static_cast<double>(matches);
}
BENCHMARK(BM_PredicateOverManagedObjects)->Unit(benchmark::kMillisecond);

void BM_SumOfChildCosts(benchmark::State& state) {
    static std::unique_ptr<ManagedObjectContext> context = makeContext();
    static std::vector<TMInvoice*> invoices;
    if (invoices.empty()) {
        for (int i = 0; i < 1000; ++i) {
            TMInvoice* invoice = TMInvoice::insertInManagedObjectContext(*context);
            for (int j = 0; j < 10; ++j) {
                TMCost* line = TMCost::insertInManagedObjectContext(*context);
                line->setQuantity(Decimal(j + 1));
                line->setUnitPrice(Decimal::parse("12.35"));
                invoice->addChildsObject(line);
            }
            invoices.push_back(invoice);
        }
    }
    for (auto _ : state) {
        for (TMInvoice* invoice : invoices) {
            benchmark::DoNotOptimize(invoice->valueForKeyPath("childs.@sum.cost"));
        }
    }
    state.SetItemsProcessed(static_cast<int64_t>(state.iterations() * invoices.size()));
}
BENCHMARK(BM_SumOfChildCosts)->Unit(benchmark::kMicrosecond);

}  // namespace
}  // namespace brassline

BENCHMARK_MAIN();
