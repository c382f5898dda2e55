// The company-file store against plain SQLite: saving 10,000 invoices of 10 lines each,
// opening that file into a context (reading every object's uid), and reading the same
// rows with bare SQLite calls into a vector of structs. The goal: opening within three
// times the bare read. Then the same company with 1,000 storages of 200 kB: opening it
// with the large bytes left in the file and with them read at open, time and memory.

#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include <benchmark/benchmark.h>
#include <malloc.h>
#include <sqlite3.h>
#include <unistd.h>

#include "core/Log.h"
#include "model/FetchRequest.h"
#include "model/ManagedObjectContext.h"
#include "model/UndoManager.h"
#include "store/CompanyPackage.h"
#include "store/SQLiteStore.h"
#include "testmodel/gen/TestModel.h"

namespace {

using namespace brassline;
namespace fs = std::filesystem;

constexpr int kInvoices = 10000;
constexpr int kLinesPerInvoice = 10;
constexpr int kClients = 100;

std::string benchFolder() {
    return (fs::temp_directory_path() / ("brassline-bench-store-" + std::to_string(::getpid()))).string();
}

SQLiteStore::Options options() {
    SQLiteStore::Options result;
    result.deviceIdentifier = "Bench";
    return result;
}

// Fills a new package and saves it in one save; answers the object count.
size_t writeCompany(const std::string& path) {
    std::error_code code;
    fs::remove_all(path, code);
    std::unique_ptr<SQLiteStore> store = SQLiteStore::create(path, gen::testModel(), options());
    if (!store) {
        return 0;
    }
    ManagedObjectContext context(gen::testModel(), std::move(store));
    context.setUndoManager(nullptr);
    std::vector<ManagedObject*> clients;
    for (int c = 0; c < kClients; ++c) {
        ManagedObject* client = context.insertNewObjectForEntityForName("Client");
        client->setValueForKey(Value("Client " + std::to_string(c)), "name");
        clients.push_back(client);
    }
    const RelationshipDescription& childs = *context.entityNamed("Invoice")->relationshipNamed("childs");
    for (int i = 0; i < kInvoices; ++i) {
        ManagedObject* invoice = context.insertNewObjectForEntityForName("Invoice");
        invoice->setValueForKey(Value("Invoice " + std::to_string(i)), "name");
        invoice->setValueForKey(Value(Date(7.0e8 + i * 3600.0)), "dateSent");
        invoice->setValueForKey(Value(Decimal(i % 10)), "discount");
        invoice->setValueForKey(Value(static_cast<Object*>(clients[static_cast<size_t>(i % kClients)])), "client");
        for (int l = 0; l < kLinesPerInvoice; ++l) {
            ManagedObject* line = context.insertNewObjectForEntityForName("Cost");
            line->setValueForKey(Value("Line " + std::to_string(l)), "name");
            line->setValueForKey(Value(Decimal(l + 1)), "quantity");
            line->setValueForKey(Value(*Decimal::parse("19.95")), "unitPrice");
            invoice->addObjectToRelationship(childs, line);
        }
    }
    size_t count = context.registeredObjectCount();
    return context.save() ? count : 0;
}

const std::string& companyPath() {
    static const std::string path = [] {
        std::string folder = benchFolder();
        fs::create_directories(folder);
        std::string company = folder + "/Bench.brassline";
        writeCompany(company);
        return company;
    }();
    return path;
}

void BM_InsertAndSave(benchmark::State& state) {
    const std::string path = benchFolder() + "/Save.brassline";
    fs::create_directories(benchFolder());
    size_t objects = 0;
    for (auto _ : state) {
        objects = writeCompany(path);
    }
    state.counters["objects"] = static_cast<double>(objects);
    std::error_code code;
    fs::remove_all(path, code);
}
BENCHMARK(BM_InsertAndSave)->Unit(benchmark::kMillisecond)->Iterations(2);

void BM_OpenAndReadUids(benchmark::State& state) {
    const std::string& path = companyPath();
    size_t objects = 0;
    for (auto _ : state) {
        std::unique_ptr<SQLiteStore> store = SQLiteStore::open(path, gen::testModel(), options());
        auto context = std::make_unique<ManagedObjectContext>(gen::testModel(), std::move(store));
        size_t uidBytes = 0;
        std::vector<ManagedObject*> all =
            context->executeFetchRequest(FetchRequest("Base")).value_or(std::vector<ManagedObject*>{});
        for (ManagedObject* object : all) {
            uidBytes += object->valueForKey("uid").string()->size();
        }
        objects = all.size();
        benchmark::DoNotOptimize(uidBytes);
        // Closing the document is not part of opening it (nor is freeing the rows below).
        state.PauseTiming();
        context.reset();
        state.ResumeTiming();
    }
    state.counters["objects"] = static_cast<double>(objects);
}
BENCHMARK(BM_OpenAndReadUids)->Unit(benchmark::kMillisecond);

// Large data: the same invoices plus 1,000 storages of 200 kB each, one per invoice.
constexpr int kStorages = 1000;
constexpr size_t kStorageBytes = 200 * 1000;

const std::string& largeDataCompanyPath() {
    static const std::string path = [] {
        std::string folder = benchFolder();
        fs::create_directories(folder);
        std::string company = folder + "/LargeData.brassline";
        writeCompany(company);
        ManagedObjectContext context(gen::testModel(), SQLiteStore::open(company, gen::testModel(), options()));
        context.setUndoManager(nullptr);
        std::vector<ManagedObject*> invoices =
            context.executeFetchRequest(FetchRequest("Invoice")).value_or(std::vector<ManagedObject*>{});
        for (int i = 0; i < kStorages && i < static_cast<int>(invoices.size()); ++i) {
            ManagedObject* storage = context.insertNewObjectForEntityForName("Storage");
            storage->setValueForKey(Value(Bytes(kStorageBytes, static_cast<uint8_t>(i))), "data");
            storage->setValueForKey(Value(static_cast<Object*>(invoices[static_cast<size_t>(i)])), "invoice");
        }
        context.save();
        return company;
    }();
    return path;
}

size_t residentBytes() {
    std::ifstream statm("/proc/self/statm");
    size_t pages = 0;
    size_t resident = 0;
    statm >> pages >> resident;
    return resident * static_cast<size_t>(::sysconf(_SC_PAGESIZE));
}

// Opens the company at `path` into a context and reads every uid; answers the objects.
size_t openAndReadUids(const std::string& path, const SQLiteStore::Options& storeOptions,
                       std::unique_ptr<ManagedObjectContext>& context) {
    context = std::make_unique<ManagedObjectContext>(gen::testModel(),
                                                     SQLiteStore::open(path, gen::testModel(), storeOptions));
    size_t uidBytes = 0;
    std::vector<ManagedObject*> all =
        context->executeFetchRequest(FetchRequest("Base")).value_or(std::vector<ManagedObject*>{});
    for (ManagedObject* object : all) {
        const Value uid = object->valueForKey("uid");
        uidBytes += uid.string() != nullptr ? uid.string()->size() : 0;
    }
    benchmark::DoNotOptimize(uidBytes);
    return all.size();
}

// Opens the large-data company and reads every uid; state.range(0) 1 leaves the large
// bytes in the file, 0 reads them all at open. Counters: growth of the heap and of the
// resident set over one more open after the timed ones, in MB. That open starts from a
// trimmed heap; the timed ones don't, since refaulting the pages a trim gave back would
// be timed as well.
void BM_OpenLargeDataAndReadUids(benchmark::State& state) {
    const std::string& path = largeDataCompanyPath();
    SQLiteStore::Options storeOptions = options();
    storeOptions.deferLargeData = state.range(0) != 0;
    size_t objects = 0;
    std::unique_ptr<ManagedObjectContext> context;
    for (auto _ : state) {
        objects = openAndReadUids(path, storeOptions, context);
        state.PauseTiming();
        context.reset();
        state.ResumeTiming();
    }
    ::malloc_trim(0);
    const size_t heapBefore = ::mallinfo2().uordblks;
    const size_t residentBefore = residentBytes();
    openAndReadUids(path, storeOptions, context);
    state.counters["objects"] = static_cast<double>(objects);
    state.counters["heapMB"] = static_cast<double>(::mallinfo2().uordblks - heapBefore) / 1e6;
    state.counters["residentMB"] = (static_cast<double>(residentBytes()) - static_cast<double>(residentBefore)) / 1e6;
    context.reset();
}
BENCHMARK(BM_OpenLargeDataAndReadUids)->Arg(1)->Arg(0)->Unit(benchmark::kMillisecond)->Iterations(3);

// The same rows with bare SQLite: every column of both tables into plain structs.
struct InvoiceRow {
    int64_t number;
    std::string uid;
    std::string name;
    double dateSent;
    std::string discount;
    int64_t recurringMode;
    int64_t client;
};
struct LineRow {
    int64_t number;
    std::string uid;
    std::string name;
    std::string quantity;
    std::string unitPrice;
    int64_t parent;
    int64_t position;
};

std::string textColumn(sqlite3_stmt* statement, int column) {
    const auto* text = reinterpret_cast<const char*>(sqlite3_column_text(statement, column));
    return text != nullptr ? std::string(text, static_cast<size_t>(sqlite3_column_bytes(statement, column)))
                           : std::string();
}

void BM_PlainSQLiteRead(benchmark::State& state) {
    const std::string database = CompanyPackage::databasePath(companyPath());
    size_t rows = 0;
    for (auto _ : state) {
        sqlite3* db = nullptr;
        sqlite3_open_v2(database.c_str(), &db, SQLITE_OPEN_READONLY, nullptr);
        std::vector<InvoiceRow> invoices;
        std::vector<LineRow> lines;
        sqlite3_stmt* statement = nullptr;
        sqlite3_prepare_v2(db, "SELECT _number, uid, name, dateSent, discount, recurringMode, client_id FROM Invoice",
                           -1, &statement, nullptr);
        while (sqlite3_step(statement) == SQLITE_ROW) {
            invoices.push_back({sqlite3_column_int64(statement, 0), textColumn(statement, 1), textColumn(statement, 2),
                                sqlite3_column_double(statement, 3), textColumn(statement, 4),
                                sqlite3_column_int64(statement, 5), sqlite3_column_int64(statement, 6)});
        }
        sqlite3_finalize(statement);
        sqlite3_prepare_v2(db, "SELECT _number, uid, name, quantity, unitPrice, parent_id, parent_position FROM Cost",
                           -1, &statement, nullptr);
        while (sqlite3_step(statement) == SQLITE_ROW) {
            lines.push_back({sqlite3_column_int64(statement, 0), textColumn(statement, 1), textColumn(statement, 2),
                             textColumn(statement, 3), textColumn(statement, 4), sqlite3_column_int64(statement, 5),
                             sqlite3_column_int64(statement, 6)});
        }
        sqlite3_finalize(statement);
        sqlite3_close(db);
        rows = invoices.size() + lines.size();
        benchmark::DoNotOptimize(invoices.data());
        benchmark::DoNotOptimize(lines.data());
        state.PauseTiming();
        invoices = {};
        lines = {};
        state.ResumeTiming();
    }
    state.counters["rows"] = static_cast<double>(rows);
}
BENCHMARK(BM_PlainSQLiteRead)->Unit(benchmark::kMillisecond);

}  // namespace

int main(int argc, char** argv) {
    setLogEchoesToStandardError(false);
    setLogFilePath("");
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    std::error_code code;
    fs::remove_all(benchFolder(), code);
    return 0;
}
