#include "money/MoneyCommands.h"

#include <iostream>
#include <memory>
#include <string>

#include <CLI/CLI.hpp>

#include "app/cli/Commands.h"

namespace brassline::cli {

// The rates and taxes commands register here; their work is in money/MoneyCommands, where
// the tests reach it.
void addMoneyCommands(CLI::App& app, int& exitCode) {
    {
        auto path = std::make_shared<std::string>();
        auto update = std::make_shared<bool>(false);
        CLI::App* command = app.add_subcommand(
            "rates", "Show the currencies with their rounding digits and rates against the book currency");
        command->add_option("path", *path, "The company file")->required();
        command->add_flag("--update", *update,
                          "Fetch the latest rates from the service set in \"ExchangeRatesServiceURL\" first");
        command->callback(
            [path, update, &exitCode] { exitCode = moneycommands::rates(*path, *update, std::cout, std::cerr); });
    }
    {
        auto path = std::make_shared<std::string>();
        CLI::App* command =
            app.add_subcommand("taxes", "Show the tax matrix: tax groups by client groups, one rule per cell");
        command->add_option("path", *path, "The company file")->required();
        command->callback([path, &exitCode] { exitCode = moneycommands::taxes(*path, std::cout, std::cerr); });
    }
}

}  // namespace brassline::cli
