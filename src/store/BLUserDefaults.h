#pragma once

#include <mutex>
#include <string>
#include <string_view>

#include "core/Value.h"

namespace brassline {

// The user's plain defaults: one JSON file "UserDefaults.json" in the user's configuration
// folder (~/.config/brassline/), written through on every change. Reads fall back to the
// registered defaults (the application's defaults file). Thread-safe; a file that can't
// be read or written is logged and the values live in memory.
class UserDefaults {
public:
    static UserDefaults& standard();
    // Where the file lives; tests point it at a folder of their own (the values are
    // re-read from there). Empty: $XDG_CONFIG_HOME/brassline or ~/.config/brassline.
    static void setDirectoryForTesting(std::string directory);

    Value objectForKey(std::string_view key) const;
    void setObject(const Value& value, std::string_view key);
    void removeObject(std::string_view key);
    bool boolForKey(std::string_view key) const { return objectForKey(key).toBool(); }
    // Values answered for keys the user never set.
    void registerDefaults(const Value::Dictionary& defaults);
    // The application's defaults file "com.orvane.Brassline3.plist" from the resources.
    void registerApplicationDefaults();
    Value registeredDefault(std::string_view key) const;
    std::string filePath() const;

private:
    UserDefaults() = default;
    // Reads the file on first use; a read answers from what it loaded, so the loaded
    // values are a cache of the file that const readers fill.
    void loadLocked() const;
    void writeLocked() const;

    mutable std::mutex m_mutex;
    std::string m_directory;
    mutable Value::Dictionary m_values;
    Value::Dictionary m_registered;
    mutable bool m_loaded = false;
};

// The per-device settings of one company file: user defaults under
// "DocumentSettings" → identifier → key; reads fall back to the application's defaults.
class BLUserDefaultsProxy {
public:
    static constexpr const char* kDocumentSettingsKey = "DocumentSettings";

    explicit BLUserDefaultsProxy(std::string identifier) : m_identifier(std::move(identifier)) {}

    const std::string& identifier() const { return m_identifier; }
    Value objectForKey(std::string_view key) const;
    void setObject(const Value& value, std::string_view key);
    void removeObject(std::string_view key);
    // The whole subtree of this identifier.
    Value::Dictionary dictionary() const;
    // Copies the settings of `oldIdentifier` to this one (a save under a new identity).
    void copySettingsFrom(const std::string& oldIdentifier);

private:
    void setDictionary(Value::Dictionary dictionary);
    std::string m_identifier;
};

}  // namespace brassline
