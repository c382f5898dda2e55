// Layout archive: the copies a long run of documents takes from the controller's cache,
// and a cold load of the default layout from its package.
#include <benchmark/benchmark.h>

#include "layout/BLLayoutController.h"
#include "layout/DefaultLayout.h"

namespace {

using brassline::BLLayoutController;
using brassline::Bytes;

// Each document takes its 15 sections and its 2 pages as private copies; the originals
// were archived once, on the first request.
void BM_CopiesFor1000Documents(benchmark::State& state) {
    const std::optional<Bytes> data = brassline::defaultLayoutData(false);
    BLLayoutController controller;
    controller.loadGT3Layout(data.value_or(Bytes()));
    for (auto _ : state) {
        for (int document = 0; document < 1000; ++document) {
            for (const std::string& identifier : BLLayoutController::tableOrder()) {
                benchmark::DoNotOptimize(controller.tableSectionViewForIdentifier(identifier));
            }
            benchmark::DoNotOptimize(controller.pageViewForIdentifier("firstpage"));
            benchmark::DoNotOptimize(controller.pageViewForIdentifier("middlepage"));
        }
    }
    state.SetItemsProcessed(state.iterations() * 1000);
}
BENCHMARK(BM_CopiesFor1000Documents)->Unit(benchmark::kMillisecond);

// Reading Data.plist of the default package and every load step.
void BM_ColdLoadOfTheDefaultLayout(benchmark::State& state) {
    for (auto _ : state) {
        const std::optional<Bytes> data = brassline::defaultLayoutData(false);
        BLLayoutController controller;
        controller.loadGT3Layout(data.value_or(Bytes()));
        benchmark::DoNotOptimize(controller.tableViews().size());
    }
}
BENCHMARK(BM_ColdLoadOfTheDefaultLayout)->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
