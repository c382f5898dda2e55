#include <iostream>
#include <memory>
#include <string>

#include <CLI/CLI.hpp>

#include "app/cli/Commands.h"
#include "model/ManagedObjectContext.h"
#include "model/entities/BLSendable.h"
#include "money/ItemReport.h"
#include "store/BLDoc.h"
#include "store/BLDocumentController.h"

namespace brassline::cli {

namespace {

struct DocumentOptions {
    std::string path;
    std::string uid;
    bool json = false;
};

// Opens the company file, finds the sendable and prints the report; closes the file
// again unless it was open before.
int runReport(const DocumentOptions& options, std::string (*report)(BLSendable&, bool)) {
    BLDocumentController& controller = BLDocumentController::shared();
    bool owned = controller.documentForURL(options.path) == nullptr;
    std::string error;
    BLDoc* file = controller.openDocumentWithContentsOfURL(options.path, &error);
    if (file == nullptr) {
        std::cerr << "brassline: " << error << "\n";
        return 1;
    }
    int code = 0;
    ManagedObjectContext& context = file->managedObjectContext();
    const EntityDescription* base = context.entityNamed("Base");
    ManagedObject* object = base != nullptr ? context.objectWithUid(*base, options.uid) : nullptr;
    if (object == nullptr) {
        std::cerr << "brassline: no object with uid '" << options.uid << "'\n";
        code = 1;
    } else if (!object->isKindOfEntity("Sendable")) {
        std::cerr << "brassline: '" << options.uid << "' is a " << object->entityName()
                  << ", not an invoice, estimate or other sendable document\n";
        code = 1;
    } else {
        std::cout << report(*static_cast<BLSendable*>(object), options.json);
    }
    if (owned) {
        controller.closeDocument(file);
    }
    return code;
}

void addReportCommand(CLI::App& app, int& exitCode, const char* name, const char* description,
                      std::string (*report)(BLSendable&, bool)) {
    auto options = std::make_shared<DocumentOptions>();
    CLI::App* command = app.add_subcommand(name, description);
    command->add_option("path", options->path, "The company file")->required();
    command->add_option("document", options->uid, "The uid of the invoice, estimate or other document")->required();
    command->add_flag("--json", options->json, "Print one JSON object");
    command->callback([options, report, &exitCode] { exitCode = runReport(*options, report); });
}

}  // namespace

void addItemCommands(CLI::App& app, int& exitCode) {
    addReportCommand(app, exitCode, "items",
                     "Print a document's item tree: position, entity, name, quantity x price, line amount",
                     itemTreeReport);
    addReportCommand(app, exitCode, "totals", "Print a document's net, tax, gross, discount and balance", totalsReport);
}

}  // namespace brassline::cli
