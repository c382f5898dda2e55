#include "app/cli/Commands.h"

#include <CLI/CLI.hpp>

namespace brassline::cli {

// The items and totals commands register here.
void addItemCommands(CLI::App& /*app*/, int& /*exitCode*/) {}

}  // namespace brassline::cli
