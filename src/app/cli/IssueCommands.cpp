#include "lifecycle/IssueCommands.h"

#include <iostream>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include <CLI/CLI.hpp>

#include "app/cli/Commands.h"

namespace brassline::cli {

void addIssueCommands(CLI::App& app, int& exitCode) {
    struct IssueArguments {
        std::string path;
        std::vector<std::string> uids;
        std::string date;
        int64_t payInterval = 0;
        std::string deliver;
    };
    auto issue = std::make_shared<IssueArguments>();
    CLI::App* issueCommand =
        app.add_subcommand("issue", "Issue documents: date, number and frozen copy, then deliver them");
    issueCommand->add_option("path", issue->path, "The company file")->required();
    issueCommand->add_option("uids", issue->uids, "The documents' uids, issued in this order")->required();
    CLI::Option* date = issueCommand->add_option("--date", issue->date, "The issue date (2024-03-01); default today");
    CLI::Option* interval = issueCommand->add_option("--pay-interval", issue->payInterval, "Days until due");
    CLI::Option* deliver = issueCommand->add_option("--deliver", issue->deliver, "mail, print, save or network")
                               ->check(CLI::IsMember({"mail", "print", "save", "network"}));
    issueCommand->callback([issue, date, interval, deliver, &exitCode] {
        issuecommands::IssueOptions options;
        options.uids = issue->uids;
        if (date->count() > 0) {
            options.date = issue->date;
        }
        if (interval->count() > 0) {
            options.payInterval = issue->payInterval;
        }
        if (deliver->count() > 0) {
            options.deliver = issue->deliver;
        }
        exitCode = issuecommands::issue(issue->path, options, std::cout, std::cerr);
    });

    struct DocumentArguments {
        std::string path;
        std::string uid;
        std::string mode;
    };
    auto unlock = std::make_shared<DocumentArguments>();
    CLI::App* unlockCommand =
        app.add_subcommand("unlock", "Return an issued document to draft, keeping its number and a transcript");
    unlockCommand->add_option("path", unlock->path, "The company file")->required();
    unlockCommand->add_option("uid", unlock->uid, "The document's uid")->required();
    unlockCommand->callback(
        [unlock, &exitCode] { exitCode = issuecommands::unlock(unlock->path, unlock->uid, std::cout, std::cerr); });

    auto settle = std::make_shared<DocumentArguments>();
    CLI::App* settleCommand = app.add_subcommand("settle", "Mark a document open, settled or canceled");
    settleCommand->add_option("path", settle->path, "The company file")->required();
    settleCommand->add_option("uid", settle->uid, "The document's uid")->required();
    settleCommand->add_option("mode", settle->mode, "open, settled, canceled (estimates: accepted, declined)")
        ->required();
    settleCommand->callback([settle, &exitCode] {
        exitCode = issuecommands::settle(settle->path, settle->uid, settle->mode, std::cout, std::cerr);
    });

    struct TranscriptArguments {
        std::string path;
        std::string folder;
    };
    auto transcripts = std::make_shared<TranscriptArguments>();
    CLI::App* transcriptsCommand =
        app.add_subcommand("transcripts", "List the audit trail of issued documents, or export it");
    transcriptsCommand->add_option("path", transcripts->path, "The company file")->required();
    CLI::Option* exportFolder = transcriptsCommand->add_option(
        "--export", transcripts->folder, "Write the folder \"Transcript\" (property list and explanation) here");
    transcriptsCommand->callback([transcripts, exportFolder, &exitCode] {
        std::optional<std::string> folder;
        if (exportFolder->count() > 0) {
            folder = transcripts->folder;
        }
        exitCode = issuecommands::transcripts(transcripts->path, folder, std::cout, std::cerr);
    });
}

}  // namespace brassline::cli
