#pragma once

#include <string>
#include <vector>

namespace CLI {
class App;
}

namespace brassline::cli {

// The whole command line: builds every command, parses `arguments` (the program name
// first) and runs the chosen command on the main thread. Answers the exit code; usage
// errors print CLI11's message and its code.
int run(std::vector<std::string> arguments);

// The arguments of a command in an order the parser reads as meant: a positional that
// begins with "-" (a uid such as "-x3F...", a negative amount, a formula) is no option, so
// when one appears the command's options go first and its positionals follow a "--", in
// their own order. Arguments without such a positional come back unchanged. `arguments`
// leaves out the program name.
std::vector<std::string> protectDashedPositionals(const CLI::App& app, std::vector<std::string> arguments);

}  // namespace brassline::cli
