#pragma once

#include <memory>
#include <string>

#include "core/Value.h"

namespace brassline {

class BLPreferenceController;
class BLUserDefaultsProxy;
class ManagedObjectContext;
class SQLiteStore;

// One open company file: its store, main context and companions (preference controller,
// per-device settings; the others come with their subsystems). While any document is
// open, the model hooks for readiness, preferences and user defaults answer from the
// document of the asking context. Main thread.
class BLDoc {
public:
    ~BLDoc();
    BLDoc(const BLDoc&) = delete;
    BLDoc& operator=(const BLDoc&) = delete;

    // Opens the package at `path`; null with the store's message in `error` when refused.
    // Runs repair.
    static std::unique_ptr<BLDoc> open(const std::string& path, std::string* error = nullptr);
    // A new package at `path` after the first-run set-up with the quick set-up's answers;
    // saved. Null with the reason in `error`.
    static std::unique_ptr<BLDoc> create(const std::string& path, const Value::Dictionary& setup,
                                         std::string* error = nullptr);
    // The open document whose main context is (or is the parent chain of) `context`.
    static BLDoc* documentForContext(const ManagedObjectContext& context);

    ManagedObjectContext& managedObjectContext() { return *m_context; }
    SQLiteStore& store() { return *m_store; }
    const std::string& documentIdentifier() const;
    const std::string& fileURL() const { return m_path; }
    BLPreferenceController& prefsController() { return *m_prefsController; }
    BLUserDefaultsProxy& userDefaults() { return *m_userDefaults; }

    // No while the store is still loading with no changes; yes without a URL; else
    // whether the store has loaded all changes.
    bool readyForDefaultValues() const;
    // Repair on open: the default profile with its layouts and country, and currencies
    // named "€" renamed to "EUR" with the symbol "€".
    void repair();
    void fixProfiles();
    void fixEuro();
    bool save(std::string* error = nullptr);

private:
    BLDoc() = default;
    void attach(std::unique_ptr<SQLiteStore> store, std::string path);
    static void installHooks();

    std::string m_path;
    SQLiteStore* m_store = nullptr;
    std::unique_ptr<ManagedObjectContext> m_context;
    std::unique_ptr<BLPreferenceController> m_prefsController;
    std::unique_ptr<BLUserDefaultsProxy> m_userDefaults;
};

}  // namespace brassline
