// Fuzzes the opening of a company file: each input is the database of a package whose
// Info.plist is valid, opened and loaded into a context the way a document opens it. A
// damaged database must be refused with a message or opened whole; it may not crash,
// hang or take memory in proportion to numbers it claims. With BRASSLINE_STORE_FUZZ_SEED
// set to a folder, the first call writes a small valid database there as a seed.
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <memory>
#include <string>

#include <unistd.h>

#include "core/Log.h"
#include "model/FetchRequest.h"
#include "model/ManagedObjectContext.h"
#include "model/RunLoop.h"
#include "model/entities/gen/BrasslineModel.h"
#include "store/CompanyPackage.h"
#include "store/SQLiteConnection.h"
#include "store/SQLiteStore.h"

namespace {

namespace fs = std::filesystem;
using namespace brassline;

struct Workspace {
    std::string folder;
    std::string package;
};

// A company with a few linked objects, saved with small pages so the seed stays short.
bool makeCompany(const std::string& package) {
    SQLiteStore::Options options;
    options.deviceIdentifier = "FuzzDevice";
    std::string error;
    std::unique_ptr<SQLiteStore> store = SQLiteStore::create(package, gen::brasslineModel(), options, &error);
    if (!store) {
        std::fprintf(stderr, "store_fuzz: %s\n", error.c_str());
        return false;
    }
    ManagedObjectContext context(gen::brasslineModel(), std::move(store));
    ManagedObject* client = context.insertNewObjectForEntityForName("Client");
    client->setValueForKey(Value("uid-client"), "uid");
    client->setValueForKey(Value("Acme"), "name");
    ManagedObject* invoice = context.insertNewObjectForEntityForName("Invoice");
    invoice->setValueForKey(Value("uid-invoice"), "uid");
    invoice->setValueForKey(Value("RE-001"), "name");
    invoice->setValueForKey(Value(static_cast<Object*>(client)), "parent");
    for (int i = 0; i < 3; ++i) {
        ManagedObject* line = context.insertNewObjectForEntityForName("Cost");
        line->setValueForKey(Value("line " + std::to_string(i)), "name");
        line->setValueForKey(Value(static_cast<Object*>(invoice)), "parent");
    }
    if (!context.save(&error)) {
        std::fprintf(stderr, "store_fuzz: %s\n", error.c_str());
        return false;
    }
    return true;
}

const Workspace& workspace() {
    static const Workspace instance = [] {
        Workspace made;
        std::string pattern = (fs::temp_directory_path() / "brassline-store-fuzz-XXXXXX").string();
        made.folder = ::mkdtemp(pattern.data()) != nullptr ? pattern : std::string();
        made.package = made.folder + "/Fuzz.brassline";
        RunLoop::main();
        if (!makeCompany(made.package)) {
            std::abort();
        }
        return made;
    }();
    return instance;
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int* argc, char*** argv) {
    (void)argc;
    (void)argv;
    brassline::setLogEchoesToStandardError(false);
    brassline::setLogFilePath("");
    const Workspace& place = workspace();
    if (const char* seedFolder = std::getenv("BRASSLINE_STORE_FUZZ_SEED")) {
        // Small pages and no free space: the seed holds every table in few bytes.
        const std::string seed = place.folder + "/Seed.brassline";
        if (!makeCompany(seed)) {
            std::abort();
        }
        SQLiteConnection db;
        if (!db.open(CompanyPackage::databasePath(seed), SQLiteConnection::Mode::ReadWrite) ||
            !db.execute("PRAGMA journal_mode = DELETE; PRAGMA page_size = 512; VACUUM")) {
            std::abort();
        }
        db.close();
        fs::create_directories(seedFolder);
        fs::copy_file(CompanyPackage::databasePath(seed), fs::path(seedFolder) / "company.sqlite",
                      fs::copy_options::overwrite_existing);
    }
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const Workspace& place = workspace();
    const std::string database = CompanyPackage::databasePath(place.package);
    std::error_code code;
    fs::remove(database + "-wal", code);
    fs::remove(database + "-shm", code);
    {
        std::ofstream out(database, std::ios::binary | std::ios::trunc);
        out.write(reinterpret_cast<const char*>(data), static_cast<std::streamsize>(size));
    }
    SQLiteStore::Options options;
    options.deviceIdentifier = "FuzzDevice";
    options.busyTimeoutMilliseconds = 0;
    std::string error;
    std::unique_ptr<SQLiteStore> store = SQLiteStore::open(place.package, gen::brasslineModel(), options, &error);
    if (!store) {
        if (error.empty()) {
            std::fprintf(stderr, "store_fuzz: refused without a message\n");
            std::abort();
        }
        return 0;
    }
    ManagedObjectContext context(gen::brasslineModel(), std::move(store));
    // Reading every client and its documents walks the relationships the load built.
    for (ManagedObject* client :
         context.executeFetchRequest(FetchRequest("Client")).value_or(std::vector<ManagedObject*>{})) {
        (void)client->valueForKeyPath("childs.@count");
        (void)client->valueForKey("name");
    }
    return 0;
}
