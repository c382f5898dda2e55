// Fuzzes the script host: arbitrary text runs in a context set up with the full script API
// over a small in-memory company (a client, an invoice with lines). Every run must end,
// by finishing, an exception or the time limit, without a crash; the document must stay
// usable for the next. Globals that write files, reach the network or open windows are
// taken away first, so that the fuzzer can't spray the machine with files.
#include <cstdint>
#include <memory>
#include <string>

#include "core/Log.h"
#include "model/ManagedObjectContext.h"
#include "model/RunLoop.h"
#include "model/entities/BLClient.h"
#include "model/entities/BLCost.h"
#include "model/entities/BLInvoice.h"
#include "model/entities/gen/BrasslineModel.h"
#include "money/ItemHooks.h"
#include "plugins/BLJSContext.h"
#include "plugins/BLJSLogger.h"
#include "plugins/PluginHooks.h"

namespace {

using namespace brassline;

constexpr const char* kSandbox =
    "['writeToURL','writeDataToFile','writeCSVToURL','createFolderAtURL','loadURL','loadURLtoURL',"
    "'openSQLiteDatabase','launchURL'].forEach(function (name) { delete this[name]; }, this);"
    "Object.defineProperty(brassline, 'SQLite', {value: null}); Object.defineProperty(brassline, 'fileManager', "
    "{value: null});";

// The company and one context over it serve 200 inputs, then both are made anew: an
// engine per input would measure the engine's start rather than the host.
struct Company {
    std::unique_ptr<ManagedObjectContext> context;
    std::unique_ptr<BLJSContext> script;
    int runs = 0;

    Company() {
        context = std::make_unique<ManagedObjectContext>(gen::brasslineModel());
        auto* client = BLClient::insertInManagedObjectContext(*context);
        client->setOrganization(std::string("Acme"));
        client->setUid(std::string("client-1"));
        auto* invoice = BLInvoice::insertInManagedObjectContext(*context);
        invoice->setUid(std::string("invoice-1"));
        invoice->setContact(client);
        for (int i = 0; i < 3; ++i) {
            auto* line = BLCost::insertInManagedObjectContext(*context);
            line->setUnitPrice(Decimal(19) + Decimal(i));
            line->setQuantity(Decimal(i + 1));
            line->setParent(invoice);
        }
        script = std::make_unique<BLJSContext>();
        script->setTimeLimit(0.2);
        script->setupForPlugin({{"uid", Value("fuzz")}, {"type", Value("fuzz")}}, context.get());
        script->evaluateScript(kSandbox, false);
    }
    ~Company() { script.reset(); }
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static const bool quiet = [] {
        setLogEchoesToStandardError(false);
        installItemHooks();
        installPluginHooks();
        return true;
    }();
    (void)quiet;
    static std::unique_ptr<Company> company;
    // A fresh company now and then, so that what the runs inserted doesn't pile up.
    if (!company || ++company->runs > 200) {
        company.reset();
        RunLoop::resetMainForTesting();
        company = std::make_unique<Company>();
    }
    BLJSLogger::sharedLogger().reset("fuzz");
    company->script->evaluateScript(std::string(reinterpret_cast<const char*>(data), size));
    // The document must still answer after whatever the run did.
    company->context->processPendingChanges();
    return 0;
}
