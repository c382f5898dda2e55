#include <iostream>
#include <memory>
#include <string>

#include <CLI/CLI.hpp>

#include "app/cli/Commands.h"
#include "money/MoneyCommands.h"

namespace brassline::cli {

namespace {

struct DocumentOptions {
    std::string path;
    std::string uid;
    bool json = false;
};

using ReportCommand = int (*)(const std::string&, const std::string&, bool, std::ostream&, std::ostream&);

void addReportCommand(CLI::App& app, int& exitCode, const char* name, const char* description, ReportCommand report) {
    auto options = std::make_shared<DocumentOptions>();
    CLI::App* command = app.add_subcommand(name, description);
    command->add_option("path", options->path, "The company file")->required();
    command->add_option("document", options->uid, "The uid of the invoice, estimate or other document")->required();
    command->add_flag("--json", options->json, "Print one JSON object");
    command->callback([options, report, &exitCode] {
        exitCode = report(options->path, options->uid, options->json, std::cout, std::cerr);
    });
}

}  // namespace

void addItemCommands(CLI::App& app, int& exitCode) {
    addReportCommand(app, exitCode, "items",
                     "Print a document's item tree: position, entity, name, quantity x price, line amount",
                     moneycommands::items);
    addReportCommand(app, exitCode, "totals", "Print a document's net, tax, gross, discount and balance",
                     moneycommands::totals);
}

}  // namespace brassline::cli
