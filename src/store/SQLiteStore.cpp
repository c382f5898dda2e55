#include "store/SQLiteStore.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <map>
#include <mutex>
#include <set>
#include <system_error>
#include <unordered_map>

#include <fcntl.h>
#include <stdio.h>
#include <sys/stat.h>
#include <unistd.h>

#include "core/Log.h"
#include "core/UniqueId.h"
#include "model/ManagedObject.h"
#include "model/ManagedObjectContext.h"
#include "model/NotificationCenter.h"
#include "model/Notifications.h"
#include "store/BLDoc.h"
#include "store/SQLiteConnection.h"
#include "store/StoreMessages.h"
#include "store/StoreSchema.h"

namespace brassline {

namespace fs = std::filesystem;

namespace {

using Stopwatch = std::chrono::steady_clock;

constexpr const char* kMetaModelName = "modelName";
constexpr const char* kMetaModelVersion = "modelVersion";
constexpr const char* kMetaFormatVersion = "formatVersion";
constexpr const char* kMetaStoreIdentifier = "storeIdentifier";
constexpr const char* kMetaLargestNumber = "largestObjectNumber";
constexpr const char* kMetaClock = "clock";

double secondsSince(Stopwatch::time_point start) {
    return std::chrono::duration<double>(Stopwatch::now() - start).count();
}

bool setError(std::string* error, const std::string& message) {
    logMessage("%@", message);
    if (error != nullptr) {
        *error = message;
    }
    return false;
}

std::string quote(std::string_view name) {
    return SQLiteConnection::quoted(name);
}

// The on-disk header of a SQLite file, checked before SQLite reads the file: a file cut
// short would otherwise only show up as a damaged page somewhere in the middle of a read.
// Read through the connection's own handle (see SQLiteConnection::readFileStart).
std::optional<std::string> checkDatabaseHeader(SQLiteConnection& db, const std::string& path) {
    int64_t size = 0;
    std::optional<std::string> start = db.readFileStart(100, &size);
    if (!start) {
        return std::string("the database can't be read");
    }
    const auto* header = reinterpret_cast<const unsigned char*>(start->data());
    if (start->size() != 100 || std::memcmp(header, "SQLite format 3", 16) != 0) {
        return std::string("the database is not a SQLite file");
    }
    uint32_t pageSize = (uint32_t{header[16]} << 8) | header[17];
    if (pageSize == 1) {
        pageSize = 65536;
    }
    auto readBig32 = [&](int offset) {
        return (uint32_t{header[offset]} << 24) | (uint32_t{header[offset + 1]} << 16) |
               (uint32_t{header[offset + 2]} << 8) | uint32_t{header[offset + 3]};
    };
    uint32_t pageCount = readBig32(28);
    bool countIsValid = pageCount != 0 && readBig32(24) == readBig32(92);
    std::error_code code;
    // With a write-ahead log beside it the main file may lag behind its header until the
    // log is checkpointed, so the length is only checked without one.
    uintmax_t walSize = fs::file_size(path + "-wal", code);
    bool hasLog = !code && walSize > 0;
    if (pageSize < 512 || (pageSize & (pageSize - 1)) != 0) {
        return std::string("the database header is damaged");
    }
    if (!hasLog && countIsValid && static_cast<uintmax_t>(size) < uintmax_t{pageCount} * pageSize) {
        return std::string("the database is truncated");
    }
    return std::nullopt;
}

std::string createFailureReason(const std::error_code& code) {
    return code == std::errc::no_space_on_device ? std::string("the disk is full") : code.message();
}

std::string referenceText(const ManagedObject& object) {
    if (const AttributeDescription* uid = object.entity().uidAttribute()) {
        if (const std::string* text = object.primitiveValue(*uid).string()) {
            return *text;
        }
    }
    return "#" + std::to_string(object.objectID().number);
}

std::string uidOf(const ManagedObject& object) {
    if (const AttributeDescription* uid = object.entity().uidAttribute()) {
        if (const std::string* text = object.primitiveValue(*uid).string()) {
            return *text;
        }
    }
    return {};
}

// Whether a save writes the table's `index`-th data column; tables with more data columns
// than the mask holds write the rest always.
bool writesDataColumn(uint64_t dataColumns, size_t index) {
    return index >= 64 || (dataColumns & (uint64_t{1} << index)) != 0;
}

// Positions of members in the to-many lists touched by one save, built once per list.
class PositionCache {
public:
    int64_t indexOf(const std::vector<ManagedObject*>& list, const ManagedObject* member) {
        if (list.size() <= 16) {
            auto found = std::find(list.begin(), list.end(), member);
            return found == list.end() ? -1 : found - list.begin();
        }
        auto& index = m_indexes[&list];
        if (index.size() != list.size()) {
            index.clear();
            for (size_t i = 0; i < list.size(); ++i) {
                index.emplace(list[i], static_cast<int64_t>(i));
            }
        }
        auto found = index.find(member);
        return found == index.end() ? -1 : found->second;
    }

private:
    std::unordered_map<const std::vector<ManagedObject*>*, std::unordered_map<const ManagedObject*, int64_t>> m_indexes;
};

}  // namespace

struct SQLiteStore::Impl {
    explicit Impl(const ManagedObjectModel& model) : schema(model) {}

    StoreSchema schema;
    SQLiteConnection db;
    bool readOnly = false;
    std::optional<StoreSnapshot> snapshot;  // From open until loadObjects.
    // Statements reused across saves, by table.
    std::map<std::string, SQLiteStatement> inserts;
    std::map<std::string, SQLiteStatement> positionUpdates;
    std::map<std::string, SQLiteStatement> deletes;
    // Updates that leave unchanged data columns alone, by table and the data columns set.
    std::map<std::pair<std::string, uint64_t>, SQLiteStatement> updates;

    // Reads of deferred data. A connection of their own: the main one belongs to the main
    // thread, and in WAL mode a second reader sees the last committed state without
    // waiting for a save in progress.
    std::mutex readerMutex;
    SQLiteConnection reader;
    std::map<std::pair<std::string, std::string>, SQLiteStatement> dataReads;
    std::atomic<uint64_t> dataValuesRead{0};
    std::atomic<uint64_t> dataBytesRead{0};
    std::atomic<uint64_t> dataValuesWritten{0};

