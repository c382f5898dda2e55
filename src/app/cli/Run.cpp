#include "app/cli/Run.h"

#include <algorithm>
#include <cstdlib>
#include <functional>

#include <CLI/CLI.hpp>

#include "app/cli/Commands.h"
#include "core/Log.h"
#include "layout/LayoutHooks.h"
#include "layout/ZPPaymentCodeNumberTransformers.h"
#include "lifecycle/LifecycleHooks.h"
#include "money/ItemHooks.h"
#include "money/MoneyHooks.h"
#include "plugins/PluginHooks.h"
#include "store/BLApplication.h"

namespace brassline::cli {

namespace {

bool looksLikeOption(const std::string& argument) {
    return argument.size() > 1 && argument.front() == '-';
}

const CLI::App* commandNamed(const CLI::App& app, const std::string& name) {
    std::vector<const CLI::App*> found = app.get_subcommands(
        std::function<bool(const CLI::App*)>([&name](const CLI::App* command) { return command->check_name(name); }));
    return found.empty() ? nullptr : found.front();
}

}  // namespace

std::vector<std::string> protectDashedPositionals(const CLI::App& app, std::vector<std::string> arguments) {
    auto named = std::find_if(arguments.begin(), arguments.end(), [&app](const std::string& argument) {
        return !looksLikeOption(argument) && commandNamed(app, argument) != nullptr;
    });
    if (named == arguments.end()) {
        return arguments;
    }
    const CLI::App* command = commandNamed(app, *named);
    std::vector<std::string> options;
    std::vector<std::string> positionals;
    bool dashed = false;
    for (auto it = named + 1; it != arguments.end(); ++it) {
        if (*it == "--") {
            positionals.insert(positionals.end(), it + 1, arguments.end());
            break;
        }
        if (!looksLikeOption(*it)) {
            positionals.push_back(*it);
            continue;
        }
        const size_t equals = it->find('=');
        const std::string name = it->substr(0, equals);
        const CLI::Option* option = command->get_option_no_throw(name);
        if (option == nullptr) {
            // Not one of the command's options: a value that happens to begin with "-".
            positionals.push_back(*it);
            dashed = true;
            continue;
        }
        options.push_back(*it);
        // An option that takes a value and has none after "=" takes the next argument,
        // whatever it begins with.
        if (equals == std::string::npos && option->get_expected_max() > 0 && it + 1 != arguments.end()) {
            ++it;
            options.push_back(*it);
        }
    }
    if (!dashed) {
        return arguments;
    }
    std::vector<std::string> ordered(arguments.begin(), named + 1);
    ordered.insert(ordered.end(), options.begin(), options.end());
    ordered.emplace_back("--");
    ordered.insert(ordered.end(), positionals.begin(), positionals.end());
    return ordered;
}

int run(std::vector<std::string> arguments) {
    CLI::App app{"brassline: write and track invoices, estimates and payments in a company file"};
    app.set_version_flag("--version", "brassline 0.1");
    app.require_subcommand(1);
    // Commands print their own messages; the diagnostic log joins them on request.
    setLogEchoesToStandardError(std::getenv("BRASSLINE_VERBOSE") != nullptr);
    // Every subsystem answers the model's calls upward before any file opens, whichever
    // command runs: a client inserted by `insert` gets its number, a balance its totals.
    installMoneyHooks();
    installItemHooks();
    installLifecycleHooks();
    installLayoutHooks();
    installPaymentCodeHooks();
    installPluginHooks();
    // The process entry steps (user default keys, registered defaults) come first too.
    app.preparse_callback([](size_t) { BLApplication::processEntry(); });
    int exitCode = 0;
    addValueCommands(app, exitCode);
    addStoreCommands(app, exitCode);
    addContactCommands(app, exitCode);
    addMoneyCommands(app, exitCode);
    addItemCommands(app, exitCode);
    addNumberCommands(app, exitCode);
    addIssueCommands(app, exitCode);
    addConversionCommands(app, exitCode);
    addPlaceholderCommands(app, exitCode);
    addTagCommands(app, exitCode);
    addLayoutCommands(app, exitCode);
    addTextCommands(app, exitCode);
    addPaymentCodeCommands(app, exitCode);
    addScriptCommands(app, exitCode);

    if (!arguments.empty()) {
        app.name(arguments.front());
        arguments.erase(arguments.begin());
    }
    arguments = protectDashedPositionals(app, std::move(arguments));
    // CLI11 reads the list from its end.
    std::reverse(arguments.begin(), arguments.end());
    try {
        app.parse(arguments);
    } catch (const CLI::ParseError& error) {
        return app.exit(error);
    }
    return exitCode;
}

}  // namespace brassline::cli
