#include "lifecycle/TagCommands.h"

#include <iostream>
#include <memory>
#include <string>

#include <CLI/CLI.hpp>

#include "app/cli/Commands.h"

namespace brassline::cli {

// The tags and placeholders commands register here; their work is in
// lifecycle/TagCommands, where the tests reach it.
void addTagCommands(CLI::App& app, int& exitCode) {
    {
        auto path = std::make_shared<std::string>();
        auto json = std::make_shared<bool>(false);
        CLI::App* command =
            app.add_subcommand("tags",
                               "List the layout tags of a company file by section (custom fields and item "
                               "groups included)");
        command->add_option("path", *path, "The company file")->required();
        command->add_flag("--json", *json, "One JSON array of sections (name, tags, sections)");
        command->callback(
            [path, json, &exitCode] { exitCode = tagcommands::tags(*path, *json, std::cout, std::cerr); });
    }
    {
        auto path = std::make_shared<std::string>();
        auto uid = std::make_shared<std::string>();
        auto json = std::make_shared<bool>(false);
        CLI::App* command = app.add_subcommand(
            "placeholders", "List a document's fill-in fields: bracket fields, and detected values in templates");
        command->add_option("path", *path, "The company file")->required();
        command->add_option("uid", *uid, "The document's uid")->required();
        command->add_flag("--json", *json, "One JSON array of fields (uid, field, text, fields, tokens)");
        command->callback([path, uid, json, &exitCode] {
            exitCode = tagcommands::placeholders(*path, *uid, *json, std::cout, std::cerr);
        });
    }
}

}  // namespace brassline::cli
