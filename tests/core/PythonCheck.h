#pragma once

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>

namespace brassline::pythoncheck {

// Whether python3 with plistlib is on this machine: the independent reader that the
// property-list and keyed-archive tests check their output with.
inline bool hasPython() {
    return std::system("python3 -c 'import plistlib' >/dev/null 2>&1") == 0;
}

// Runs `script` with `file` as its argument; answers what it printed, errors included.
inline std::string runPython(const std::string& script, const std::filesystem::path& file) {
    const std::filesystem::path scriptPath = file.string() + ".py";
    std::ofstream(scriptPath) << script;
    const std::string command = "python3 " + scriptPath.string() + " " + file.string() + " 2>&1";
    std::string output;
    if (FILE* pipe = popen(command.c_str(), "r")) {
        char buffer[4096];
        size_t read = 0;
        while ((read = fread(buffer, 1, sizeof buffer, pipe)) > 0) {
            output.append(buffer, read);
        }
        pclose(pipe);
    }
    std::filesystem::remove(scriptPath);
    return output;
}

}  // namespace brassline::pythoncheck