    SQLiteStatement* insertFor(const StoreSchema::EntityTable& table);
    // `dataColumns`: bit i set when the table's i-th data attribute is written.
    SQLiteStatement* updateFor(const StoreSchema::EntityTable& table, uint64_t dataColumns);
    SQLiteStatement* positionUpdateFor(const std::string& table, const std::string& column);
    SQLiteStatement* deleteFor(const std::string& table);
};

SQLiteStatement* SQLiteStore::Impl::insertFor(const StoreSchema::EntityTable& table) {
    auto found = inserts.find(table.name);
    if (found != inserts.end()) {
        return &found->second;
    }
    std::string columns = "\"_number\"";
    std::string values = "?1";
    int index = 2;
    auto add = [&](const std::string& name) {
        columns += ", " + quote(name);
        values += ", ?" + std::to_string(index++);
    };
    for (const AttributeDescription* attribute : table.attributes) {
        add(attribute->name);
    }
    for (const StoreSchema::ToOneColumn& toOne : table.toOnes) {
        add(toOne.column);
        if (!toOne.positionColumn.empty()) {
            add(toOne.positionColumn);
        }
    }
    SQLiteStatement statement =
        db.prepare("INSERT INTO " + quote(table.name) + " (" + columns + ") VALUES (" + values + ")");
    if (!statement.isValid()) {
        return nullptr;
    }
    return &inserts.emplace(table.name, std::move(statement)).first->second;
}

SQLiteStatement* SQLiteStore::Impl::updateFor(const StoreSchema::EntityTable& table, uint64_t dataColumns) {
    auto key = std::make_pair(table.name, dataColumns);
    auto found = updates.find(key);
    if (found != updates.end()) {
        return &found->second;
    }
    std::string assignments;
    int index = 2;
    size_t dataIndex = 0;
    auto add = [&](const std::string& name) {
        if (!assignments.empty()) {
            assignments += ", ";
        }
        assignments += quote(name) + " = ?" + std::to_string(index++);
    };
    for (const AttributeDescription* attribute : table.attributes) {
        if (attribute->type == AttributeType::Data && !writesDataColumn(dataColumns, dataIndex++)) {
            continue;
        }
        add(attribute->name);
    }
    for (const StoreSchema::ToOneColumn& toOne : table.toOnes) {
        add(toOne.column);
        if (!toOne.positionColumn.empty()) {
            add(toOne.positionColumn);
        }
    }
    if (assignments.empty()) {
        assignments = "\"_number\" = ?1";
    }
    SQLiteStatement statement =
        db.prepare("UPDATE " + quote(table.name) + " SET " + assignments + " WHERE \"_number\" = ?1");
    if (!statement.isValid()) {
        return nullptr;
    }
    return &updates.emplace(key, std::move(statement)).first->second;
}

SQLiteStatement* SQLiteStore::Impl::positionUpdateFor(const std::string& table, const std::string& column) {
    std::string key = table + "\n" + column;
    auto found = positionUpdates.find(key);
    if (found != positionUpdates.end()) {
        return &found->second;
    }
    SQLiteStatement statement =
        db.prepare("UPDATE " + quote(table) + " SET " + quote(column) + " = ?1 WHERE \"_number\" = ?2");
    if (!statement.isValid()) {
        return nullptr;
    }
    return &positionUpdates.emplace(key, std::move(statement)).first->second;
}

SQLiteStatement* SQLiteStore::Impl::deleteFor(const std::string& table) {
    auto found = deletes.find(table);
    if (found != deletes.end()) {
        return &found->second;
    }
    SQLiteStatement statement = db.prepare("DELETE FROM " + quote(table) + " WHERE \"_number\" = ?1");
    if (!statement.isValid()) {
        return nullptr;
    }
    return &deletes.emplace(table, std::move(statement)).first->second;
}

SQLiteStore::SQLiteStore(std::unique_ptr<Impl> impl) : m_impl(std::move(impl)) {}

SQLiteStore::~SQLiteStore() {
    endWriting();
    // Statements go before the connection, which then checkpoints and removes its log.
    m_impl->inserts.clear();
    m_impl->positionUpdates.clear();
    m_impl->deletes.clear();
    m_impl->updates.clear();
    {
        std::lock_guard<std::mutex> lock(m_impl->readerMutex);
        m_impl->dataReads.clear();
        m_impl->reader.close();
    }
    m_impl->db.close();
}

std::string SQLiteStore::deviceIdentifier() {
    const char* configHome = std::getenv("XDG_CONFIG_HOME");
    const char* home = std::getenv("HOME");
    fs::path folder;
    if (configHome != nullptr && *configHome != '\0') {
        folder = fs::path(configHome) / "brassline";
    } else if (home != nullptr && *home != '\0') {
        folder = fs::path(home) / ".config" / "brassline";
    }
    if (folder.empty()) {
        return "UnknownDevice";
    }
    fs::path file = folder / "DeviceIdentifier";
    std::ifstream in(file);
    std::string identifier;
    if (in && std::getline(in, identifier) && !identifier.empty()) {
        return identifier;
    }
    identifier = uniqueBase64String();
    std::error_code code;
    fs::create_directories(folder, code);
    std::ofstream out(file);
    out << identifier << '\n';
    if (!out) {
        logMessage("Could not keep the device identifier in %@", file.string());
    }
    return identifier;
}

bool SQLiteStore::isCorrectFormat(const std::string& path) {
    return CompanyPackage::isCorrectFormat(path);
}

std::string SQLiteStore::temporaryPackagePath(const std::string& path) {
    std::error_code code;
    fs::path target = fs::absolute(path, code);
    if (!target.has_filename()) {
        target = target.parent_path();
    }
    fs::create_directories(target.parent_path(), code);
    // Hidden, and a package by its extension, so that it opens while it is being built.
    // The process number too: a forked process draws the same random names as its parent.
    return (target.parent_path() / ("." + target.stem().string() + "-creating-" + std::to_string(::getpid()) + "-" +
                                    uniqueBase64String() + std::string(CompanyPackage::kExtension)))
        .string();
}

bool SQLiteStore::movePackageIntoPlace(const std::string& building, const std::string& path, std::string* error) {
    const std::string name = CompanyPackage::displayName(path);
    std::error_code code;
    for (const char* suffix : {"-wal", "-shm"}) {
        fs::remove(CompanyPackage::databasePath(building) + suffix, code);
    }
    fs::path target = fs::absolute(path, code);
    if (!target.has_filename()) {
        target = target.parent_path();
    }
    // Never over another file: one may have appeared under the name meanwhile.
    if (::renameat2(AT_FDCWD, building.c_str(), AT_FDCWD, target.c_str(), RENAME_NOREPLACE) != 0) {
        const int reason = errno;
        fs::remove_all(building, code);
        return setError(error, reason == EEXIST ? formatMessage(kPackageExistsMessage, name)
                                                : formatMessage(kCreateFailedMessage, name, std::strerror(reason)));
    }
    if (int folder = ::open(target.parent_path().c_str(), O_RDONLY | O_DIRECTORY); folder >= 0) {
        ::fsync(folder);
        ::close(folder);
    }
    return true;
}

std::unique_ptr<SQLiteStore> SQLiteStore::create(const std::string& path, const ManagedObjectModel& model,
                                                 std::string* error) {
    return create(path, model, Options{}, error);
}

std::unique_ptr<SQLiteStore> SQLiteStore::create(const std::string& path, const ManagedObjectModel& model,
                                                 const Options& options, std::string* error) {
    const std::string name = CompanyPackage::displayName(path);
    std::error_code code;
    if (fs::exists(fs::symlink_status(path, code))) {
        setError(error, formatMessage(kPackageExistsMessage, name));
        return nullptr;
    }
    // The package is made under a hidden name beside its place and moved there whole: a
    // crash while creating leaves no half-made package under the user's name.
    const std::string building = temporaryPackagePath(path);
    if (!fs::create_directory(building, code)) {
        setError(error, formatMessage(kCreateFailedMessage, name,
                                      code ? createFailureReason(code) : std::string("its folder exists already")));
        return nullptr;
    }
    auto abandon = [&](const std::string& reason) {
        std::error_code ignored;
        fs::remove_all(building, ignored);
        setError(error, formatMessage(kCreateFailedMessage, name, reason));
        return nullptr;
    };
    const std::string storeIdentifier = uniqueBase64String();
    {
        StoreSchema schema(model);
        SQLiteConnection db;
        auto failed = [&] {
            return abandon(db.lastFailure() == SQLiteConnection::Failure::DiskFull ? "the disk is full"
                                                                                   : "the database can't be written");
        };
        if (!db.open(CompanyPackage::databasePath(building), SQLiteConnection::Mode::Create) ||
            !db.execute("PRAGMA journal_mode = WAL; PRAGMA synchronous = FULL; BEGIN IMMEDIATE")) {
            return failed();
        }
        if (!schema.createOrUpgrade(db)) {
            return failed();
        }
        SQLiteStatement meta = db.prepare("INSERT OR REPLACE INTO _metadata (key, value) VALUES (?1, ?2)");
        auto put = [&](const char* key, const Value& value) {
            meta.reset();
            meta.bindText(1, key);
            if (const int64_t* number = value.integer()) {
                meta.bindInteger(2, *number);
            } else {
                meta.bindText(2, value.toString());
            }
            return meta.step() == SQLiteStatement::StepResult::Done;
        };
        if (!meta.isValid() || !put(kMetaModelName, Value(model.name())) ||
            !put(kMetaModelVersion, Value(options.modelVersion)) ||
            !put(kMetaFormatVersion, Value(CompanyPackage::kFormatVersion)) ||
            !put(kMetaStoreIdentifier, Value(storeIdentifier)) || !put(kMetaLargestNumber, Value(int64_t{0})) ||
            !put(kMetaClock, Value(int64_t{0})) || !db.execute("COMMIT")) {
            return failed();
        }
        meta = SQLiteStatement();
        // Checkpointed into the database file before the move: a package's log never
        // travels under another name.
        if (!db.execute("PRAGMA wal_checkpoint(TRUNCATE)")) {
            return failed();
        }
        db.close();
    }
    // Info.plist comes last: a package without it is refused, so a crash while creating
    // never leaves something that opens as an empty company.
    Value::Dictionary holdfast;
    holdfast.emplace(CompanyPackage::kFormatVersionKey, Value(CompanyPackage::kFormatVersion));
    holdfast.emplace(CompanyPackage::kModelNameKey, Value(model.name()));
    holdfast.emplace(CompanyPackage::kModelVersionKey, Value(options.modelVersion));
    holdfast.emplace(CompanyPackage::kStoreIdentifierKey, Value(storeIdentifier));
    Value::Dictionary info;
    info.emplace(CompanyPackage::kHoldfastKey, Value(std::move(holdfast)));
    info.emplace(CompanyPackage::kDocumentIdentifierKey, Value(uniqueBase64String()));
    std::string writeError;
    if (!CompanyPackage::writeInfo(building, info, &writeError)) {
        return abandon(writeError);
    }
    if (!movePackageIntoPlace(building, path, error)) {
        return nullptr;
    }
    return open(path, model, options, error);
}

std::unique_ptr<SQLiteStore> SQLiteStore::open(const std::string& path, const ManagedObjectModel& model,
                                               std::string* error) {
    return open(path, model, Options{}, error);
}

std::unique_ptr<SQLiteStore> SQLiteStore::open(const std::string& path, const ManagedObjectModel& model,
                                               const Options& options, std::string* error) {
    const auto start = Stopwatch::now();
    const std::string name = CompanyPackage::displayName(path);
    std::string message;
    std::optional<PackageInfo> info = CompanyPackage::inspect(path, &message);
    if (!info) {
        setError(error, message);
        return nullptr;
    }
    auto refuseModel = [&](const std::string& fileModel, int64_t fileVersion, int64_t fileFormat) {
        if (fileModel != model.name()) {
            return setError(error, formatMessage(kForeignModelMessage, name, fileModel, model.name()));
        }
        if (fileVersion > options.modelVersion || fileFormat > CompanyPackage::kFormatVersion) {
            return setError(error, formatMessage(kFutureModelMessage, name, std::to_string(fileVersion),
                                                 std::to_string(options.modelVersion)));
        }
        return true;
    };
    if (!refuseModel(info->modelName, info->modelVersion, info->formatVersion)) {
        return nullptr;
    }
    const std::string databasePath = CompanyPackage::databasePath(path);
    std::error_code code;
    if (!fs::is_regular_file(databasePath, code)) {
        setError(error, formatMessage(kMissingDatabaseMessage, name));
        return nullptr;
    }
    // A file this user may not write is read as it is: SQLite would otherwise need to make
    // its -wal and -shm files beside it.
    const bool readOnly =
        options.readOnly || ::access(databasePath.c_str(), W_OK) != 0 || ::access(path.c_str(), W_OK) != 0;

    auto impl = std::make_unique<Impl>(model);
    impl->readOnly = readOnly;
    SQLiteConnection& db = impl->db;
    // A failed read is damage only when SQLite says so; a lock held by another program
    // is a busy file, anything else a file that can't be read now.
    auto refuseRead = [&](const std::string& reason) {
        switch (db.lastFailure()) {
            case SQLiteConnection::Failure::Busy:
                logMessage("Reading %@ found it locked: %@", name, reason);
                setError(error, formatMessage(kBusyOpenMessage, name));
                return nullptr;
            case SQLiteConnection::Failure::Corrupt:
                logMessage("Reading %@ failed: %@", name, reason);
                setError(error, formatMessage(kDamagedDatabaseMessage, name, "a page of its database is damaged"));
                return nullptr;
            default:
                logMessage("Reading %@ failed: %@", name, reason);
                setError(error, formatMessage(kUnreadableDatabaseMessage, name));
                return nullptr;
        }
    };
    auto damaged = [&](const std::string& reason) {
        setError(error, formatMessage(kDamagedDatabaseMessage, name, reason));
        return nullptr;
    };
    // Read-write, but nothing is written until every check below has passed.
    if (!db.open(databasePath,
                 readOnly ? SQLiteConnection::Mode::ReadOnlyImmutable : SQLiteConnection::Mode::ReadWrite)) {
        return refuseRead(db.lastError());
    }
    db.setBusyTimeout(options.busyTimeoutMilliseconds);
    if (std::optional<std::string> damage = checkDatabaseHeader(db, databasePath)) {
        return damaged(*damage);
    }
    if (!db.execute("BEGIN")) {
        return refuseRead(db.lastError());
    }
    if (!db.tableExists("_metadata")) {
        if (db.lastFailure() != SQLiteConnection::Failure::None) {
            return refuseRead(db.lastError());
        }
        return damaged("the store's metadata is missing");
    }
    std::map<std::string, Value> meta;
    {
        SQLiteStatement statement = db.prepare("SELECT key, value FROM _metadata");
        if (!statement.isValid()) {
            return refuseRead(db.lastError());
        }
        for (;;) {
            auto result = statement.step();
            if (result == SQLiteStatement::StepResult::Done) {
                break;
            }
            if (result == SQLiteStatement::StepResult::Error) {
                return refuseRead(statement.errorMessage());
            }
            meta[statement.text(0)] = statement.isNull(1) ? Value() : Value(statement.text(1));
        }
    }
    auto metaInteger = [&](const char* key) { return meta[key].toInt64(); };
    if (meta[kMetaModelName].isNull() || meta[kMetaStoreIdentifier].isNull()) {
        return damaged("the store's metadata is incomplete");
    }
    if (!refuseModel(meta[kMetaModelName].toString(), metaInteger(kMetaModelVersion),
                     metaInteger(kMetaFormatVersion))) {
        return nullptr;
    }
    if (metaInteger(kMetaLargestNumber) < 0 || metaInteger(kMetaLargestNumber) > StoreSnapshot::kLargestObjectNumber) {
        return damaged("the store's metadata is out of range");
    }
    std::string readError;
    bool corrupt = false;
    std::optional<StoreSnapshot> snapshot =
        StoreSnapshot::read(db, impl->schema, &readError, &corrupt, options.deferLargeData);
    if (!snapshot) {
        if (corrupt && db.lastFailure() != SQLiteConnection::Failure::Corrupt) {
            // A value the store never writes: the reason is the snapshot's own.
            return damaged(readError);
        }
        return refuseRead(readError);
    }
    std::string device = options.deviceIdentifier.empty() ? deviceIdentifier() : options.deviceIdentifier;
    int64_t deviceSequence = 0;
    int64_t lastChangeSetId = 0;
    if (db.tableExists("_changesets")) {
        SQLiteStatement statement = db.prepare("SELECT max(sequence) FROM _changesets WHERE device = ?1");
        if (!statement.isValid()) {
            return refuseRead(db.lastError());
        }
        statement.bindText(1, device);
        auto result = statement.step();
        if (result == SQLiteStatement::StepResult::Error) {
            return refuseRead(statement.errorMessage());
        }
        deviceSequence = result == SQLiteStatement::StepResult::Row ? statement.integer(0) : 0;
        statement = SQLiteStatement();
        lastChangeSetId = db.queryInteger("SELECT max(id) FROM _changesets").value_or(0);
    }
    const int64_t fileModelVersion = metaInteger(kMetaModelVersion);
    const bool needsUpgrade = fileModelVersion < options.modelVersion || !impl->schema.isUpToDate(db);
    const bool needsLog = db.queryText("PRAGMA journal_mode").value_or("") != "wal";
    db.execute("COMMIT");
    if (readOnly && needsUpgrade) {
        setError(error, formatMessage(kReadOnlyUpgradeMessage, name));
        return nullptr;
    }

    // The file passed: from here on the store may write, and only takes the write lock
    // when the file needs an upgrade, so that readers beside a writer never wait here.
    if (!readOnly) {
        db.execute("PRAGMA synchronous = FULL");
        auto refuseWrite = [&](const std::string& reason) {
            db.execute("ROLLBACK");
            logMessage("Preparing %@ for writing failed: %@", name, reason);
            switch (db.lastFailure()) {
                case SQLiteConnection::Failure::Busy:
                    return setError(error, formatMessage(kBusyOpenMessage, name));
                case SQLiteConnection::Failure::DiskFull:
                    return setError(error, formatMessage(kDiskFullMessage, name));
                default:
                    return setError(error, formatMessage(kWriteFailedMessage, name, "the database can't be changed"));
            }
        };
        if (needsLog && !db.execute("PRAGMA journal_mode = WAL")) {
            refuseWrite(db.lastError());
            return nullptr;
        }
        if (needsUpgrade) {
            if (!db.execute("BEGIN IMMEDIATE") || !impl->schema.createOrUpgrade(db)) {
                refuseWrite(db.lastError());
                return nullptr;
            }
            if (fileModelVersion < options.modelVersion) {
                SQLiteStatement statement =
                    db.prepare("INSERT OR REPLACE INTO _metadata (key, value) VALUES ('modelVersion', ?1)");
                statement.bindInteger(1, options.modelVersion);
                statement.step();
            }
            if (!db.execute("COMMIT")) {
                refuseWrite(db.lastError());
                return nullptr;
            }
        }
    }

    std::unique_ptr<SQLiteStore> store(new SQLiteStore(std::move(impl)));
    store->m_info = std::move(*info);
    store->m_info.storeIdentifier = meta[kMetaStoreIdentifier].toString();
    store->m_device = std::move(device);
    store->m_modelVersion = options.modelVersion;
    store->m_largestNumber = std::max(metaInteger(kMetaLargestNumber), snapshot->largestNumber);
    store->m_deviceSequence = deviceSequence;
    store->m_lastChangeSetId = lastChangeSetId;
    store->m_readOnly = readOnly;
    store->m_busyTimeoutMilliseconds = options.busyTimeoutMilliseconds;
    store->m_clock = HybridLogicalClock(static_cast<uint64_t>(metaInteger(kMetaClock)));
    const size_t objectCount = snapshot->objectCount();
    store->m_impl->snapshot = std::move(snapshot);
    store->m_loadedAllChanges = true;
    if (!readOnly && fileModelVersion < options.modelVersion) {
        Value::Dictionary plist = store->m_info.infoDictionary;
        Value::Dictionary holdfast;
        if (const Value::Dictionary* old = plist[CompanyPackage::kHoldfastKey].dictionary()) {
            holdfast = *old;
        }
        holdfast[CompanyPackage::kModelVersionKey] = Value(options.modelVersion);
        plist[CompanyPackage::kHoldfastKey] = Value(std::move(holdfast));
        if (CompanyPackage::writeInfo(path, plist)) {
            store->m_info.infoDictionary = std::move(plist);
            store->m_info.modelVersion = options.modelVersion;
        }
    }
    double seconds = secondsSince(start);
    store->noteLog(formatMessage("Opened %@%@ with %ld objects in %.3f s", name, readOnly ? " for reading" : "",
                                 static_cast<long>(objectCount), seconds));
    Value::Dictionary entry;
    entry.emplace("operation", Value("open"));
    entry.emplace("objects", Value(static_cast<int64_t>(objectCount)));
    entry.emplace("seconds", Value(seconds));
    entry.emplace("date", Value(Date::now()));
    store->m_performance.emplace_back(std::move(entry));
    return store;
}

std::string SQLiteStore::infoURL() const {
    return CompanyPackage::infoPath(m_info.path);
}

void SQLiteStore::noteLog(std::string message) {
    Value::Dictionary entry;
    entry.emplace("date", Value(Date::now()));
    entry.emplace("message", Value(std::move(message)));
    m_log.emplace_back(std::move(entry));
}

void SQLiteStore::noteError(std::string message) {
    logMessage("%@", message);
    Value::Dictionary entry;
    entry.emplace("date", Value(Date::now()));
    entry.emplace("message", Value(message));
    m_errors.emplace_back(entry);
    m_log.emplace_back(std::move(entry));
}

bool SQLiteStore::setDocumentIdentifier(const std::string& identifier, std::string* error) {
    Value::Dictionary plist = m_info.infoDictionary;
    plist[CompanyPackage::kDocumentIdentifierKey] = Value(identifier);
    if (!CompanyPackage::writeInfo(m_info.path, plist, error)) {
        return false;
    }
    m_info.infoDictionary = std::move(plist);
    m_info.documentIdentifier = identifier;
    return true;
}

bool SQLiteStore::setUserInfo(const Value::Dictionary& userInfo, std::string* error) {
    Value::Dictionary plist = m_info.infoDictionary;
    plist[CompanyPackage::kUserInfoKey] = Value(userInfo);
    if (!CompanyPackage::writeInfo(m_info.path, plist, error)) {
        return false;
    }
    m_info.infoDictionary = std::move(plist);
    return true;
}

bool SQLiteStore::loadObjects(ManagedObjectContext& context, std::string* error) {
    if (&context.model() != &m_impl->schema.model()) {
        return setError(error, "the context's model is not the store's");
    }
    if (!m_impl->snapshot) {
        return setError(error, "the store's objects were handed out already");
    }
    const auto start = Stopwatch::now();
    m_context = &context;
    m_updating = true;
    StoreSnapshot snapshot = std::move(*m_impl->snapshot);
    m_impl->snapshot.reset();
    // Numbers are dense from 1 in practice: a table beats a hash map by far for 10^5
    // objects. A file whose numbers are far apart (merged, or damaged) gets the map, so
    // its numbers never decide how much memory a load takes.
    const bool dense = snapshot.largestNumber <= static_cast<int64_t>(2 * snapshot.objectCount() + 1024);
    std::vector<ManagedObject*> byNumber(dense ? static_cast<size_t>(snapshot.largestNumber) + 1 : 0, nullptr);
    std::unordered_map<int64_t, ManagedObject*> sparse;
    if (!dense) {
        sparse.reserve(snapshot.objectCount());
    }
    auto objectFor = [&](int64_t number) -> ManagedObject* {
        if (!dense) {
            auto found = sparse.find(number);
            return found == sparse.end() ? nullptr : found->second;
        }
        return number > 0 && static_cast<size_t>(number) < byNumber.size() ? byNumber[static_cast<size_t>(number)]
                                                                           : nullptr;
    };
    // The context's indexes grow once, to their final size, instead of rehashing as they fill.
    context.reserveObjects(snapshot.objectCount());
    for (const StoreSnapshot::Table& table : snapshot.tables) {
        context.reserveObjects(*table.table->entity, table.numbers.size());
    }
    for (StoreSnapshot::Table& table : snapshot.tables) {
        const StoreSchema::EntityTable& entityTable = *table.table;
        const size_t attributeCount = entityTable.attributes.size();
        for (size_t row = 0; row < table.numbers.size(); ++row) {
            ManagedObject* object = context.registerLoadedObject(*entityTable.entity, table.numbers[row]);
            if (object == nullptr) {
                continue;
            }
            if (dense) {
                byNumber[static_cast<size_t>(table.numbers[row])] = object;
            } else {
                sparse.emplace(table.numbers[row], object);
            }
            Value* values = table.values.data() + row * attributeCount;
            for (size_t i = 0; i < attributeCount; ++i) {
                if (!values[i].isNull()) {
                    context.setLoadedValue(*object, *entityTable.attributes[i], std::move(values[i]));
                }
            }
        }
        for (size_t cell : table.deferred) {
            ManagedObject* object = objectFor(table.numbers[cell / attributeCount]);
            const AttributeDescription& attribute = *entityTable.attributes[cell % attributeCount];
            if (object == nullptr || context.setLoadedDataFault(*object, attribute)) {
                continue;
            }
            std::string readError;
            if (std::optional<Value> value =
                    loadDataValue(*entityTable.entity, object->objectID().number, attribute, &readError)) {
                context.setLoadedValue(*object, attribute, std::move(*value));
            } else {
                noteError(formatMessage("%@.%@ of object %ld could not be read: %@", entityTable.name, attribute.name,
                                        static_cast<long>(object->objectID().number), readError));
            }
        }
    }
    std::vector<ManagedObject*> targets(1);
    size_t dangling = 0;
    for (const StoreSnapshot::Table& table : snapshot.tables) {
        const auto& toOnes = table.table->toOnes;
        for (size_t row = 0; row < table.numbers.size(); ++row) {
            ManagedObject* object = objectFor(table.numbers[row]);
            for (size_t i = 0; i < toOnes.size(); ++i) {
                int64_t number = table.toOneTargets[row * toOnes.size() + i];
                if (number == 0 || object == nullptr) {
                    continue;
                }
                ManagedObject* target = objectFor(number);
                if (target == nullptr) {
                    ++dangling;
                    continue;
                }
                targets[0] = target;
                context.setLoadedRelationship(*object, *toOnes[i].relationship, targets);
            }
        }
    }
    std::vector<ManagedObject*> members;
    const auto& edges = snapshot.edges;
    for (size_t i = 0; i < edges.size();) {
        size_t end = i;
        members.clear();
        while (end < edges.size() && edges[end].owner == edges[i].owner &&
               edges[end].relationship == edges[i].relationship) {
            if (ManagedObject* member = objectFor(edges[end].member)) {
                members.push_back(member);
            } else {
                ++dangling;
            }
            ++end;
        }
        ManagedObject* owner = objectFor(edges[i].owner);
        if (owner != nullptr && owner->entity().isKindOfEntity(*edges[i].relationship->entity)) {
            context.setLoadedRelationship(*owner, *edges[i].relationship, members);
        } else {
            ++dangling;
        }
        i = end;
    }
    if (dangling > 0) {
        noteError(
            formatMessage("%ld references to missing objects were dropped while loading", static_cast<long>(dangling)));
    }
    context.finishLoading();
    m_updating = false;
    Value::Dictionary entry;
    entry.emplace("operation", Value("load"));
    entry.emplace("objects", Value(static_cast<int64_t>(snapshot.objectCount())));
    entry.emplace("seconds", Value(secondsSince(start)));
    entry.emplace("date", Value(Date::now()));
    m_performance.emplace_back(std::move(entry));
    return true;
}

// One save's writing inside the write transaction of beginWriting, in named steps: the
// change set's header, the rows of inserted and updated objects with their change records,
// the deletions with their tombstones, the link tables, the metadata. Each step answers
// false with the reason in failure().
class SQLiteStore::SaveRun {
public:
    SaveRun(SQLiteStore& store, const StoreChanges& changes, int64_t sequence, uint64_t clock)
        : m_store(store),
          m_impl(*store.m_impl),
          m_db(store.m_impl->db),
          m_schema(store.m_impl->schema),
          m_changes(changes),
          m_sequence(sequence),
          m_clock(clock),
          m_largest(store.m_largestNumber) {}

