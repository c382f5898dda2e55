#include "core/Localization.h"

#include <cstdlib>
#include <fstream>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <sstream>

#include <nlohmann/json.hpp>

#include "core/Log.h"

namespace brassline {

namespace {

using Table = std::map<std::string, std::string, std::less<>>;

struct LocalizationState {
    std::mutex mutex;
    std::optional<std::string> language;  // Unset: the environment's.
    std::string directory;                // Empty: the default.
    std::map<std::string, std::unique_ptr<const Table>, std::less<>> tables;
};

LocalizationState& state() {
    static LocalizationState* instance = new LocalizationState();
    return *instance;
}

// "de_DE.UTF-8", "de-CH" and "DE" all mean "de"; "C" and "POSIX" mean no language.
std::string languageCode(std::string_view name) {
    std::string code;
    for (char c : name) {
        if (c == '_' || c == '-' || c == '.' || c == '@') {
            break;
        }
        if (c >= 'A' && c <= 'Z') {
            c = static_cast<char>(c - 'A' + 'a');
        }
        if (c < 'a' || c > 'z') {
            return {};
        }
        code += c;
    }
    if (code.size() < 2 || code.size() > 3) {
        return {};
    }
    return code;
}

std::string environmentLanguage() {
    // POSIX precedence for messages: LC_ALL over LC_MESSAGES over LANG.
    for (const char* variable : {"LC_ALL", "LC_MESSAGES", "LANG"}) {
        const char* value = std::getenv(variable);
        if (value != nullptr && value[0] != '\0') {
            std::string code = languageCode(value);
            return code.empty() ? "en" : code;
        }
    }
    return "en";
}

std::string directoryLocked(const LocalizationState& localization) {
    if (!localization.directory.empty()) {
        return localization.directory;
    }
    const char* overridden = std::getenv("BRASSLINE_RESOURCES");
    if (overridden != nullptr && overridden[0] != '\0') {
        return overridden;
    }
    return BRASSLINE_RESOURCES_DIR;
}

std::unique_ptr<const Table> loadTable(const std::string& directory, const std::string& language) {
    auto table = std::make_unique<Table>();
    std::string path = directory + "/Localizable/" + language + ".json";
    std::ifstream file(path, std::ios::binary);
    if (!file) {
        logMessage("Localization: no table for language \"%@\" at %@", language, path);
        return table;
    }
    std::ostringstream text;
    text << file.rdbuf();
    nlohmann::json json = nlohmann::json::parse(text.str(), nullptr, false);
    if (json.is_discarded() || !json.is_object()) {
        logMessage("Localization: %@ is not a JSON object of strings", path);
        return table;
    }
    for (const auto& [key, value] : json.items()) {
        if (value.is_string()) {
            table->emplace(key, value.get<std::string>());
        } else {
            logMessage("Localization: %@: the value for \"%@\" is not a string", path, key);
        }
    }
    return table;
}

const Table& tableLocked(LocalizationState& localization, const std::string& language) {
    auto found = localization.tables.find(language);
    if (found == localization.tables.end()) {
        found = localization.tables.emplace(language, loadTable(directoryLocked(localization), language)).first;
    }
    return *found->second;
}

std::string lookUpLocked(LocalizationState& localization, std::string_view key, const std::string& language) {
    const Table& table = tableLocked(localization, language);
    if (auto found = table.find(key); found != table.end()) {
        return found->second;
    }
    if (language != "en") {
        const Table& english = tableLocked(localization, "en");
        if (auto found = english.find(key); found != english.end()) {
            return found->second;
        }
    }
    return std::string(key);
}

}  // namespace

std::string localizedString(std::string_view key) {
    LocalizationState& localization = state();
    std::lock_guard lock(localization.mutex);
    if (!localization.language) {
        localization.language = environmentLanguage();
    }
    return lookUpLocked(localization, key, *localization.language);
}

std::string localizedString(std::string_view key, std::string_view language) {
    std::string code = languageCode(language);
    LocalizationState& localization = state();
    std::lock_guard lock(localization.mutex);
    return lookUpLocked(localization, key, code.empty() ? std::string("en") : code);
}

std::string currentLanguage() {
    LocalizationState& localization = state();
    std::lock_guard lock(localization.mutex);
    if (!localization.language) {
        localization.language = environmentLanguage();
    }
    return *localization.language;
}

void setCurrentLanguage(std::string_view language) {
    LocalizationState& localization = state();
    std::lock_guard lock(localization.mutex);
    if (language.empty()) {
        localization.language.reset();
        return;
    }
    std::string code = languageCode(language);
    if (code.empty()) {
        logMessage("Localization: \"%@\" names no language; using English", language);
        code = "en";
    }
    localization.language = code;
}

std::string localizationResourcesDirectory() {
    LocalizationState& localization = state();
    std::lock_guard lock(localization.mutex);
    return directoryLocked(localization);
}

void setLocalizationResourcesDirectory(std::string directory) {
    LocalizationState& localization = state();
    std::lock_guard lock(localization.mutex);
    localization.directory = std::move(directory);
    localization.tables.clear();
}

}  // namespace brassline
