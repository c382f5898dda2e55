#include <iostream>
#include <memory>
#include <optional>
#include <string>

#include <CLI/CLI.hpp>

#include "app/cli/Commands.h"
#include "lifecycle/NumberingCommands.h"

namespace brassline::cli {

void addNumberCommands(CLI::App& app, int& exitCode) {
    struct NumberOptions {
        std::string path;
        std::string uid;
    };
    auto number = std::make_shared<NumberOptions>();
    CLI::App* numberCommand =
        app.add_subcommand("number", "Show the number an object has, or would get next without taking it");
    numberCommand->add_option("path", number->path, "The company file")->required();
    numberCommand->add_option("uid", number->uid, "The object's uid (invoice, estimate, follow-up, client, project)")
        ->required();
    numberCommand->callback([number, &exitCode] {
        exitCode = numbercommands::showNumber(number->path, number->uid, std::cout, std::cerr);
    });

    struct PatternOptions {
        std::string path;
        std::string kind;
        std::string json;
    };
    auto pattern = std::make_shared<PatternOptions>();
    CLI::App* patternCommand = app.add_subcommand("pattern", "Show or set a stored number or file pattern");
    patternCommand->add_option("path", pattern->path, "The company file")->required();
    patternCommand
        ->add_option("kind", pattern->kind,
                     "invoice, estimate, client, project, filename, directory or followUpType.<uid>")
        ->required();
    CLI::Option* set = patternCommand->add_option(
        "--set", pattern->json, "The new pattern as JSON: texts and records {\"field\": ..., \"option\": ...}");
    patternCommand->callback([pattern, set, &exitCode] {
        std::optional<std::string> json;
        if (set->count() > 0) {
            json = pattern->json;
        }
        exitCode = numbercommands::pattern(pattern->path, pattern->kind, json, std::cout, std::cerr);
    });
}

}  // namespace brassline::cli