    bool prepareStatements();
    bool writeHeader();
    bool writeObjects();
    bool writeDeletions();
    bool writeLinks();
    bool writeMetadata();
    // Statements of the run go before COMMIT, which SQLite refuses while they are active.
    void finishStatements() {
        m_header = SQLiteStatement();
        m_tombstone = SQLiteStatement();
        m_changeRow = SQLiteStatement();
    }

    const std::string& failure() const { return m_failure; }
    SQLiteConnection::Failure failureKind() const { return m_failureKind; }
    int64_t changeSetId() const { return m_changeSetId; }
    int64_t largest() const { return m_largest; }
    uint64_t dataWritten() const { return m_dataWritten; }

private:
    bool fail(std::string reason) {
        m_failure = std::move(reason);
        // Taken now: finishing the statements resets what the connection reports.
        m_failureKind = m_db.lastFailure();
        return false;
    }
    bool writeObject(ManagedObject& object, bool inserted);
    bool writeOrderedPositions(ManagedObject& object, const RelationshipDescription& relationship);
    void bindRow(SQLiteStatement& statement, const StoreSchema::EntityTable& table, ManagedObject& object,
                 uint64_t dataColumns);
    bool recordChange(ManagedObject& object, const std::string& key, ChangeKind kind,
                      const AttributeDescription* attribute, const RelationshipDescription* relationship);

