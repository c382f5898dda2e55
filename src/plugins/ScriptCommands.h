#pragma once

#include <iosfwd>
#include <string>
#include <vector>

namespace brassline::scriptcommands {

// The command-line operations on records and scripts, apart from argument parsing. Each
// writes its answer to `out` and failures to `err`, and answers the exit code of
// CommandFile.h: bad input also for a script that threw or ran out of time.

// The interchange record of the object with `uid`: "key: value" lines, nested records and
// lists indented below their key; with `json` one JSON object in record order.
int record(const std::string& path, const std::string& uid, bool json, std::ostream& out, std::ostream& err);

struct ScriptOptions {
    std::string documentUid;               // The object the script's `query` holds (editable).
    std::string type;                      // The plug-in type the script runs as.
    std::vector<std::string> assignments;  // NAME=VALUE settings, one global each.
    double timeoutSeconds = 30.0;
};
// Runs the script file in a context set up for the company file. What the script changed
// through editable records is saved when it ends well; an exception or a time-out leaves
// the file as it was. The result goes to `out` (text as it is, other values as JSON), the
// script log to `err`.
int script(const std::string& path, const std::string& scriptPath, const ScriptOptions& options, std::ostream& out,
           std::ostream& err);

}  // namespace brassline::scriptcommands
