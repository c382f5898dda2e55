#include "app/cli/Commands.h"

#include <CLI/CLI.hpp>

namespace brassline::cli {

// The number and pattern commands register here.
void addNumberCommands(CLI::App& /*app*/, int& /*exitCode*/) {}

}  // namespace brassline::cli
