#pragma once

namespace CLI {
class App;
}

namespace brassline::cli {

// Each group of commands adds its subcommands to the application. A command reports
// failures on standard error and leaves a non-zero exit code in `exitCode`.
void addValueCommands(CLI::App& app, int& exitCode);
// new, info, insert, set, get, fetch, delete, export-sqlite on a company file.
void addStoreCommands(CLI::App& app, int& exitCode);
// vcard, address, clients.
void addContactCommands(CLI::App& app, int& exitCode);
// rates, taxes.
void addMoneyCommands(CLI::App& app, int& exitCode);
// items, totals.
void addItemCommands(CLI::App& app, int& exitCode);
// number, pattern.
void addNumberCommands(CLI::App& app, int& exitCode);
// issue, unlock, settle, transcripts.
void addIssueCommands(CLI::App& app, int& exitCode);
// convert, duplicate.
void addConversionCommands(CLI::App& app, int& exitCode);
// fill, dictionary.
void addPlaceholderCommands(CLI::App& app, int& exitCode);
// tags, placeholders.
void addTagCommands(CLI::App& app, int& exitCode);
// paymentcode.
void addPaymentCodeCommands(CLI::App& app, int& exitCode);
// record, script.
void addScriptCommands(CLI::App& app, int& exitCode);
// layout list, export, import, dump, paper.
void addLayoutCommands(CLI::App& app, int& exitCode);
// render-text.
void addTextCommands(CLI::App& app, int& exitCode);

}  // namespace brassline::cli
