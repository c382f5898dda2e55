#include "lifecycle/ConversionCommands.h"

#include <iostream>
#include <memory>
#include <string>

#include <CLI/CLI.hpp>

#include "app/cli/Commands.h"

namespace brassline::cli {

void addConversionCommands(CLI::App& app, int& exitCode) {
    struct ConvertOptions {
        std::string path;
        std::string uid;
        std::string target;
    };
    auto convert = std::make_shared<ConvertOptions>();
    CLI::App* convertCommand = app.add_subcommand(
        "convert",
        "Make a new draft from a document: an invoice from an estimate, an estimate or a credit note "
        "from an invoice; prints the new document's uid");
    convertCommand->add_option("path", convert->path, "The company file")->required();
    convertCommand->add_option("uid", convert->uid, "The source document's uid")->required();
    convertCommand->add_option("target", convert->target, "invoice, estimate or credit-note")
        ->required()
        ->check(CLI::IsMember({"invoice", "estimate", "credit-note"}));
    convertCommand->callback([convert, &exitCode] {
        exitCode = conversioncommands::convert(convert->path, convert->uid, convert->target, std::cout, std::cerr);
    });

    struct DuplicateOptions {
        std::string path;
        std::string uid;
    };
    auto duplicate = std::make_shared<DuplicateOptions>();
    CLI::App* duplicateCommand = app.add_subcommand(
        "duplicate", "Make a fresh draft of an invoice or estimate beside it; prints the new document's uid");
    duplicateCommand->add_option("path", duplicate->path, "The company file")->required();
    duplicateCommand->add_option("uid", duplicate->uid, "The invoice's or estimate's uid")->required();
    duplicateCommand->callback([duplicate, &exitCode] {
        exitCode = conversioncommands::duplicate(duplicate->path, duplicate->uid, std::cout, std::cerr);
    });
}

}  // namespace brassline::cli
