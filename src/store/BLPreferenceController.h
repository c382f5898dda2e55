#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <string>
#include <string_view>

#include "core/Value.h"

namespace brassline {

class BLPreference;
class ManagedObjectContext;

// The document's preferences by key path: "invoice.payInterval" is the stored
// BLPreference with uid "BLPref.invoice.payInterval". Values are cached until refresh.
// Main thread.
class BLPreferenceController {
public:
    using Observer = std::function<void(const std::string& key)>;

    explicit BLPreferenceController(ManagedObjectContext& context) : m_context(context) {}

    // "BLPref.<keyPath>", or "BLPref.<representedObject>.<keyPath>" from a pane.
    static std::string uidForKeyPath(std::string_view keyPath, std::string_view representedObject = {});

    // The payload, or null when there is no such preference and createIfNeeded has no
    // default for it.
    Value valueForKeyPath(std::string_view keyPath);
    // Writes the cache, finds or inserts the preference and sets its payload.
    void setValueForKeyPath(const Value& value, std::string_view keyPath);
    // Makes the preferences that have a built-in default: the partial, permanent and final
    // invoice labels, and "stationary.useInMail" (yes when a mail backdrop is stored).
    BLPreference* createIfNeeded(const std::string& uid);
    // Drops the cache and tells the observers once per stored preference, by its group
    // (the second component of the uid; the third under a pane's prefix `viewPrefix`).
    void refresh(std::string_view viewPrefix = {});

    uint64_t addObserver(Observer observer);
    void removeObserver(uint64_t token);

private:
    BLPreference* preferenceWithUid(const std::string& uid) const;

    ManagedObjectContext& m_context;
    std::map<std::string, Value, std::less<>> m_cache;
    std::map<uint64_t, Observer> m_observers;
    uint64_t m_nextToken = 1;
};

}  // namespace brassline
