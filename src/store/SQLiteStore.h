#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "core/Value.h"
#include "model/PersistentStore.h"
#include "store/ChangeSet.h"
#include "store/CompanyPackage.h"
#include "store/SQLiteConnection.h"

namespace brassline {

class ManagedObjectModel;

// A failure with a domain and code for the caller's alert ("ExportSQLiteError", 1).
struct StoreError {
    std::string domain;
    int code = 0;
    std::string message;
};

// The store of a company file: a package folder with Info.plist and a SQLite database that
// holds one table per concrete entity. Open reads and checks the whole file before a
// context sees it, and refuses a bad file without writing to it; each save is one
// transaction (WAL, synchronous FULL) that also writes the save's change set, so a crash
// leaves the file as it was before or after the save. Owned by its main context; all calls
// belong to the main thread.
//
// Schema, derived from the model: table "<Entity>" with "_number" (the object number,
// INTEGER PRIMARY KEY), a column per stored attribute (TEXT strings, TEXT decimals in
// canonical text, REAL dates in seconds since 2001 and doubles, INTEGER bools and
// integers, BLOB data), "<name>_id" per to-one relationship (the target's number) and
// "<name>_position" beside it when the inverse is an ordered to-many. A to-many whose
// inverse is a to-one lives in that column; other to-manys (many-to-many, no inverse) in
// a table "_link_<Entity>_<name>" (source, target, position, inverse_position). The table
// "_metadata" keeps the model name and version, the store identifier, the largest object
// number and the last clock; the change log is described in ChangeSet.h.
class SQLiteStore : public PersistentStore {
public:
    // The data model version this build writes.
    static constexpr int64_t kCurrentModelVersion = 23;

    struct Options {
        // The device that makes the saves; empty: this machine's (deviceIdentifier()).
        std::string deviceIdentifier;
        int64_t modelVersion = kCurrentModelVersion;
        // Large data values stay in the file until read (see loadDataValue); off, open
        // reads every value, for work that will read them all anyway.
        bool deferLargeData = true;
        // How long a save waits for another program's write lock before it gives up with
        // a message, and how long a read waits for a lock held during a checkpoint.
        int busyTimeoutMilliseconds = kDefaultBusyTimeoutMilliseconds;
        // Opens for reading only, as a file the user may not write opens anyway.
        bool readOnly = false;
    };
    static constexpr int kDefaultBusyTimeoutMilliseconds = 5000;

    ~SQLiteStore() override;

    // A new company package at `path` (which must not exist) for `model`. Null with the
    // message in `error` on failure; a half-made package is removed again.
    static std::unique_ptr<SQLiteStore> create(const std::string& path, const ManagedObjectModel& model,
                                               const Options& options, std::string* error = nullptr);
    static std::unique_ptr<SQLiteStore> create(const std::string& path, const ManagedObjectModel& model,
                                               std::string* error = nullptr);
    // Opens and reads a company package. A file that is not a current package, a layout, a
    // backup, damaged, of another model or of a newer model version is refused: null, the
    // user's message in `error`, a log line, and the file untouched.
    static std::unique_ptr<SQLiteStore> open(const std::string& path, const ManagedObjectModel& model,
                                             const Options& options, std::string* error = nullptr);
    static std::unique_ptr<SQLiteStore> open(const std::string& path, const ManagedObjectModel& model,
                                             std::string* error = nullptr);
    // A hidden place beside `path` to build a package in, and the move of the finished
    // package to `path` (never over an existing file, false with the user's message).
    static std::string temporaryPackagePath(const std::string& path);
    static bool movePackageIntoPlace(const std::string& building, const std::string& path, std::string* error);
    // Whether `path` is a current package (Info.plist only; the database is not read).
    static bool isCorrectFormat(const std::string& path);
    // This machine's device identifier: kept in the user's configuration folder, made on
    // first use.
    static std::string deviceIdentifier();

