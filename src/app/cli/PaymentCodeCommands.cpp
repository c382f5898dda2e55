#include "layout/PaymentCodeCommands.h"

#include <iostream>
#include <memory>
#include <string>

#include <CLI/CLI.hpp>

#include "app/cli/Commands.h"

namespace brassline::cli {

void addPaymentCodeCommands(CLI::App& app, int& exitCode) {
    auto options = std::make_shared<paymentcodecommands::Options>();
    CLI::App* command = app.add_subcommand(
        "paymentcode", "Print the payment request a document's payment code carries, exactly as encoded");
    command->add_option("path", options->path, "The company file")->required();
    command->add_option("uid", options->uid, "The document's uid")->required();
    command->add_option("--kind", options->kind,
                        "bezahlcode, epc, swiss, stripe, paypal or ocrb, with the company's bank data; without it "
                        "the kind of the document's layout");
    command->add_option("--png", options->png, "Also write the QR symbol to this PNG file");
    command->callback(
        [options, &exitCode] { exitCode = paymentcodecommands::paymentCode(*options, std::cout, std::cerr); });
}

}  // namespace brassline::cli
