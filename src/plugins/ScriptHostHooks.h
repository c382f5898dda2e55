#pragma once

#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "core/Value.h"

namespace brassline {

// What scripts ask of a user interface. The desktop shell installs these; while one is
// empty (the command line, tests) the script gets null, -1 or nothing and a line in its
// log. Each runs on the main thread, the shell's business.
struct ScriptHostHooks {
    // The 0-based index of the button pressed.
    std::function<int64_t(const std::string& title, const std::string& text, const std::vector<std::string>& buttons)>
        alert;
    // URL text, or nothing when cancelled.
    std::function<std::optional<std::string>(const std::string& name)> saveFileDialog;
    std::function<std::optional<std::string>(const std::string& type)> openFileDialog;
    std::function<void(const std::string& url)> launchURL;
    std::function<void()> beep;
    std::function<void(const Value::Dictionary& plugin)> showPluginSettings;
    // value, maxValue, message; an empty message closes the sheet.
    std::function<void(double value, double maxValue, const std::string& message)> progress;
    std::function<void(const std::string& text)> writePasteboard;
    std::function<std::optional<std::string>()> readPasteboard;
};

ScriptHostHooks& scriptHostHooks();
void resetScriptHostHooks();

}  // namespace brassline
