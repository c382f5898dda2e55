#include "plugins/ScriptCommands.h"

#include <iostream>
#include <memory>
#include <string>

#include <CLI/CLI.hpp>

#include "app/cli/Commands.h"

namespace brassline::cli {

// The record and script commands register here; their work is in plugins/ScriptCommands,
// where the tests reach it.
void addScriptCommands(CLI::App& app, int& exitCode) {
    {
        auto path = std::make_shared<std::string>();
        auto uid = std::make_shared<std::string>();
        auto json = std::make_shared<bool>(false);
        CLI::App* command =
            app.add_subcommand("record", "Print the interchange record of an object, as plug-ins read it");
        command->add_option("path", *path, "The company file")->required();
        command->add_option("uid", *uid, "The object's uid")->required();
        command->add_flag("--json", *json, "One JSON object, keys in record order");
        command->callback([path, uid, json, &exitCode] {
            exitCode = scriptcommands::record(*path, *uid, *json, std::cout, std::cerr);
        });
    }
    {
        auto path = std::make_shared<std::string>();
        auto file = std::make_shared<std::string>();
        auto options = std::make_shared<scriptcommands::ScriptOptions>();
        CLI::App* command = app.add_subcommand(
            "script", "Run a JavaScript file against a company file; what it changes is saved when it ends well");
        command->add_option("path", *path, "The company file")->required();
        command->add_option("file", *file, "The script (.js)")->required();
        command->add_option("--document", options->documentUid, "The object the script's query holds, editable");
        command->add_option("--type", options->type, "The plug-in type the script runs as");
        command->add_option("--set", options->assignments, "A setting NAME=VALUE, set as a global (repeatable)");
        command->add_option("--timeout", options->timeoutSeconds, "Seconds before the script is stopped (30)");
        command->callback([path, file, options, &exitCode] {
            exitCode = scriptcommands::script(*path, *file, *options, std::cout, std::cerr);
        });
    }
}

}  // namespace brassline::cli
