#include <CLI/CLI.hpp>

#include "app/cli/Commands.h"

namespace brassline::cli {

void addPlaceholderCommands(CLI::App& /*app*/, int& /*exitCode*/) {}

}  // namespace brassline::cli
