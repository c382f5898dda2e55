#include <array>

#include <benchmark/benchmark.h>

#include "core/Decimal.h"

// Typical money operands: a price, a unit price, a tax rate and a quantity. The pairs
// rotate so that no single fast path dominates; every figure is per operation.

namespace {

using brassline::Decimal;

Decimal operand(const char* text) {
    return *Decimal::parse(text);
}

struct Operands {
    std::array<Decimal, 4> left = {operand("1234.56"), operand("19.99"), operand("0.19"), operand("3")};
    std::array<Decimal, 4> right = {operand("19.99"), operand("3"), operand("1234.56"), operand("0.19")};
    // The products of the pairs, the usual input of a rounding step.
    std::array<Decimal, 4> products = {operand("24678.8544"), operand("59.97"), operand("234.5664"), operand("0.57")};
};

template <typename Operation>
void runPairs(benchmark::State& state, Operation operation) {
    Operands operands;
    for (auto _ : state) {
        for (size_t i = 0; i < 4; ++i) {
            benchmark::DoNotOptimize(operands.left[i]);
            Decimal result = operation(operands.left[i], operands.right[i]);
            benchmark::DoNotOptimize(result);
        }
    }
    state.SetItemsProcessed(static_cast<int64_t>(state.iterations()) * 4);
}

void BM_DecimalAdd(benchmark::State& state) {
    runPairs(state, [](const Decimal& a, const Decimal& b) { return a + b; });
}

void BM_DecimalMultiply(benchmark::State& state) {
    runPairs(state, [](const Decimal& a, const Decimal& b) { return a * b; });
}

void BM_DecimalDivide(benchmark::State& state) {
    runPairs(state, [](const Decimal& a, const Decimal& b) { return a / b; });
}

void BM_DecimalFixedValue(benchmark::State& state) {
    Operands operands;
    for (auto _ : state) {
        for (size_t i = 0; i < 4; ++i) {
            benchmark::DoNotOptimize(operands.products[i]);
            Decimal result = operands.products[i].fixedValue();
            benchmark::DoNotOptimize(result);
        }
    }
    state.SetItemsProcessed(static_cast<int64_t>(state.iterations()) * 4);
}

}  // namespace

BENCHMARK(BM_DecimalAdd);
BENCHMARK(BM_DecimalMultiply);
BENCHMARK(BM_DecimalDivide);
BENCHMARK(BM_DecimalFixedValue);

BENCHMARK_MAIN();
