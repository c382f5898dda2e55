#include "layout/LayoutCommands.h"

#include <iostream>
#include <memory>
#include <string>

#include <CLI/CLI.hpp>

#include "app/cli/Commands.h"

namespace brassline::cli {

// The layout commands register here; their work is in layout/LayoutCommands, where the
// tests reach it.
void addLayoutCommands(CLI::App& app, int& exitCode) {
    CLI::App* layout = app.add_subcommand("layout", "List, export, import, dump and size the page layouts");
    layout->require_subcommand(1);
    {
        auto path = std::make_shared<std::string>();
        auto json = std::make_shared<bool>(false);
        CLI::App* command = layout->add_subcommand("list", "Every layout: uid, name, paper size and name, usage");
        command->add_option("path", *path, "The company file")->required();
        command->add_flag("--json", *json, "One JSON array of layouts (uid, name, paperSize, paperName, usage)");
        command->callback(
            [path, json, &exitCode] { exitCode = layoutcommands::list(*path, *json, std::cout, std::cerr); });
    }
    {
        auto path = std::make_shared<std::string>();
        auto uid = std::make_shared<std::string>();
        auto out = std::make_shared<std::string>();
        CLI::App* command = layout->add_subcommand("export", "Write a layout as a layout package");
        command->add_option("path", *path, "The company file")->required();
        command->add_option("uid", *uid, "The layout's uid")->required();
        command->add_option("out", *out, "The package to write (NAME.brassline)")->required();
        command->callback([path, uid, out, &exitCode] {
            exitCode = layoutcommands::exportLayout(*path, *uid, *out, std::cout, std::cerr);
        });
    }
    {
        auto path = std::make_shared<std::string>();
        auto package = std::make_shared<std::string>();
        auto replace = std::make_shared<bool>(false);
        CLI::App* command = layout->add_subcommand("import", "Import a layout package into the company file");
        command->add_option("path", *path, "The company file")->required();
        command->add_option("package", *package, "The layout package (NAME.brassline)")->required();
        command->add_flag("--replace", *replace, "Replace a layout of the same name");
        command->callback([path, package, replace, &exitCode] {
            exitCode = layoutcommands::importPackage(*path, *package, *replace, std::cout, std::cerr);
        });
    }
    {
        auto path = std::make_shared<std::string>();
        auto uid = std::make_shared<std::string>();
        auto json = std::make_shared<bool>(false);
        CLI::App* command =
            layout->add_subcommand("dump", "The elements of every page and every table section of a layout");
        command->add_option("path", *path, "The company file")->required();
        command->add_option("uid", *uid, "The layout's uid")->required();
        command->add_flag("--json", *json, "One JSON object with \"pages\" and \"tableSections\"");
        command->callback([path, uid, json, &exitCode] {
            exitCode = layoutcommands::dump(*path, *uid, *json, std::cout, std::cerr);
        });
    }
    {
        auto path = std::make_shared<std::string>();
        auto uid = std::make_shared<std::string>();
        auto size = std::make_shared<std::string>();
        CLI::App* command = layout->add_subcommand("paper", "Show a layout's paper, or set it by name or size");
        command->add_option("path", *path, "The company file")->required();
        command->add_option("uid", *uid, "The layout's uid")->required();
        command->add_option("size", *size, "A paper name (A4, letter, ...) or a size \"{width, height}\" in points");
        command->callback([path, uid, size, &exitCode] {
            exitCode = layoutcommands::paper(*path, *uid, *size, std::cout, std::cerr);
        });
    }
}

}  // namespace brassline::cli
