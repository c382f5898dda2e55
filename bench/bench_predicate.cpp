#include <memory>
#include <vector>

#include <benchmark/benchmark.h>

#include "model/Predicate.h"

namespace brassline {
namespace {

// Light objects shaped like a document with its client: the predicate reads one key
// through a to-one relationship and one directly.
class BenchClient : public Object {
public:
    explicit BenchClient(std::string name) : m_name(std::move(name)) {}
    Value valueForKey(std::string_view key) const override { return key == "name" ? Value(m_name) : Value(); }
    std::string_view className() const override { return "BenchClient"; }

private:
    std::string m_name;
};

class BenchDocument : public Object {
public:
    BenchDocument(BenchClient* client, std::optional<Date> dateSent) : m_client(client), m_dateSent(dateSent) {}
    Value valueForKey(std::string_view key) const override {
        if (key == "client") {
            return Value(static_cast<Object*>(m_client));
        }
        if (key == "dateSent") {
            return m_dateSent ? Value(*m_dateSent) : Value();
        }
        return Value();
    }
    std::string_view className() const override { return "BenchDocument"; }

private:
    BenchClient* m_client;
    std::optional<Date> m_dateSent;
};

constexpr int kObjects = 100000;

void evaluateOver(benchmark::State& state, const char* format) {
    const char* names[] = {"Müller & Söhne GmbH", "Schmidt Bau AG",     "Café Zürich",  "Dupont et Fils SARL",
                           "MÜLLER Logistik",     "Nordwind Handel KG", "Ærø Shipping", "Weiß Elektro"};
    std::vector<std::unique_ptr<BenchClient>> clients;
    for (const char* name : names) {
        clients.push_back(std::make_unique<BenchClient>(name));
    }
    std::vector<std::unique_ptr<BenchDocument>> documents;
    std::vector<Value> values;
    for (int i = 0; i < kObjects; ++i) {
        std::optional<Date> sent;
        if (i % 3 != 0) {
            sent = Date(700000000.0 + i);
        }
        documents.push_back(std::make_unique<BenchDocument>(clients[i % clients.size()].get(), sent));
        values.emplace_back(static_cast<Object*>(documents.back().get()));
    }
    auto predicate = Predicate::parse(format);
    if (!predicate) {
        state.SkipWithError("predicate does not parse");
        return;
    }
    int64_t matched = 0;
    for (auto _ : state) {
        for (const Value& value : values) {
            matched += predicate->evaluate(value) ? 1 : 0;
        }
    }
    benchmark::DoNotOptimize(matched);
    state.SetItemsProcessed(state.iterations() * kObjects);
    state.counters["matched"] = static_cast<double>(matched) / static_cast<double>(state.iterations());
}

void BM_ContainsDiacriticInsensitive(benchmark::State& state) {
    evaluateOver(state, "client.name CONTAINS[cd] 'mül' AND dateSent != nil");
}
BENCHMARK(BM_ContainsDiacriticInsensitive)->Unit(benchmark::kMillisecond);

void BM_ParseOnly(benchmark::State& state) {
    for (auto _ : state) {
        auto predicate = Predicate::parse("client.name CONTAINS[cd] 'mül' AND (dateSent != nil OR total > 100.50)");
        benchmark::DoNotOptimize(predicate);
    }
}
BENCHMARK(BM_ParseOnly);

}  // namespace
}  // namespace brassline

BENCHMARK_MAIN();