    SQLiteStore& m_store;
    Impl& m_impl;
    SQLiteConnection& m_db;
    const StoreSchema& m_schema;
    const StoreChanges& m_changes;
    const int64_t m_sequence;
    const uint64_t m_clock;
    int64_t m_largest;
    int64_t m_changeSetId = 0;
    uint64_t m_dataWritten = 0;
    std::string m_failure;
    SQLiteConnection::Failure m_failureKind = SQLiteConnection::Failure::None;
    PositionCache m_positions;
    std::set<ManagedObject*> m_linkOwners;
    SQLiteStatement m_header;
    SQLiteStatement m_changeRow;
    SQLiteStatement m_tombstone;
};

bool SQLiteStore::SaveRun::prepareStatements() {
    m_header = m_db.prepare(
        "INSERT INTO _changesets (device, sequence, time, clock, inserted, updated, deleted) "
        "VALUES (?1, ?2, ?3, ?4, ?5, ?6, ?7)");
    m_changeRow = m_db.prepare(
        "INSERT INTO _changes (changeset, entity, object, uid, key, kind, clock, value) "
        "VALUES (?1, ?2, ?3, ?4, ?5, ?6, ?7, ?8)");
    m_tombstone =
        m_db.prepare("INSERT INTO _tombstones (entity, object, uid, changeset, clock) VALUES (?1, ?2, ?3, ?4, ?5)");
    if (!m_header.isValid() || !m_changeRow.isValid() || !m_tombstone.isValid()) {
        return fail(m_db.lastError());
    }
    return true;
}

bool SQLiteStore::SaveRun::writeHeader() {
    m_header.bindText(1, m_store.m_device);
    m_header.bindInteger(2, m_sequence);
    m_header.bindDouble(3, Date::now().timeIntervalSinceReferenceDate());
    m_header.bindInteger(4, static_cast<int64_t>(m_clock));
    m_header.bindInteger(5, static_cast<int64_t>(m_changes.inserted.size()));
    m_header.bindInteger(6, static_cast<int64_t>(m_changes.updated.size()));
    m_header.bindInteger(7, static_cast<int64_t>(m_changes.deleted.size()));
    if (m_header.step() != SQLiteStatement::StepResult::Done) {
        return fail(m_header.errorMessage());
    }
    m_changeSetId = m_db.lastInsertRowId();
    return true;
}

void SQLiteStore::SaveRun::bindRow(SQLiteStatement& statement, const StoreSchema::EntityTable& table,
                                   ManagedObject& object, uint64_t dataColumns) {
    int index = 1;
    size_t dataIndex = 0;
    statement.bindInteger(index++, object.objectID().number);
    for (const AttributeDescription* attribute : table.attributes) {
        if (attribute->type == AttributeType::Data) {
            if (!writesDataColumn(dataColumns, dataIndex++)) {
                continue;
            }
            const Value& value = object.primitiveValue(*attribute);
            m_dataWritten += value.isNull() ? 0 : 1;
            StoreSchema::bindColumn(statement, index++, attribute->type, value);
            continue;
        }
        StoreSchema::bindColumn(statement, index++, attribute->type, object.primitiveValue(*attribute));
    }
    for (const StoreSchema::ToOneColumn& toOne : table.toOnes) {
        ManagedObject* target = object.toOneObject(*toOne.relationship);
        if (target != nullptr && target->isDeleted()) {
            target = nullptr;
        }
        if (target != nullptr) {
            statement.bindInteger(index++, target->objectID().number);
        } else {
            statement.bindNull(index++);
        }
        if (!toOne.positionColumn.empty()) {
            int64_t position = -1;
            if (target != nullptr) {
                position = m_positions.indexOf(target->toManyObjects(*toOne.relationship->inverse), &object);
            }
            if (position >= 0) {
                statement.bindInteger(index++, position);
            } else {
                statement.bindNull(index++);
            }
        }
    }
}

bool SQLiteStore::SaveRun::recordChange(ManagedObject& object, const std::string& key, ChangeKind kind,
                                        const AttributeDescription* attribute,
                                        const RelationshipDescription* relationship) {
    SQLiteStatement& row = m_changeRow;
    row.reset();
    row.bindInteger(1, m_changeSetId);
    row.bindText(2, object.entityName());
    row.bindInteger(3, object.objectID().number);
    std::string uid = uidOf(object);
    if (uid.empty()) {
        row.bindNull(4);
    } else {
        row.bindText(4, uid);
    }
    row.bindText(5, key);
    row.bindInteger(6, static_cast<int64_t>(kind));
    row.bindInteger(7, static_cast<int64_t>(m_clock));
    if (attribute != nullptr) {
        StoreSchema::bindColumn(row, 8, attribute->type, object.primitiveValue(*attribute));
    } else if (relationship != nullptr) {
        Value::Array references;
        if (relationship->isToMany) {
            for (ManagedObject* target : object.toManyObjects(*relationship)) {
                if (!target->isDeleted()) {
                    references.emplace_back(referenceText(*target));
                }
            }
            row.bindText(8, Value(std::move(references)).toJSON());
        } else if (ManagedObject* target = object.toOneObject(*relationship); target && !target->isDeleted()) {
            references.emplace_back(referenceText(*target));
            row.bindText(8, Value(std::move(references)).toJSON());
        } else {
            row.bindNull(8);
        }
    } else {
        row.bindNull(8);
    }
    if (row.step() != SQLiteStatement::StepResult::Done) {
        return fail(row.errorMessage());
    }
    return true;
}

bool SQLiteStore::SaveRun::writeOrderedPositions(ManagedObject& object, const RelationshipDescription& relationship) {
    // A reorder changes no member's own row: the positions are rewritten.
    const RelationshipDescription* inverse = relationship.inverse;
    const auto& members = object.toManyObjects(relationship);
    for (size_t i = 0; i < members.size(); ++i) {
        if (members[i]->isDeleted()) {
            continue;
        }
        SQLiteStatement* update = m_impl.positionUpdateFor(members[i]->entityName(), inverse->name + "_position");
        if (update == nullptr) {
            return fail(m_db.lastError());
        }
        update->reset();
        update->bindInteger(1, static_cast<int64_t>(i));
        update->bindInteger(2, members[i]->objectID().number);
        if (update->step() != SQLiteStatement::StepResult::Done) {
            return fail(update->errorMessage());
        }
    }
    return true;
}

bool SQLiteStore::SaveRun::writeObject(ManagedObject& object, bool inserted) {
    const StoreSchema::EntityTable* table = m_schema.tableForEntity(object.entity());
    if (table == nullptr) {
        return fail("entity " + object.entityName() + " has no table in this store");
    }
    Value::Dictionary changed;
    if (!inserted) {
        changed = object.changedValues();
    }
    // An updated row keeps the data columns this save did not change: large bytes are
    // neither read back into memory nor written again.
    uint64_t dataColumns = ~uint64_t{0};
    if (!inserted) {
        dataColumns = 0;
        size_t dataIndex = 0;
        for (const AttributeDescription* attribute : table->attributes) {
            if (attribute->type == AttributeType::Data) {
                if (changed.count(attribute->name) != 0 && dataIndex < 64) {
                    dataColumns |= uint64_t{1} << dataIndex;
                }
                ++dataIndex;
            }
        }
    }
    SQLiteStatement* write = inserted ? m_impl.insertFor(*table) : m_impl.updateFor(*table, dataColumns);
    if (write == nullptr) {
        return fail(m_db.lastError());
    }
    write->reset();
    bindRow(*write, *table, object, dataColumns);
    if (write->step() != SQLiteStatement::StepResult::Done) {
        return fail(write->errorMessage());
    }
    if (!inserted && m_db.changes() == 0) {
        // No row to update (the file lost it): the whole row is written anew.
        SQLiteStatement* insert = m_impl.insertFor(*table);
        if (insert == nullptr) {
            return fail(m_db.lastError());
        }
        insert->reset();
        bindRow(*insert, *table, object, ~uint64_t{0});
        if (insert->step() != SQLiteStatement::StepResult::Done) {
            return fail(insert->errorMessage());
        }
    }
    m_largest = std::max(m_largest, object.objectID().number);
    if (inserted && !recordChange(object, "", ChangeKind::Insert, nullptr, nullptr)) {
        return false;
    }
    const ChangeKind kind = inserted ? ChangeKind::Insert : ChangeKind::Update;
    auto isChanged = [&](const std::string& key) { return inserted || changed.count(key) != 0; };
    for (const AttributeDescription* attribute : table->attributes) {
        if (!isChanged(attribute->name) || (inserted && object.primitiveValue(*attribute).isNull())) {
            continue;
        }
        if (!recordChange(object, attribute->name, kind, attribute, nullptr)) {
            return false;
        }
    }
    for (const RelationshipDescription* relationship : object.entity().relationships()) {
        if (!isChanged(relationship->name)) {
            continue;
        }
        const bool isEmpty = relationship->isToMany ? object.toManyObjects(*relationship).empty()
                                                    : object.toOneObject(*relationship) == nullptr;
        if (StoreSchema::isRecordedInChangeLog(*relationship) && !(inserted && isEmpty) &&
            !recordChange(object, relationship->name, kind, nullptr, relationship)) {
            return false;
        }
        if (!relationship->isToMany) {
            continue;
        }
        if (const StoreSchema::LinkTable* link = m_schema.linkForRelationship(*relationship)) {
            if (link->owner == relationship) {
                m_linkOwners.insert(&object);
            } else {
                // Only this side changed (its order): the owners' rows carry it.
                for (ManagedObject* member : object.toManyObjects(*relationship)) {
                    m_linkOwners.insert(member);
                }
            }
        } else if (relationship->isOrdered && !inserted && !writeOrderedPositions(object, *relationship)) {
            return false;
        }
    }
    return true;
}

bool SQLiteStore::SaveRun::writeObjects() {
    for (ManagedObject* object : m_changes.inserted) {
        if (!writeObject(*object, true)) {
            return false;
        }
    }
    for (ManagedObject* object : m_changes.updated) {
        if (!writeObject(*object, false)) {
            return false;
        }
    }
    return true;
}

bool SQLiteStore::SaveRun::writeDeletions() {
    for (ManagedObject* object : m_changes.deleted) {
        const StoreSchema::EntityTable* table = m_schema.tableForEntity(object->entity());
        SQLiteStatement* remove = table != nullptr ? m_impl.deleteFor(table->name) : nullptr;
        if (remove == nullptr) {
            return fail(table == nullptr ? "entity " + object->entityName() + " has no table" : m_db.lastError());
        }
        remove->reset();
        remove->bindInteger(1, object->objectID().number);
        if (remove->step() != SQLiteStatement::StepResult::Done) {
            return fail(remove->errorMessage());
        }
        if (!recordChange(*object, "", ChangeKind::Delete, nullptr, nullptr)) {
            return false;
        }
        m_tombstone.reset();
        m_tombstone.bindText(1, object->entityName());
        m_tombstone.bindInteger(2, object->objectID().number);
        std::string uid = uidOf(*object);
        if (uid.empty()) {
            m_tombstone.bindNull(3);
        } else {
            m_tombstone.bindText(3, uid);
        }
        m_tombstone.bindInteger(4, m_changeSetId);
        m_tombstone.bindInteger(5, static_cast<int64_t>(m_clock));
        if (m_tombstone.step() != SQLiteStatement::StepResult::Done) {
            return fail(m_tombstone.errorMessage());
        }
        m_linkOwners.erase(object);
        for (const StoreSchema::LinkTable& link : m_schema.links()) {
            SQLiteStatement unlink =
                m_db.prepare("DELETE FROM " + quote(link.name) + " WHERE source = ?1 OR target = ?1");
            if (!unlink.isValid()) {
                return fail(m_db.lastError());
            }
            unlink.bindInteger(1, object->objectID().number);
            if (unlink.step() != SQLiteStatement::StepResult::Done) {
                return fail(unlink.errorMessage());
            }
        }
    }
    return true;
}

bool SQLiteStore::SaveRun::writeLinks() {
    for (const StoreSchema::LinkTable& link : m_schema.links()) {
        SQLiteStatement clear = m_db.prepare("DELETE FROM " + quote(link.name) + " WHERE source = ?1");
        SQLiteStatement add = m_db.prepare("INSERT INTO " + quote(link.name) +
                                           " (source, target, position, inverse_position) VALUES (?1, ?2, ?3, ?4)");
        if (!clear.isValid() || !add.isValid()) {
            return fail(m_db.lastError());
        }
        for (ManagedObject* owner : m_linkOwners) {
            if (owner->isDeleted() || !owner->entity().isKindOfEntity(*link.owner->entity)) {
                continue;
            }
            clear.reset();
            clear.bindInteger(1, owner->objectID().number);
            if (clear.step() != SQLiteStatement::StepResult::Done) {
                return fail(clear.errorMessage());
            }
            const auto& targets = owner->toManyObjects(*link.owner);
            for (size_t i = 0; i < targets.size(); ++i) {
                if (targets[i]->isDeleted()) {
                    continue;
                }
                add.reset();
                add.bindInteger(1, owner->objectID().number);
                add.bindInteger(2, targets[i]->objectID().number);
                add.bindInteger(3, static_cast<int64_t>(i));
                int64_t inversePosition = -1;
                if (link.inverse != nullptr && link.inverse->isOrdered) {
                    inversePosition = m_positions.indexOf(targets[i]->toManyObjects(*link.inverse), owner);
                }
                if (inversePosition >= 0) {
                    add.bindInteger(4, inversePosition);
                } else {
                    add.bindNull(4);
                }
                if (add.step() != SQLiteStatement::StepResult::Done) {
                    return fail(add.errorMessage());
                }
            }
        }
    }
    return true;
}

bool SQLiteStore::SaveRun::writeMetadata() {
    SQLiteStatement meta = m_db.prepare("INSERT OR REPLACE INTO _metadata (key, value) VALUES (?1, ?2)");
    if (!meta.isValid()) {
        return fail(m_db.lastError());
    }
    for (auto [key, value] : {std::pair<const char*, int64_t>{kMetaLargestNumber, m_largest},
                              std::pair<const char*, int64_t>{kMetaClock, static_cast<int64_t>(m_clock)}}) {
        meta.reset();
        meta.bindText(1, key);
        meta.bindInteger(2, value);
        if (meta.step() != SQLiteStatement::StepResult::Done) {
            return fail(meta.errorMessage());
        }
    }
    return true;
}

std::string SQLiteStore::writeFailureMessage(const std::string& reason, SQLiteConnection::Failure kind) const {
    const std::string name = CompanyPackage::displayName(m_info.path);
    switch (kind) {
        case SQLiteConnection::Failure::DiskFull:
            return formatMessage(kDiskFullMessage, name);
        case SQLiteConnection::Failure::WriteFailed:
            return formatMessage(kDiskWriteFailedMessage, name);
        case SQLiteConnection::Failure::ReadOnly:
            return formatMessage(kReadOnlyMessage, name);
        case SQLiteConnection::Failure::Busy:
            return formatMessage(kBusyMessage, name, Value(m_busyTimeoutMilliseconds / 1000.0).toString());
        case SQLiteConnection::Failure::Corrupt:
            return formatMessage(kDamagedWhileSavingMessage, name);
        default:
            // The engine's own words go to the log, not to the user.
            logMessage("Writing %@ failed: %@", name, reason);
            return formatMessage(kWriteFailedMessage, name, "the database refused the change");
    }
}

namespace {

// A row another writer committed, as read back for the merge.
struct CommittedRow {
    ManagedObject* object = nullptr;
    const StoreSchema::EntityTable* table = nullptr;
    std::vector<Value> values;
    std::vector<int64_t> toOneTargets;
};

bool isChangedHere(const Value::Dictionary& changedHere, const std::string& key) {
    return changedHere.count(key) != 0;
}

}  // namespace

bool SQLiteStore::mergeCommittedChanges(ManagedObjectContext& context, std::string* failure) {
    SQLiteConnection& db = m_impl->db;
    const StoreSchema& schema = m_impl->schema;
    SQLiteStatement sets = db.prepare("SELECT id, clock, device FROM _changesets WHERE id > ?1 ORDER BY id");
    if (!sets.isValid()) {
        *failure = db.lastError();
        return false;
    }
    sets.bindInteger(1, m_lastChangeSetId);
    int64_t lastId = m_lastChangeSetId;
    uint64_t lastClock = 0;
    std::set<std::string> devices;
    while (sets.step() == SQLiteStatement::StepResult::Row) {
        lastId = sets.integer(0);
        lastClock = std::max(lastClock, static_cast<uint64_t>(sets.integer(1)));
        devices.insert(sets.text(2));
    }
    sets = SQLiteStatement();
    if (lastId == m_lastChangeSetId) {
        return true;
    }
    // The objects those saves touched; their rows as committed now are what counts.
    std::vector<std::pair<std::string, int64_t>> touched;
    {
        SQLiteStatement objects = db.prepare(
            "SELECT entity, object FROM _changes WHERE changeset > ?1 AND changeset <= ?2 GROUP BY entity, object "
            "ORDER BY min(rowid)");
        if (!objects.isValid()) {
            *failure = db.lastError();
            return false;
        }
        objects.bindInteger(1, m_lastChangeSetId);
        objects.bindInteger(2, lastId);
        while (objects.step() == SQLiteStatement::StepResult::Row) {
            touched.emplace_back(objects.text(0), objects.integer(1));
        }
    }
    const ManagedObjectModel& model = schema.model();
    std::vector<CommittedRow> rows;
    std::vector<ManagedObject*> deletions;
    context.beginMerge();
    for (const auto& [entityName, number] : touched) {
        const EntityDescription* entity = model.entityNamed(entityName);
        const StoreSchema::EntityTable* table = entity != nullptr ? schema.tableForEntity(*entity) : nullptr;
        if (table == nullptr) {
            continue;
        }
        std::string sql = "SELECT \"_number\"";
        for (const AttributeDescription* attribute : table->attributes) {
            sql += ", " + quote(attribute->name);
        }
        for (const StoreSchema::ToOneColumn& toOne : table->toOnes) {
            sql += ", " + quote(toOne.column);
        }
        SQLiteStatement read = db.prepare(sql + " FROM " + quote(table->name) + " WHERE \"_number\" = ?1");
        if (!read.isValid()) {
            context.endMerge();
            *failure = db.lastError();
            return false;
        }
        read.bindInteger(1, number);
        auto result = read.step();
        if (result == SQLiteStatement::StepResult::Error) {
            context.endMerge();
            *failure = read.errorMessage();
            return false;
        }
        if (result == SQLiteStatement::StepResult::Done) {
            if (ManagedObject* gone = context.objectWithNumber(number)) {
                deletions.push_back(gone);
            }
            continue;
        }
        CommittedRow row;
        row.table = table;
        row.object = context.mergeObject(*entity, number);
        if (row.object == nullptr) {
            // Deleted here: this save's deletion comes later and wins.
            continue;
        }
        int column = 1;
        for (const AttributeDescription* attribute : table->attributes) {
            row.values.push_back(StoreSchema::readColumn(read, column++, attribute->type));
        }
        for (size_t i = 0; i < table->toOnes.size(); ++i, ++column) {
            row.toOneTargets.push_back(read.isNull(column) ? 0 : read.integer(column));
        }
        rows.push_back(std::move(row));
    }
    size_t conflicts = 0;
    std::set<std::pair<ManagedObject*, const RelationshipDescription*>> orderedOwners;
    for (CommittedRow& row : rows) {
        ManagedObject& object = *row.object;
        const Value::Dictionary changedHere = object.changedValues();
        for (size_t i = 0; i < row.table->attributes.size(); ++i) {
            const AttributeDescription& attribute = *row.table->attributes[i];
            if (isChangedHere(changedHere, attribute.name)) {
                // Changed on both sides: this save is the later write and keeps its value.
                if (object.primitiveValue(attribute) != row.values[i]) {
                    ++conflicts;
                    noteLog(formatMessage("Kept this save's %@.%@ of object %ld over another writer's",
                                          object.entityName(), attribute.name,
                                          static_cast<long>(object.objectID().number)));
                }
                continue;
            }
            if (object.primitiveValue(attribute) != row.values[i]) {
                object.setValueWithNotices(attribute, std::move(row.values[i]));
            }
        }
        for (size_t i = 0; i < row.table->toOnes.size(); ++i) {
            const RelationshipDescription& relationship = *row.table->toOnes[i].relationship;
            ManagedObject* target = row.toOneTargets[i] != 0 ? context.objectWithNumber(row.toOneTargets[i]) : nullptr;
            if (target != nullptr && target->isDeleted()) {
                target = nullptr;
            }
            if (isChangedHere(changedHere, relationship.name)) {
                continue;
            }
            if (object.toOneObject(relationship) != target) {
                object.setToOneObject(relationship, target);
            }
            if (target != nullptr && relationship.inverse != nullptr && relationship.inverse->isOrdered) {
                orderedOwners.emplace(target, relationship.inverse);
            }
        }
        for (const RelationshipDescription* relationship : object.entity().relationships()) {
            if (relationship->isToMany && relationship->isOrdered &&
                schema.linkForRelationship(*relationship) == nullptr) {
                orderedOwners.emplace(&object, relationship);
            }
        }
        // Many-to-many lists live in link tables, read from the owning side.
        for (const StoreSchema::LinkTable& link : schema.links()) {
            if (!object.entity().isKindOfEntity(*link.owner->entity) || isChangedHere(changedHere, link.owner->name)) {
                continue;
            }
            SQLiteStatement targets =
                db.prepare("SELECT target FROM " + quote(link.name) + " WHERE source = ?1 ORDER BY position, rowid");
            if (!targets.isValid()) {
                continue;
            }
            targets.bindInteger(1, object.objectID().number);
            std::vector<ManagedObject*> members;
            while (targets.step() == SQLiteStatement::StepResult::Row) {
                ManagedObject* member = context.objectWithNumber(targets.integer(0));
                if (member != nullptr && !member->isDeleted()) {
                    members.push_back(member);
                }
            }
            if (members != object.toManyObjects(*link.owner)) {
                object.setRelationshipObjects(*link.owner, members);
            }
        }
    }
    // Ordered lists kept in their members' rows take the committed order, unless this
    // save reordered them itself.
    for (const auto& [owner, relationship] : orderedOwners) {
        if (owner->isDeleted() || isChangedHere(owner->changedValues(), relationship->name)) {
            continue;
        }
        std::vector<std::pair<int64_t, ManagedObject*>> positioned;
        for (const StoreSchema::EntityTable& table : schema.tables()) {
            for (const StoreSchema::ToOneColumn& toOne : table.toOnes) {
                if (toOne.positionColumn.empty() || toOne.relationship->inverse == nullptr ||
                    toOne.relationship->inverse->name != relationship->name ||
                    !owner->entity().isKindOfEntity(*toOne.relationship->destination)) {
                    continue;
                }
                SQLiteStatement members = db.prepare("SELECT \"_number\", " + quote(toOne.positionColumn) + " FROM " +
                                                     quote(table.name) + " WHERE " + quote(toOne.column) + " = ?1");
                if (!members.isValid()) {
                    continue;
                }
                members.bindInteger(1, owner->objectID().number);
                while (members.step() == SQLiteStatement::StepResult::Row) {
                    ManagedObject* member = context.objectWithNumber(members.integer(0));
                    if (member != nullptr && !member->isDeleted()) {
                        positioned.emplace_back(members.isNull(1) ? INT64_MAX : members.integer(1), member);
                    }
                }
            }
        }
        std::stable_sort(positioned.begin(), positioned.end(),
                         [](const auto& a, const auto& b) { return a.first < b.first; });
        std::vector<ManagedObject*> members;
        for (const auto& entry : positioned) {
            members.push_back(entry.second);
        }
        // Members this context added and has not saved yet stay at the end.
        for (ManagedObject* member : owner->toManyObjects(*relationship)) {
            if (member->isInserted() && std::find(members.begin(), members.end(), member) == members.end()) {
                members.push_back(member);
            }
        }
        if (members != owner->toManyObjects(*relationship)) {
            owner->setRelationshipObjects(*relationship, members);
        }
    }
    for (ManagedObject* object : deletions) {
        context.mergeDeletion(*object);
    }
    ManagedObjectContext::MergeResult merged = context.endMerge();
    m_clock.receive(lastClock, Date::now());
    m_lastChangeSetId = lastId;
    noteLog(
        formatMessage("Merged %ld change sets of %ld devices: %ld objects in, %ld changed, %ld removed, %ld "
                      "conflicts kept from this save",
                      static_cast<long>(touched.size()), static_cast<long>(devices.size()),
                      static_cast<long>(merged.inserted.size()), static_cast<long>(merged.updated.size()),
                      static_cast<long>(merged.deleted.size()), static_cast<long>(conflicts)));
    auto references = [](const std::vector<ManagedObject*>& objects) {
        Value::Array array;
        for (ManagedObject* object : objects) {
            array.emplace_back(static_cast<Object*>(object));
        }
        return Value(std::move(array));
    };
    Value::Dictionary userInfo;
    userInfo.emplace(kInsertedObjectsKey, references(merged.inserted));
    userInfo.emplace(kUpdatedObjectsKey, references(merged.updated));
    userInfo.emplace(kDeletedObjectsKey, references(merged.deleted));
    NotificationCenter::defaultCenter().postNotificationName(BLDoc::kObjectsDidChangeExternallyNotification, &context,
                                                             std::move(userInfo));
    return true;
}

bool SQLiteStore::beginWriting(ManagedObjectContext& context, std::string* error) {
    if (m_readOnly) {
        return setError(error, formatMessage(kReadOnlyMessage, CompanyPackage::displayName(m_info.path)));
    }
    if (m_writing) {
        return true;
    }
    SQLiteConnection& db = m_impl->db;
    // IMMEDIATE takes the write lock now, waiting up to the busy time-out for another
    // writer, so that nothing read from here on can change under this save.
    if (!db.execute("BEGIN IMMEDIATE")) {
        std::string message = writeFailureMessage(db.lastError(), db.lastFailure());
        noteError(message);
        if (error != nullptr) {
            *error = message;
        }
        return false;
    }
    m_writing = true;
    // Rows that other writers added since this store last looked take numbers this
    // context may have handed out already: its own new objects move past them.
    int64_t largestInFile =
        db.queryInteger("SELECT value FROM _metadata WHERE key = '" + std::string(kMetaLargestNumber) + "'")
            .value_or(0);
    if (largestInFile > m_largestNumber) {
        context.renumberInsertedObjects(largestInFile);
        m_largestNumber = largestInFile;
    }
    std::string failure;
    if (!mergeCommittedChanges(context, &failure)) {
        const SQLiteConnection::Failure kind = db.lastFailure();
        db.execute("ROLLBACK");
        m_writing = false;
        std::string message = writeFailureMessage(failure, kind);
        noteError(message);
        if (error != nullptr) {
            *error = message;
        }
        return false;
    }
    return true;
}

void SQLiteStore::endWriting() {
    if (m_writing) {
        m_impl->db.execute("ROLLBACK");
        m_writing = false;
    }
}

bool SQLiteStore::saveChanges(const StoreChanges& changes, std::string* error) {
    const auto start = Stopwatch::now();
    if (!m_writing) {
        if (m_context == nullptr) {
            return setError(error, "the store has no context to save");
        }
        if (!beginWriting(*m_context, error)) {
            return false;
        }
    }
    SQLiteConnection& db = m_impl->db;
    // The sequence is drawn under the lock: another program may save under the same
    // device identity.
    SQLiteStatement last = db.prepare("SELECT coalesce(max(sequence), 0) FROM _changesets WHERE device = ?1");
    int64_t lastSequence = m_deviceSequence;
    if (last.isValid()) {
        last.bindText(1, m_device);
        if (last.step() == SQLiteStatement::StepResult::Row) {
            lastSequence = std::max(lastSequence, last.integer(0));
        }
    }
    last = SQLiteStatement();
    const int64_t sequence = lastSequence + 1;
    const uint64_t clock = m_clock.tick(Date::now());
    SaveRun run(*this, changes, sequence, clock);
    bool written = run.prepareStatements() && run.writeHeader() && run.writeObjects() && run.writeDeletions() &&
                   run.writeLinks() && run.writeMetadata();
    run.finishStatements();
    std::string failure = run.failure();
    SQLiteConnection::Failure kind = run.failureKind();
    if (written && !db.execute("COMMIT")) {
        failure = db.lastError();
        kind = db.lastFailure();
        written = false;
    }
    if (!written) {
        std::string message = writeFailureMessage(failure, kind);
        db.execute("ROLLBACK");
        m_writing = false;
        noteError(formatMessage("Saving %@ failed: %@", CompanyPackage::displayName(m_info.path), failure));
        if (error != nullptr) {
            *error = message;
        }
        return false;
    }
    m_writing = false;
    m_deviceSequence = sequence;
    m_largestNumber = run.largest();
    m_lastChangeSetId = std::max(m_lastChangeSetId, run.changeSetId());
    m_impl->dataValuesWritten += run.dataWritten();
    double seconds = secondsSince(start);
    Value::Dictionary entry;
    entry.emplace("operation", Value("save"));
    entry.emplace("objects", Value(static_cast<int64_t>(changes.inserted.size() + changes.updated.size() +
                                                        changes.deleted.size())));
    entry.emplace("seconds", Value(seconds));
    entry.emplace("date", Value(Date::now()));
    m_performance.emplace_back(std::move(entry));
    noteLog(formatMessage("Saved change set %ld: %ld inserted, %ld updated, %ld deleted", static_cast<long>(sequence),
                          static_cast<long>(changes.inserted.size()), static_cast<long>(changes.updated.size()),
                          static_cast<long>(changes.deleted.size())));
    return true;
}

std::optional<Value> SQLiteStore::loadDataValue(const EntityDescription& entity, int64_t number,
                                                const AttributeDescription& attribute, std::string* error) {
    const StoreSchema::EntityTable* table = m_impl->schema.tableForEntity(entity);
    if (table == nullptr || attribute.type != AttributeType::Data) {
        setError(error, "no stored data " + entity.name() + "." + attribute.name);
        return std::nullopt;
    }
    std::lock_guard<std::mutex> lock(m_impl->readerMutex);
    SQLiteConnection& reader = m_impl->reader;
    if (!reader.isOpen()) {
        if (!reader.open(CompanyPackage::databasePath(m_info.path),
                         m_readOnly ? SQLiteConnection::Mode::ReadOnlyImmutable : SQLiteConnection::Mode::ReadWrite)) {
            setError(error, reader.lastError());
            return std::nullopt;
        }
        reader.setBusyTimeout(m_busyTimeoutMilliseconds);
    }
    auto key = std::make_pair(table->name, attribute.name);
    auto found = m_impl->dataReads.find(key);
    if (found == m_impl->dataReads.end()) {
        SQLiteStatement statement = reader.prepare("SELECT " + quote(attribute.name) + " FROM " + quote(table->name) +
                                                   " WHERE \"_number\" = ?1");
        if (!statement.isValid()) {
            setError(error, reader.lastError());
            return std::nullopt;
        }
        found = m_impl->dataReads.emplace(key, std::move(statement)).first;
    }
    SQLiteStatement& statement = found->second;
    statement.reset();
    statement.bindInteger(1, number);
    Value value;
    switch (statement.step()) {
        case SQLiteStatement::StepResult::Row:
            value = StoreSchema::readColumn(statement, 0, AttributeType::Data);
            break;
        case SQLiteStatement::StepResult::Done:
            // The row went with a saved deletion: the value is absent now.
            break;
        case SQLiteStatement::StepResult::Error: {
            std::string message = statement.errorMessage();
            statement.reset();
            setError(error, message);
            return std::nullopt;
        }
    }
    // Reset at once, so the reader holds no snapshot that would keep the log from being
    // checkpointed.
    statement.reset();
    ++m_impl->dataValuesRead;
    if (const Bytes* bytes = value.bytes()) {
        m_impl->dataBytesRead += bytes->size();
    }
    return value;
}

SQLiteStore::DataCounters SQLiteStore::dataCounters() const {
    DataCounters counters;
    counters.valuesRead = m_impl->dataValuesRead.load();
    counters.bytesRead = m_impl->dataBytesRead.load();
    counters.valuesWritten = m_impl->dataValuesWritten.load();
    return counters;
}

std::vector<ChangeSetInfo> SQLiteStore::changeLog() const {
    std::vector<ChangeSetInfo> result;
    SQLiteStatement statement = m_impl->db.prepare(
        "SELECT id, device, sequence, time, clock, inserted, updated, deleted FROM _changesets ORDER BY id");
    while (statement.isValid() && statement.step() == SQLiteStatement::StepResult::Row) {
        ChangeSetInfo info;
        info.id = statement.integer(0);
        info.device = statement.text(1);
        info.sequence = statement.integer(2);
        info.time = Date(statement.real(3));
        info.clock = static_cast<uint64_t>(statement.integer(4));
        info.inserted = statement.integer(5);
        info.updated = statement.integer(6);
        info.deleted = statement.integer(7);
        result.push_back(std::move(info));
    }
    return result;
}

int64_t SQLiteStore::changeSetCount() const {
    return m_impl->db.queryInteger("SELECT count(*) FROM _changesets").value_or(0);
}

std::vector<ChangeRecord> SQLiteStore::changesInChangeSet(int64_t changeSetId) const {
    std::vector<ChangeRecord> result;
    SQLiteStatement statement = m_impl->db.prepare(
        "SELECT entity, object, uid, key, kind, clock, value, typeof(value) FROM _changes WHERE changeset = ?1 "
        "ORDER BY rowid");
    if (!statement.isValid()) {
        return result;
    }
    statement.bindInteger(1, changeSetId);
    const ManagedObjectModel& model = m_impl->schema.model();
    while (statement.step() == SQLiteStatement::StepResult::Row) {
        ChangeRecord record;
        record.entity = statement.text(0);
        record.object = statement.integer(1);
        record.uid = statement.text(2);
        record.key = statement.text(3);
        record.kind = static_cast<ChangeKind>(statement.integer(4));
        record.clock = static_cast<uint64_t>(statement.integer(5));
        const EntityDescription* entity = model.entityNamed(record.entity);
        const AttributeDescription* attribute = entity != nullptr ? entity->attributeNamed(record.key) : nullptr;
        if (attribute != nullptr) {
            record.value = StoreSchema::readColumn(statement, 6, attribute->type);
        } else if (!statement.isNull(6)) {
            // References: the JSON array as written.
            record.value = Value::fromJSON(statement.textView(6)).value_or(Value(statement.text(6)));
        }
        result.push_back(std::move(record));
    }
    return result;
}

Value SQLiteStore::log() const {
    return Value(Value::Array(m_log));
}

Value SQLiteStore::errorsArray() const {
    return Value(Value::Array(m_errors));
}

Value SQLiteStore::peformanceArray() const {
    return Value(Value::Array(m_performance));
}

Value SQLiteStore::sessionInfo() const {
    Value::Array devices;
    SQLiteStatement statement = m_impl->db.prepare(
        "SELECT device, count(*), max(sequence), min(time), max(time) FROM _changesets GROUP BY device "
        "ORDER BY min(id)");
    while (statement.isValid() && statement.step() == SQLiteStatement::StepResult::Row) {
        Value::Dictionary device;
        std::string identifier = statement.text(0);
        device.emplace("device", Value(identifier));
        device.emplace("isThisDevice", Value(identifier == m_device));
        device.emplace("changeSets", Value(statement.integer(1)));
        device.emplace("lastSequence", Value(statement.integer(2)));
        device.emplace("firstSave", Value(Date(statement.real(3))));
        device.emplace("lastSave", Value(Date(statement.real(4))));
        devices.emplace_back(std::move(device));
    }
    return Value(std::move(devices));
}

Value SQLiteStore::changesChain() const {
    Value::Array chain;
    for (const ChangeSetInfo& info : changeLog()) {
        Value::Dictionary entry;
        entry.emplace("device", Value(info.device));
        entry.emplace("sequence", Value(info.sequence));
        entry.emplace("date", Value(info.time));
        entry.emplace("clock", Value(static_cast<int64_t>(info.clock)));
        entry.emplace("inserted", Value(info.inserted));
        entry.emplace("updated", Value(info.updated));
        entry.emplace("deleted", Value(info.deleted));
        chain.emplace_back(std::move(entry));
    }
    return Value(std::move(chain));
}

std::optional<StoreError> SQLiteStore::exportDatabaseToSQLite(const std::string& path, bool replaceExisting) const {
    auto exportError = [&](int code, std::string message) {
        logMessage("Export to %@ failed: %@", path, message);
        return StoreError{kExportSQLiteErrorDomain, code, std::move(message)};
    };
    std::error_code code;
    // Any package on the way, this one or another: writing there would put a foreign file
    // into a company file, or replace its database.
    const fs::path target = fs::weakly_canonical(fs::absolute(path, code), code);
    for (fs::path folder = target; !folder.empty() && folder != folder.root_path(); folder = folder.parent_path()) {
        if (folder.extension() == CompanyPackage::kExtension) {
            return exportError(
                kExportSQLiteInsidePackageCode,
                formatMessage(kExportSQLiteInsidePackageMessage, path, CompanyPackage::displayName(folder.string())));
        }
    }
    if (!replaceExisting && fs::exists(fs::symlink_status(path, code))) {
        return exportError(kExportSQLiteTargetExistsCode, formatMessage(kExportSQLiteTargetExistsMessage, path));
    }
    SQLiteConnection& db = m_impl->db;
    if (!db.execute("BEGIN")) {
        return exportError(kExportSQLiteWriteFailedCode,
                           formatMessage(kExportSQLiteWriteFailedMessage, db.lastError()));
    }
    std::string readError;
    std::optional<StoreSnapshot> snapshot = StoreSnapshot::read(db, m_impl->schema, &readError, nullptr);
    db.execute("COMMIT");
    if (!snapshot) {
        return exportError(kExportSQLiteWriteFailedCode, formatMessage(kExportSQLiteWriteFailedMessage, readError));
    }
    // Object IDs are the URIs without their scheme and store: "<Entity>/p<number>".
    std::unordered_map<int64_t, std::string> ids;
    for (const StoreSnapshot::Table& table : snapshot->tables) {
        for (int64_t number : table.numbers) {
            ids.emplace(number, table.table->entity->name() + "/p" + std::to_string(number));
        }
    }
    std::map<std::pair<int64_t, const RelationshipDescription*>, std::string> toManyIds;
    for (const StoreSnapshot::Edge& edge : snapshot->edges) {
        auto member = ids.find(edge.member);
        if (member == ids.end()) {
            continue;
        }
        std::string& joined = toManyIds[{edge.owner, edge.relationship}];
        if (!joined.empty()) {
            joined += ",";
        }
        joined += member->second;
    }

    const std::string temporary = path + ".export-" + std::to_string(::getpid());
    fs::remove(temporary, code);
    SQLiteConnection out;
    if (!out.open(temporary, SQLiteConnection::Mode::Create) ||
        !out.execute("PRAGMA journal_mode = DELETE; BEGIN IMMEDIATE")) {
        out.close();
        fs::remove(temporary, code);
        return exportError(kExportSQLiteCreateFailedCode, kExportSQLiteCreateFailedMessage);
    }
    auto writeFailed = [&](const std::string& reason) {
        out.close();
        fs::remove(temporary, code);
        return exportError(kExportSQLiteWriteFailedCode, formatMessage(kExportSQLiteWriteFailedMessage, reason));
    };
    for (const StoreSnapshot::Table& table : snapshot->tables) {
        const StoreSchema::EntityTable& entityTable = *table.table;
        const EntityDescription& entity = *entityTable.entity;
        std::string create = "CREATE TABLE " + quote(entity.name()) + " (\"objectID\" TEXT PRIMARY KEY";
        std::string insert = "INSERT INTO " + quote(entity.name()) + " VALUES (?1";
        int columnCount = 1;
        for (const AttributeDescription* attribute : entityTable.attributes) {
            create += ", " + quote(attribute->name) + " " + StoreSchema::columnType(attribute->type);
            insert += ", ?" + std::to_string(++columnCount);
        }
        std::vector<const RelationshipDescription*> toManys;
        for (const StoreSchema::ToOneColumn& toOne : entityTable.toOnes) {
            create += ", " + quote(toOne.relationship->name + "_id") + " TEXT";
            insert += ", ?" + std::to_string(++columnCount);
        }
        for (const RelationshipDescription* relationship : entity.relationships()) {
            if (relationship->isToMany) {
                toManys.push_back(relationship);
                create += ", " + quote(relationship->name + "_ids") + " TEXT";
                insert += ", ?" + std::to_string(++columnCount);
            }
        }
        if (!out.execute(create + ")")) {
            return writeFailed(out.lastError());
        }
        SQLiteStatement statement = out.prepare(insert + ")");
        if (!statement.isValid()) {
            return writeFailed(out.lastError());
        }
        const size_t attributeCount = entityTable.attributes.size();
        const size_t toOneCount = entityTable.toOnes.size();
        for (size_t row = 0; row < table.numbers.size(); ++row) {
            const int64_t number = table.numbers[row];
            statement.reset();
            int index = 1;
            statement.bindText(index++, ids[number]);
            for (size_t i = 0; i < attributeCount; ++i) {
                StoreSchema::bindColumn(statement, index++, entityTable.attributes[i]->type,
                                        table.values[row * attributeCount + i]);
            }
            for (size_t i = 0; i < toOneCount; ++i) {
                auto target = ids.find(table.toOneTargets[row * toOneCount + i]);
                if (target == ids.end()) {
                    statement.bindNull(index++);
                } else {
                    statement.bindText(index++, target->second);
                }
            }
            for (const RelationshipDescription* relationship : toManys) {
                auto joined = toManyIds.find({number, relationship});
                if (joined == toManyIds.end()) {
                    statement.bindNull(index++);
                } else {
                    statement.bindText(index++, joined->second);
                }
            }
            if (statement.step() != SQLiteStatement::StepResult::Done) {
                return writeFailed(statement.errorMessage());
            }
        }
    }
    if (!out.execute("COMMIT")) {
        return writeFailed(out.lastError());
    }
    out.close();
    if (std::rename(temporary.c_str(), path.c_str()) != 0) {
        fs::remove(temporary, code);
        return exportError(kExportSQLiteCreateFailedCode, kExportSQLiteCreateFailedMessage);
    }
    return std::nullopt;
}

}  // namespace brassline
