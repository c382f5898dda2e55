#include "money/ContactCommands.h"

#include <iostream>
#include <memory>
#include <string>

#include <CLI/CLI.hpp>

#include "app/cli/Commands.h"

namespace brassline::cli {

// The vcard, address and clients commands register here; their work is in
// money/ContactCommands, where the tests reach it.
void addContactCommands(CLI::App& app, int& exitCode) {
    {
        auto path = std::make_shared<std::string>();
        auto uid = std::make_shared<std::string>();
        CLI::App* command = app.add_subcommand("vcard", "Print a contact's vCard (3.0) text");
        command->add_option("path", *path, "The company file")->required();
        command->add_option("uid", *uid, "The contact's uid")->required();
        command->callback(
            [path, uid, &exitCode] { exitCode = contactcommands::vcard(*path, *uid, std::cout, std::cerr); });
    }
    {
        auto path = std::make_shared<std::string>();
        auto uid = std::make_shared<std::string>();
        CLI::App* command = app.add_subcommand(
            "address", "Print a contact's address as documents print it (non-breaking spaces inside lines)");
        command->add_option("path", *path, "The company file")->required();
        command->add_option("uid", *uid, "The contact's uid")->required();
        command->callback(
            [path, uid, &exitCode] { exitCode = contactcommands::address(*path, *uid, std::cout, std::cerr); });
    }
    {
        auto path = std::make_shared<std::string>();
        auto json = std::make_shared<bool>(false);
        CLI::App* command = app.add_subcommand(
            "clients", "List the clients: number, display name and open balance by currency, tab-separated");
        command->add_option("path", *path, "The company file")->required();
        command->add_flag("--json", *json, "One JSON object per client (uid, number, displayName, balance)");
        command->callback(
            [path, json, &exitCode] { exitCode = contactcommands::clients(*path, *json, std::cout, std::cerr); });
    }
}

}  // namespace brassline::cli