    // PersistentStore. loadObjects hands the rows read at open to the context (once).
    // The store's own identifier (from its metadata, made when the file was created), so
    // that object URIs ("x-coredata://<identifier>/<Entity>/p<number>") of two files never
    // pass for each other.
    const std::string& identifier() const override { return m_info.storeIdentifier; }
    int64_t largestObjectNumber() const override { return m_largestNumber; }
    bool loadObjects(ManagedObjectContext& context, std::string* error) override;
    // Several programs may write one file. A save is one write transaction that waits for
    // the lock (busyTimeoutMilliseconds), merges the change sets other writers committed
    // since this store last looked into the context (same key changed on both sides: this
    // save, the later write, keeps its value and the log notes it), renumbers this
    // context's new objects past theirs, and draws its change-set sequence, all under the
    // lock. beginWriting takes that lock early for draws that must be unique (numbers).
    bool beginWriting(ManagedObjectContext& context, std::string* error) override;
    void endWriting() override;
    bool saveChanges(const StoreChanges& changes, std::string* error) override;
    // A file this user can't write (another owner, a read-only folder or mount) opens for
    // reading only: no -wal or -shm files appear beside it, and every save is refused.
    bool isReadOnly() const { return m_readOnly; }
    // Large data values (above StoreSnapshot::kDeferredDataBytes) stay in the file at open
    // and are read here on first access, over a reader connection of their own behind a
    // lock, so any thread may call it. A save writes only the data values it changed.
    std::optional<Value> loadDataValue(const EntityDescription& entity, int64_t number,
                                       const AttributeDescription& attribute, std::string* error) override;
    struct DataCounters {
        uint64_t valuesRead = 0;  // By loadDataValue.
        uint64_t bytesRead = 0;
        uint64_t valuesWritten = 0;  // Non-empty data values bound by saves.
    };
    DataCounters dataCounters() const;

    const std::string& path() const { return m_info.path; }
    const PackageInfo& packageInfo() const { return m_info; }
    const std::string& documentIdentifier() const { return m_info.documentIdentifier; }
    const std::string& storeIdentifier() const { return m_info.storeIdentifier; }
    const std::string& device() const { return m_device; }
    int64_t modelVersion() const { return m_modelVersion; }
    std::string infoURL() const;

    // Identity: rewrite Info.plist (atomically). False with the reason on failure.
    bool setDocumentIdentifier(const std::string& identifier, std::string* error = nullptr);
    bool setUserInfo(const Value::Dictionary& userInfo, std::string* error = nullptr);

    // Loading state of the change log: reading is synchronous, so once open answered the
    // store is not updating and has loaded all changes.
    bool updating() const { return m_updating; }
    bool loadedAllChanges() const { return m_loadedAllChanges; }
    // The change sets, oldest first, and the rows of one of them.
    std::vector<ChangeSetInfo> changeLog() const;
    std::vector<ChangeRecord> changesInChangeSet(int64_t changeSetId) const;
    int64_t changeSetCount() const;
    uint64_t lastClock() const { return m_clock.last(); }

    // Diagnostics (plain values for the JSON support attachments): the store's own log
    // lines, its errors, the devices known from the change log, the change chain, timings.
    Value log() const;
    Value errorsArray() const;
    Value sessionInfo() const;
    Value changesChain() const;
    // Spelled as the framework spells it.
    Value peformanceArray() const;

    // Writes the saved state of the whole store to a new SQLite file at `path`: one table
    // per entity keyed by "objectID" (TEXT PRIMARY KEY, "<Entity>/p<number>"), typed
    // attribute columns, "<name>_id" for to-one and "<name>_ids" (joined by ",") for
    // to-many relationships. Written to a temporary file and moved into place. A target
    // inside any company package is refused, and so is an existing one unless
    // `replaceExisting` (then it is replaced only on success).
    std::optional<StoreError> exportDatabaseToSQLite(const std::string& path, bool replaceExisting = false) const;

private:
    struct Impl;
    class SaveRun;
    explicit SQLiteStore(std::unique_ptr<Impl> impl);
    bool mergeCommittedChanges(ManagedObjectContext& context, std::string* failure);
    // The user's message for a failed write, by what SQLite reported.
    std::string writeFailureMessage(const std::string& reason, SQLiteConnection::Failure kind) const;
    void noteLog(std::string message);
    void noteError(std::string message);

    std::unique_ptr<Impl> m_impl;
    PackageInfo m_info;
    std::string m_device;
    int64_t m_modelVersion = kCurrentModelVersion;
    int64_t m_largestNumber = 0;
    int64_t m_deviceSequence = 0;
    HybridLogicalClock m_clock;
    ManagedObjectContext* m_context = nullptr;  // The context that loaded the objects; it owns the store.
    int64_t m_lastChangeSetId = 0;              // The newest change set this store's context reflects.
    int m_busyTimeoutMilliseconds = kDefaultBusyTimeoutMilliseconds;
    bool m_writing = false;  // Inside the write transaction of beginWriting.
    bool m_readOnly = false;
    bool m_updating = false;
    bool m_loadedAllChanges = false;
    std::vector<Value> m_log;
    std::vector<Value> m_errors;
    std::vector<Value> m_performance;
};

}  // namespace brassline
