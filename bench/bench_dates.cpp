// Calendar helpers as the document loops use them: 100,000 dates over ten years.
#include <random>
#include <vector>

#include <benchmark/benchmark.h>

#include "core/Date.h"
#include "core/Log.h"
#include "core/UniqueId.h"

namespace {

using brassline::Date;

std::vector<Date> documentDates() {
    std::mt19937_64 random(7);
    std::vector<Date> dates;
    dates.reserve(100000);
    for (int i = 0; i < 100000; ++i) {
        // 2016 to 2026, whole seconds.
        dates.emplace_back(473385600.0 + static_cast<double>(random() % (10ull * 365 * 86400)));
    }
    return dates;
}

void setZone() {
    brassline::TimeZone::setCurrent("Europe/Berlin");
}

void BM_DayStart(benchmark::State& state) {
    setZone();
    std::vector<Date> dates = documentDates();
    for (auto _ : state) {
        for (Date date : dates) {
            benchmark::DoNotOptimize(date.dayStart());
        }
    }
    state.SetItemsProcessed(state.iterations() * static_cast<int64_t>(dates.size()));
}
BENCHMARK(BM_DayStart)->Unit(benchmark::kMillisecond);

void BM_DaysSinceDate(benchmark::State& state) {
    setZone();
    std::vector<Date> dates = documentDates();
    Date today = Date::dateWithYear(2026, 5, 1);
    for (auto _ : state) {
        for (Date date : dates) {
            benchmark::DoNotOptimize(today.daysSinceDate(date));
        }
    }
    state.SetItemsProcessed(state.iterations() * static_cast<int64_t>(dates.size()));
}
BENCHMARK(BM_DaysSinceDate)->Unit(benchmark::kMillisecond);

void BM_DateByAddingDays(benchmark::State& state) {
    setZone();
    std::vector<Date> dates = documentDates();
    for (auto _ : state) {
        for (Date date : dates) {
            benchmark::DoNotOptimize(date.dateByAddingDays(30));
        }
    }
    state.SetItemsProcessed(state.iterations() * static_cast<int64_t>(dates.size()));
}
BENCHMARK(BM_DateByAddingDays)->Unit(benchmark::kMillisecond);

void BM_DateByAddingMonths(benchmark::State& state) {
    setZone();
    std::vector<Date> dates = documentDates();
    for (auto _ : state) {
        for (Date date : dates) {
            benchmark::DoNotOptimize(date.dateByAddingMonths(1));
        }
    }
    state.SetItemsProcessed(state.iterations() * static_cast<int64_t>(dates.size()));
}
BENCHMARK(BM_DateByAddingMonths)->Unit(benchmark::kMillisecond);

void BM_UniqueBase64String(benchmark::State& state) {
    for (auto _ : state) {
        benchmark::DoNotOptimize(brassline::uniqueBase64String());
    }
}
BENCHMARK(BM_UniqueBase64String);

void BM_FormatMessage(benchmark::State& state) {
    for (auto _ : state) {
        benchmark::DoNotOptimize(brassline::formatMessage("Invoice %@: %d items, %.2f", "RE-2024-001", 12, 99.5));
    }
}
BENCHMARK(BM_FormatMessage);

}  // namespace

BENCHMARK_MAIN();
