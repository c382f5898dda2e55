#include <cstdlib>

#include <CLI/CLI.hpp>

#include "app/cli/Commands.h"
#include "core/Log.h"
#include "layout/LayoutHooks.h"
#include "lifecycle/LifecycleHooks.h"
#include "money/ItemHooks.h"
#include "money/MoneyHooks.h"
#include "store/BLApplication.h"

int main(int argc, char** argv) {
    CLI::App app{"brassline: write and track invoices, estimates and payments in a company file"};
    app.set_version_flag("--version", "brassline 0.1");
    app.require_subcommand(1);
    // Commands print their own messages; the diagnostic log joins them on request.
    brassline::setLogEchoesToStandardError(std::getenv("BRASSLINE_VERBOSE") != nullptr);
    // Every subsystem answers the model's calls upward before any file opens, whichever
    // command runs: a client inserted by `insert` gets its number, a balance its totals.
    brassline::installMoneyHooks();
    brassline::installItemHooks();
    brassline::installLifecycleHooks();
    brassline::installLayoutHooks();
    // The process entry steps (user default keys, registered defaults) come first too.
    app.preparse_callback([](size_t) { brassline::BLApplication::processEntry(); });
    int exitCode = 0;
    brassline::cli::addValueCommands(app, exitCode);
    brassline::cli::addStoreCommands(app, exitCode);
    brassline::cli::addContactCommands(app, exitCode);
    brassline::cli::addMoneyCommands(app, exitCode);
    brassline::cli::addItemCommands(app, exitCode);
    brassline::cli::addNumberCommands(app, exitCode);
    brassline::cli::addIssueCommands(app, exitCode);
    brassline::cli::addConversionCommands(app, exitCode);
    brassline::cli::addPlaceholderCommands(app, exitCode);
    brassline::cli::addTagCommands(app, exitCode);
    brassline::cli::addLayoutCommands(app, exitCode);
    brassline::cli::addTextCommands(app, exitCode);
    CLI11_PARSE(app, argc, argv);
    return exitCode;
}
