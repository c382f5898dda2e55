#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "core/Value.h"

namespace brassline {

class BLDataObserver;
class BLPreferenceController;
class BLStateController;
class BLUserDefaultsProxy;
class ManagedObject;
class ManagedObjectContext;
class SQLiteStore;
struct URLRequest;
struct URLResult;

// One open company file: its store, main context and companions (preference controller,
// per-device settings, state controller, data observer; the others come with their
// subsystems). While any document is
// open, the model hooks for readiness, preferences and user defaults answer from the
// document of the asking context. Main thread.
class BLDoc {
public:
    ~BLDoc();
    BLDoc(const BLDoc&) = delete;
    BLDoc& operator=(const BLDoc&) = delete;

    // Opens the package at `path` and runs the start-up steps (companions, the
    // "openDocument" plug-ins, repair, recurring invoices). Null with the user's message
    // in `error` for an invalid location or a refused file, which stays untouched.
    static std::unique_ptr<BLDoc> open(const std::string& path, std::string* error = nullptr);
    // A new package at `path` after the first-run set-up (runSetup) with the quick
    // set-up's answers; saved. Null with the reason in `error`.
    static std::unique_ptr<BLDoc> create(const std::string& path, const Value::Dictionary& setup,
                                         std::string* error = nullptr);
    // The open document whose main context is (or is the parent chain of) `context`.
    static BLDoc* documentForContext(const ManagedObjectContext& context);
    // False for paths inside system update snapshots ("/System/Volumes/Update/mnt1/",
    // "/tmp/msu-target"): such a path neither opens nor becomes a document's URL.
    static bool isValidLocation(std::string_view path);

    ManagedObjectContext& managedObjectContext() { return *m_context; }
    SQLiteStore& store() { return *m_store; }
    const std::string& documentIdentifier() const;
    const std::string& fileURL() const { return m_path; }
    // False (URL unchanged) for an invalid location.
    bool setFileURL(const std::string& path);
    // The file name without extension.
    std::string displayName() const;
    BLPreferenceController& prefsController() { return *m_prefsController; }
    BLUserDefaultsProxy& userDefaults() { return *m_userDefaults; }
    BLStateController& stateController() { return *m_stateController; }
    BLDataObserver& dataObserver() { return *m_dataObserver; }

    // No while the store is still loading with no changes; yes without a URL; else
    // whether the store has loaded all changes.
    bool readyForDefaultValues() const;
    // Repair on open: the default profile with its layouts and country, and currencies
    // named "€" renamed to "EUR" with the symbol "€".
    void repair();
    void fixProfiles();
    void fixEuro();
    // Makes the recurring invoices that are due (a hook until that subsystem exists).
    void updatePermanentInvoices();
    bool save(std::string* error = nullptr);

    // First-run set-up of a new file: migratePreferences, the objects of the quick
    // set-up's answers, then setupCompleted. False with the reason when the save fails.
    bool runSetup(const Value::Dictionary& setup, std::string* error = nullptr);
    // Copies the keys of "com.orvane.Brassline3.migrationKeys.plist" that the global
    // user defaults hold into this document's settings.
    void migratePreferences();
    // Drops the undo actions of the set-up and saves.
    bool setupCompleted(std::string* error = nullptr);
    // A save under a new identity: Info.plist gets `identifier` and the per-device
    // settings of the old identifier are copied to it (didSaveStore). False with the
    // reason when Info.plist can't be written.
    bool setDocumentIdentifier(const std::string& identifier, std::string* error = nullptr);
    // After changes from another device: duplicate recurring-invoice repetitions go.
    // Runs, after a preference refresh, on "HoldfastObjectsDidChangeExternally" posted
    // by the main context (userInfo "inserted": the new objects).
    void didMergeExternalChanges(const std::vector<ManagedObject*>& inserted);
    static constexpr const char* kObjectsDidChangeExternallyNotification = "HoldfastObjectsDidChangeExternally";
    // The document's URL commands; nothing when the command is not one of them.
    std::optional<URLResult> handleURL(const URLRequest& request);

private:
    BLDoc() = default;
    bool attach(std::unique_ptr<SQLiteStore> store, std::string path, std::string* error);
    void awakeFromNib();
    static void installHooks();

    std::string m_path;
    SQLiteStore* m_store = nullptr;
    std::unique_ptr<ManagedObjectContext> m_context;
    std::unique_ptr<BLPreferenceController> m_prefsController;
    std::unique_ptr<BLUserDefaultsProxy> m_userDefaults;
    std::unique_ptr<BLStateController> m_stateController;
    std::unique_ptr<BLDataObserver> m_dataObserver;
    uint64_t m_externalChangeObserver = 0;
};

}  // namespace brassline
