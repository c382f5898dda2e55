// Several programs writing one company file: two processes inserting 1,000 clients each,
// one client a save as a command line run makes it, against one process inserting 2,000.
// The saves are serial under the write lock either way; what sharing adds is each save
// taking in the other writer's saves and the hand-over of the lock. No save may fail
// (failedWriters stays 0): a writer waits instead of being refused.

#include <filesystem>
#include <string>
#include <vector>

#include <benchmark/benchmark.h>
#include <sys/wait.h>
#include <unistd.h>

#include "core/Log.h"
#include "model/ManagedObjectContext.h"
#include "model/RunLoop.h"
#include "model/UndoManager.h"
#include "store/SQLiteStore.h"
#include "testmodel/gen/TestModel.h"

namespace {

using namespace brassline;
namespace fs = std::filesystem;

constexpr int kClients = 2000;

std::string benchPath() {
    return (fs::temp_directory_path() / ("brassline-bench-writers-" + std::to_string(::getpid())) / "Shared.brassline")
        .string();
}

SQLiteStore::Options options(int writer) {
    SQLiteStore::Options result;
    result.deviceIdentifier = "Writer" + std::to_string(writer);
    // Generous: a refusal would end the run with a failure instead of a time.
    result.busyTimeoutMilliseconds = 60000;
    return result;
}

// One writer's share: its clients, one save each. Answers the saves that failed.
int insertClients(const std::string& path, int writer, int count) {
    std::unique_ptr<SQLiteStore> store = SQLiteStore::open(path, gen::testModel(), options(writer));
    if (!store) {
        return count;
    }
    ManagedObjectContext context(gen::testModel(), std::move(store));
    context.setUndoManager(nullptr);
    int failed = 0;
    for (int i = 0; i < count; ++i) {
        ManagedObject* client = context.insertNewObjectForEntityForName("Client");
        client->setValueForKey(Value("Client " + std::to_string(writer) + "-" + std::to_string(i)), "name");
        failed += context.save() ? 0 : 1;
    }
    return failed;
}

void BM_WritersShareOneFile(benchmark::State& state) {
    const int writers = static_cast<int>(state.range(0));
    const std::string path = benchPath();
    setLogEchoesToStandardError(false);
    setLogFilePath("");
    int failures = 0;
    for (auto _ : state) {
        state.PauseTiming();
        std::error_code code;
        fs::remove_all(path, code);
        fs::create_directories(fs::path(path).parent_path(), code);
        SQLiteStore::create(path, gen::testModel(), options(0));
        state.ResumeTiming();
        std::vector<pid_t> children;
        for (int writer = 0; writer < writers; ++writer) {
            pid_t child = ::fork();
            if (child == 0) {
                RunLoop::resetMainForTesting();
                ::_exit(insertClients(path, writer, kClients / writers) == 0 ? 0 : 1);
            }
            children.push_back(child);
        }
        for (pid_t child : children) {
            int status = 0;
            ::waitpid(child, &status, 0);
            failures += WIFEXITED(status) && WEXITSTATUS(status) == 0 ? 0 : 1;
        }
    }
    state.counters["failedWriters"] = failures;
    state.counters["savesPerSecond"] = benchmark::Counter(
        static_cast<double>(kClients) * static_cast<double>(state.iterations()), benchmark::Counter::kIsRate);
    std::error_code code;
    fs::remove_all(fs::path(path).parent_path(), code);
}
BENCHMARK(BM_WritersShareOneFile)->Arg(1)->Arg(2)->Unit(benchmark::kMillisecond)->Iterations(3)->UseRealTime();

}  // namespace

BENCHMARK_MAIN();
