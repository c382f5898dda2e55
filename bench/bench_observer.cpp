// The data observer on one batch of 100,000 changed objects: every payment's amount and
// archived flag change in one turn, the context announces the batch, the observer
// dispatches two handlers per object and posts each scheduled notification once. The
// setters run outside the timing; the timed part is the batch notice and the posts.

#include <vector>

#include <benchmark/benchmark.h>

#include "core/Decimal.h"
#include "core/Log.h"
#include "model/ManagedObjectContext.h"
#include "model/NotificationCenter.h"
#include "model/Notifications.h"
#include "model/RunLoop.h"
#include "model/UndoManager.h"
#include "model/entities/BLPayment.h"
#include "model/entities/gen/BrasslineModel.h"
#include "store/BLDataObserver.h"
#include "store/ObservationNames.h"

namespace {

using namespace brassline;

constexpr int kObjects = 100000;

void BM_ObserverBatch(benchmark::State& state) {
    RunLoop::main();
    ManagedObjectContext context(gen::brasslineModel());
    context.setUndoManager(nullptr);  // Undo is not what is measured.
    std::vector<BLPayment*> payments;
    payments.reserve(kObjects);
    for (int i = 0; i < kObjects; ++i) {
        payments.push_back(BLPayment::insertInManagedObjectContext(context));
    }
    RunLoop::main().runUntilIdle();

    BLDataObserver observer;
    observer.attach(context);
    int64_t posts = 0;
    int64_t statePosts = 0;
    NotificationCenter::Token token =
        NotificationCenter::defaultCenter().addObserver("", nullptr, [&](const Notification& note) {
            if (note.name != kObjectsDidChangeNotification) {
                ++posts;
                statePosts += note.name == kUpdateStateControllerNotification ? 1 : 0;
            }
        });
    int round = 0;
    for (auto _ : state) {
        state.PauseTiming();
        ++round;
        for (BLPayment* payment : payments) {
            payment->setAmount(Decimal(round));
            payment->setArchivedValue(round % 2 == 1);
        }
        state.ResumeTiming();
        context.processPendingChanges();
        RunLoop::main().runUntilIdle();
    }
    state.counters["posts_per_batch"] = static_cast<double>(posts) / static_cast<double>(state.iterations());
    state.counters["state_posts_per_batch"] = static_cast<double>(statePosts) / static_cast<double>(state.iterations());
    state.counters["objects"] = kObjects;
    NotificationCenter::defaultCenter().removeObserver(token);
    observer.detach();
}
BENCHMARK(BM_ObserverBatch)->Unit(benchmark::kMillisecond)->Iterations(10);

}  // namespace

BENCHMARK_MAIN();
