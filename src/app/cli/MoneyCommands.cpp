#include "app/cli/Commands.h"

#include <CLI/CLI.hpp>

namespace brassline::cli {

// The rates and taxes commands register here.
void addMoneyCommands(CLI::App& /*app*/, int& /*exitCode*/) {}

}  // namespace brassline::cli
