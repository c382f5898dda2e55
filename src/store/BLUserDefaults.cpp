#include "store/BLUserDefaults.h"

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>

#include "core/Log.h"
#include "store/BLSetupDefaultsController.h"

namespace brassline {

namespace {

std::string defaultDirectory() {
    if (const char* config = std::getenv("XDG_CONFIG_HOME"); config != nullptr && config[0] != '\0') {
        return std::string(config) + "/brassline";
    }
    const char* home = std::getenv("HOME");
    return std::string(home != nullptr ? home : ".") + "/.config/brassline";
}

std::string overrideDirectory;
std::mutex overrideMutex;

}  // namespace

UserDefaults& UserDefaults::standard() {
    static UserDefaults defaults;
    return defaults;
}

void UserDefaults::setDirectoryForTesting(std::string directory) {
    {
        std::lock_guard lock(overrideMutex);
        overrideDirectory = std::move(directory);
    }
    UserDefaults& defaults = standard();
    std::lock_guard lock(defaults.m_mutex);
    defaults.m_loaded = false;
    defaults.m_values.clear();
    defaults.m_registered.clear();
}

std::string UserDefaults::filePath() const {
    std::lock_guard lock(overrideMutex);
    return (overrideDirectory.empty() ? defaultDirectory() : overrideDirectory) + "/UserDefaults.json";
}

void UserDefaults::loadLocked() const {
    if (m_loaded) {
        return;
    }
    m_loaded = true;
    std::ifstream in(filePath(), std::ios::binary);
    if (!in) {
        return;  // No settings yet.
    }
    std::string text((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    std::string error;
    std::optional<Value> value = Value::fromJSON(text, &error);
    if (!value || value->dictionary() == nullptr) {
        logMessage("User defaults %@ can't be read: %@", filePath(), error);
        return;
    }
    m_values = *value->dictionary();
}

void UserDefaults::writeLocked() const {
    std::string path = filePath();
    std::error_code code;
    std::filesystem::create_directories(std::filesystem::path(path).parent_path(), code);
    // Written beside and renamed over, so a crash leaves the old or the new file whole.
    std::string temporary = path + ".tmp";
    {
        std::ofstream out(temporary, std::ios::binary | std::ios::trunc);
        out << Value(m_values).toJSON(true);
        if (!out) {
            logMessage("User defaults %@ can't be written", path);
            return;
        }
    }
    std::filesystem::rename(temporary, path, code);
    if (code) {
        logMessage("User defaults %@ can't be written: %@", path, code.message());
    }
}

Value UserDefaults::objectForKey(std::string_view key) const {
    std::lock_guard lock(m_mutex);
    loadLocked();
    if (auto it = m_values.find(std::string(key)); it != m_values.end()) {
        return it->second;
    }
    auto it = m_registered.find(std::string(key));
    return it != m_registered.end() ? it->second : Value();
}

void UserDefaults::setObject(const Value& value, std::string_view key) {
    if (value.isNull()) {
        removeObject(key);
        return;
    }
    std::lock_guard lock(m_mutex);
    loadLocked();
    m_values[std::string(key)] = value;
    writeLocked();
}

void UserDefaults::removeObject(std::string_view key) {
    std::lock_guard lock(m_mutex);
    loadLocked();
    if (m_values.erase(std::string(key)) > 0) {
        writeLocked();
    }
}

void UserDefaults::registerDefaults(const Value::Dictionary& defaults) {
    std::lock_guard lock(m_mutex);
    for (const auto& [key, value] : defaults) {
        m_registered[key] = value;
    }
}

void UserDefaults::registerApplicationDefaults() {
    if (std::optional<Value::Dictionary> defaults =
            BLSetupDefaultsController::resourceDictionary("com.orvane.Brassline3.plist")) {
        registerDefaults(*defaults);
    }
}

Value UserDefaults::registeredDefault(std::string_view key) const {
    std::lock_guard lock(m_mutex);
    auto it = m_registered.find(std::string(key));
    return it != m_registered.end() ? it->second : Value();
}

Value::Dictionary BLUserDefaultsProxy::dictionary() const {
    Value settings = UserDefaults::standard().objectForKey(kDocumentSettingsKey);
    const Value& mine = settings[m_identifier];
    return mine.dictionary() != nullptr ? *mine.dictionary() : Value::Dictionary{};
}

void BLUserDefaultsProxy::setDictionary(Value::Dictionary dictionary) {
    Value settings = UserDefaults::standard().objectForKey(kDocumentSettingsKey);
    Value::Dictionary all = settings.dictionary() != nullptr ? *settings.dictionary() : Value::Dictionary{};
    if (dictionary.empty()) {
        all.erase(m_identifier);
    } else {
        all[m_identifier] = Value(std::move(dictionary));
    }
    UserDefaults::standard().setObject(all.empty() ? Value() : Value(std::move(all)), kDocumentSettingsKey);
}

Value BLUserDefaultsProxy::objectForKey(std::string_view key) const {
    Value::Dictionary mine = dictionary();
    if (auto it = mine.find(std::string(key)); it != mine.end()) {
        return it->second;
    }
    return UserDefaults::standard().registeredDefault(key);
}

void BLUserDefaultsProxy::setObject(const Value& value, std::string_view key) {
    Value::Dictionary mine = dictionary();
    if (value.isNull()) {
        mine.erase(std::string(key));
    } else {
        mine[std::string(key)] = value;
    }
    setDictionary(std::move(mine));
}

void BLUserDefaultsProxy::removeObject(std::string_view key) {
    setObject(Value(), key);
}

void BLUserDefaultsProxy::copySettingsFrom(const std::string& oldIdentifier) {
    if (oldIdentifier == m_identifier) {
        return;
    }
    Value::Dictionary old = BLUserDefaultsProxy(oldIdentifier).dictionary();
    if (!old.empty()) {
        setDictionary(std::move(old));
    }
}

}  // namespace brassline
