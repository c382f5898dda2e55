#include "layout/TextCommands.h"

#include <iostream>
#include <memory>
#include <string>

#include <CLI/CLI.hpp>

#include "app/cli/Commands.h"

namespace brassline::cli {

void addTextCommands(CLI::App& app, int& exitCode) {
    auto text = std::make_shared<std::string>();
    auto width = std::make_shared<double>(0.0);
    auto font = std::make_shared<std::string>();
    auto hyphenate = std::make_shared<bool>(false);
    auto json = std::make_shared<bool>(false);
    CLI::App* command =
        app.add_subcommand("render-text", "The height of a text at a width and its lines as broken there");
    command->add_option("text", *text, "The text; a line break starts a new paragraph")->required();
    command->add_option("--width", *width, "The width in points")->required();
    command->add_option("--font", *font, "The font as \"Family Size\", \"Family Bold Size\" (Helvetica 12)");
    command->add_flag("--hyphenate", *hyphenate, "Break words at soft hyphens and show the hyphen");
    command->add_flag("--json", *json, "One JSON object {\"height\": ..., \"lines\": [...]}");
    command->callback([text, width, font, hyphenate, json, &exitCode] {
        exitCode = textcommands::renderText(*text, *width, *font, *hyphenate, *json, std::cout, std::cerr);
    });
}

}  // namespace brassline::cli
