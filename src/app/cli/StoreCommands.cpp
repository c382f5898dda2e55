#include <iostream>
#include <map>
#include <optional>
#include <string>

#include <CLI/CLI.hpp>

#include "app/cli/Commands.h"
#include "lifecycle/NumberPattern.h"
#include "lifecycle/NumberTokens.h"
#include "store/CommandFile.h"
#include "store/CompanyFileCommands.h"

namespace brassline::cli {

namespace {

// The stored kinds of the pattern options of `new`, with the options' names.
constexpr std::pair<const char*, const char*> kPatternOptions[] = {
    {"invoice", "--invoice-pattern"},
    {"estimate", "--estimate-pattern"},
    {"client", "--client-pattern"},
    {"project", "--project-pattern"},
    {"documents.filename", "--filename-pattern"},
    {"documents.directory", "--folder-pattern"},
};

// The patterns given to `new` as the lists set-up stores; false after a message on `err`
// when one does not read or names an unknown option.
bool readPatterns(const std::map<std::string, std::string>& given, Value::Dictionary& patterns, std::ostream& err) {
    for (const auto& [kind, json] : given) {
        std::string error;
        std::optional<NumberPattern> pattern = patternFromJSON(json, &error);
        for (const PatternElement& element : pattern ? *pattern : NumberPattern{}) {
            if (element.isToken && element.option && !isKnownTokenOption(*element.option)) {
                error = "unknown option \"" + *element.option + "\"";
                pattern.reset();
                break;
            }
        }
        if (!pattern) {
            err << "brassline: the " << kind << " pattern is refused: " << error << "\n";
            return false;
        }
        patterns[kind] = patternToList(*pattern);
    }
    return true;
}

void addNewCommand(CLI::App& app, int& exitCode) {
    struct Options {
        std::string path;
        bool notTaxable = false;
        companyfile::NewOptions setup;
        std::map<std::string, std::string> patterns;
    };
    auto options = std::make_shared<Options>();
    CLI::App* command = app.add_subcommand("new", "Create a company file with the first-run set-up");
    command->add_option("path", options->path, "The new package (Name.brassline)")->required();
    command->add_option("--vat-id", options->setup.vatID, "The firm's VAT identification number");
    command->add_flag("--taxable,!--not-taxable", options->setup.taxable,
                      "Whether the firm charges taxes (default: taxable)");
    command->add_flag("--gross-prices", options->setup.useGrossPrices, "Enter prices including taxes");
    command->add_option("--tax", options->setup.taxes, "A tax rate NAME=PERCENT (repeatable); the first is the default")
        ->allow_extra_args(false);
    for (const auto& [kind, name] : kPatternOptions) {
        command->add_option_function<std::string>(
            name, [options, kind = std::string(kind)](const std::string& json) { options->patterns[kind] = json; },
            std::string("The ") + kind + " pattern as JSON instead of the default, as `pattern --set` takes it");
    }
    command->callback([options, &exitCode] {
        if (!readPatterns(options->patterns, options->setup.patterns, std::cerr)) {
            exitCode = exitcode::kBadInput;
            return;
        }
        exitCode = companyfile::newFile(options->path, options->setup, std::cout, std::cerr);
    });
}

void addInfoCommand(CLI::App& app, int& exitCode) {
    auto path = std::make_shared<std::string>();
    auto json = std::make_shared<bool>(false);
    CLI::App* command = app.add_subcommand("info", "Show a company file's identity, model version and object counts");
    command->add_option("path", *path, "The company file")->required();
    command->add_flag("--json", *json, "Print one JSON object");
    command->callback([path, json, &exitCode] { exitCode = companyfile::info(*path, *json, std::cout, std::cerr); });
}

void addInsertCommand(CLI::App& app, int& exitCode) {
    struct Options {
        std::string path;
        std::string entity;
        std::vector<std::string> values;
    };
    auto options = std::make_shared<Options>();
    CLI::App* command = app.add_subcommand(
        "insert",
        "Insert an object as the user would (set-up, then each KEY=VALUE through its setter) and print its uid.\n"
        "Decimals as text (19.99), dates ISO 8601 (2026-11-22), bools yes/no/true/false/1/0,\n"
        "a to-one relationship the target's uid; an empty value clears the key");
    command->add_option("path", options->path, "The company file")->required();
    command->add_option("entity", options->entity, "Entity name (Client, Invoice, Cost, ...)")->required();
    command->add_option("values", options->values, "KEY=VALUE pairs, applied in order");
    command->callback([options, &exitCode] {
        exitCode = companyfile::insert(options->path, options->entity, options->values, std::cout, std::cerr);
    });
}

void addSetCommand(CLI::App& app, int& exitCode) {
    struct Options {
        std::string path;
        std::string uid;
        std::vector<std::string> values;
    };
    auto options = std::make_shared<Options>();
    CLI::App* command = app.add_subcommand("set", "Set values of an object through its setters");
    command->add_option("path", options->path, "The company file")->required();
    command->add_option("uid", options->uid, "The object's uid")->required();
    command->add_option("values", options->values, "KEY=VALUE pairs, applied in order")->required();
    command->callback([options, &exitCode] {
        exitCode = companyfile::set(options->path, options->uid, options->values, std::cout, std::cerr);
    });
}

void addGetCommand(CLI::App& app, int& exitCode) {
    struct Options {
        std::string path;
        std::string uid;
        std::vector<std::string> keyPaths;
        bool json = false;
    };
    auto options = std::make_shared<Options>();
    CLI::App* command =
        app.add_subcommand("get",
                           "Print values of an object by key path, one line each: decimals as text, dates ISO 8601,\n"
                           "bools 1/0, objects by uid, absent as an empty line, lists and dictionaries as JSON");
    command->add_option("path", options->path, "The company file")->required();
    command->add_option("uid", options->uid, "The object's uid")->required();
    command->add_option("keypaths", options->keyPaths, "Key paths (name, client.name, total, ...)")->required();
    command->add_flag("--json", options->json, "Print one JSON object by key path");
    command->callback([options, &exitCode] {
        exitCode =
            companyfile::get(options->path, options->uid, options->keyPaths, options->json, std::cout, std::cerr);
    });
}

void addFetchCommand(CLI::App& app, int& exitCode) {
    struct Options {
        std::string path;
        std::string entity;
        companyfile::FetchOptions fetch;
    };
    auto options = std::make_shared<Options>();
    CLI::App* command = app.add_subcommand(
        "fetch", "List the objects of an entity that match a predicate: uid and keys tab-separated, or JSON");
    command->add_option("path", options->path, "The company file")->required();
    command->add_option("entity", options->entity, "Entity name (abstract ones include their subentities)")->required();
    command->add_option("predicate", options->fetch.predicate, "A predicate such as \"name BEGINSWITH 'A'\"");
    command->add_option("--keys", options->fetch.keys, "Key paths to print, comma-separated")->delimiter(',');
    command->add_option("--sort", options->fetch.sort, "KEY or KEY:desc, comma-separated")->delimiter(',');
    command->add_flag("--json", options->fetch.json, "One JSON object per line");
    command->callback([options, &exitCode] {
        exitCode = companyfile::fetch(options->path, options->entity, options->fetch, std::cout, std::cerr);
    });
}

void addDeleteCommand(CLI::App& app, int& exitCode) {
    auto path = std::make_shared<std::string>();
    auto uid = std::make_shared<std::string>();
    CLI::App* command = app.add_subcommand("delete", "Delete an object (its delete rules apply)");
    command->add_option("path", *path, "The company file")->required();
    command->add_option("uid", *uid, "The object's uid")->required();
    command->callback([path, uid, &exitCode] { exitCode = companyfile::remove(*path, *uid, std::cout, std::cerr); });
}

void addExportCommand(CLI::App& app, int& exitCode) {
    auto path = std::make_shared<std::string>();
    auto out = std::make_shared<std::string>();
    CLI::App* command = app.add_subcommand("export-sqlite", "Write the whole company file to a plain SQLite database");
    command->add_option("path", *path, "The company file")->required();
    command->add_option("out", *out, "The SQLite file to write (outside any company file)")->required();
    auto force = std::make_shared<bool>(false);
    command->add_flag("--force", *force, "Replace an existing file");
    command->callback([path, out, force, &exitCode] {
        exitCode = companyfile::exportSQLite(*path, *out, std::cout, std::cerr, *force);
    });
}

void addURLCommand(CLI::App& app, int& exitCode) {
    auto path = std::make_shared<std::string>();
    auto url = std::make_shared<std::string>();
    CLI::App* command = app.add_subcommand(
        "url",
        "Run a brassline:// URL command on the company file: show?uid=UID, fixprofiles, fixeuro,\n"
        "fixzombies, fixduplicates, fixmissingvalues, fixclients, fixpreferences, fixcaches, fixdefaults,\n"
        "overview?select=UID, userdefaults?key=K&value=V, open?path=P; commands of features not built yet\n"
        "exit with 3; unknown ones are not supported");
    command->add_option("path", *path, "The company file")->required();
    command->add_option("url", *url, "The URL, such as brassline://show?uid=default.profile")->required();
    command->callback([path, url, &exitCode] { exitCode = companyfile::url(*path, *url, std::cout, std::cerr); });
}

void addRecentCommand(CLI::App& app, int& exitCode) {
    auto json = std::make_shared<bool>(false);
    CLI::App* command = app.add_subcommand("recent", "List the recently opened company files, newest first");
    command->add_flag("--json", *json, "One JSON object per line");
    command->callback([json, &exitCode] { exitCode = companyfile::recent(*json, std::cout, std::cerr); });
}

}  // namespace

void addStoreCommands(CLI::App& app, int& exitCode) {
    addNewCommand(app, exitCode);
    addInfoCommand(app, exitCode);
    addInsertCommand(app, exitCode);
    addSetCommand(app, exitCode);
    addGetCommand(app, exitCode);
    addFetchCommand(app, exitCode);
    addDeleteCommand(app, exitCode);
    addExportCommand(app, exitCode);
    addURLCommand(app, exitCode);
    addRecentCommand(app, exitCode);
}

}  // namespace brassline::cli
