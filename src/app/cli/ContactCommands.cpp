#include "app/cli/Commands.h"

#include <CLI/CLI.hpp>

namespace brassline::cli {

// The vcard, address and clients commands register here.
void addContactCommands(CLI::App& /*app*/, int& /*exitCode*/) {}

}  // namespace brassline::cli
