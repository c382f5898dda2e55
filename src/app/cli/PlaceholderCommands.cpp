#include "lifecycle/PlaceholderCommands.h"

#include <iostream>
#include <memory>
#include <string>

#include <CLI/CLI.hpp>

#include "app/cli/Commands.h"

namespace brassline::cli {

void addPlaceholderCommands(CLI::App& app, int& exitCode) {
    struct FillOptions {
        std::string path;
        std::string uid;
        std::string text;
    };
    auto fill = std::make_shared<FillOptions>();
    CLI::App* fillCommand =
        app.add_subcommand("fill", "Print a text with every tag <key/> replaced from an object's substitution values");
    fillCommand->add_option("path", fill->path, "The company file")->required();
    fillCommand->add_option("uid", fill->uid, "The object's uid")->required();
    fillCommand->add_option("text", fill->text, "The text, such as \"Invoice <document.number/>\"")->required();
    fillCommand->callback([fill, &exitCode] {
        exitCode = placeholdercommands::fill(fill->path, fill->uid, fill->text, std::cout, std::cerr);
    });

    struct DictionaryOptions {
        std::string path;
        std::string uid;
        bool json = false;
    };
    auto dictionary = std::make_shared<DictionaryOptions>();
    CLI::App* dictionaryCommand =
        app.add_subcommand("dictionary", "Print an object's substitution values, one key and value a line");
    dictionaryCommand->add_option("path", dictionary->path, "The company file")->required();
    dictionaryCommand->add_option("uid", dictionary->uid, "The object's uid")->required();
    dictionaryCommand->add_flag("--json", dictionary->json, "One JSON object");
    dictionaryCommand->callback([dictionary, &exitCode] {
        exitCode =
            placeholdercommands::dictionary(dictionary->path, dictionary->uid, dictionary->json, std::cout, std::cerr);
    });
}

}  // namespace brassline::cli
