#include <CLI/CLI.hpp>

#include <cstdlib>

#include "app/cli/Commands.h"
#include "core/Log.h"

int main(int argc, char** argv) {
    CLI::App app{"brassline: write and track invoices, estimates and payments in a company file"};
    app.set_version_flag("--version", "brassline 0.1");
    app.require_subcommand(1);
    // Commands print their own messages; the diagnostic log joins them on request.
    brassline::setLogEchoesToStandardError(std::getenv("BRASSLINE_VERBOSE") != nullptr);
    int exitCode = 0;
    brassline::cli::addValueCommands(app, exitCode);
    brassline::cli::addStoreCommands(app, exitCode);
    brassline::cli::addContactCommands(app, exitCode);
    brassline::cli::addMoneyCommands(app, exitCode);
    brassline::cli::addItemCommands(app, exitCode);
    brassline::cli::addNumberCommands(app, exitCode);
    CLI11_PARSE(app, argc, argv);
    return exitCode;
}
