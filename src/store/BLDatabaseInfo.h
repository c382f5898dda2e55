#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "core/Date.h"
#include "core/Value.h"

namespace brassline {

class BLDoc;

// A store found on disk: a current company package, an older store or a backup, as its
// Info.plist tells. Reads only.
struct BLDatabaseInfo {
    std::string path;
    std::string profileUID;
    Value::Dictionary infoDictionary;
    // From Info.plist; for an older ".storedata" store from the store's own metadata.
    int64_t modelVersion = 0;
    // "None" (current), "V3SQL" (an older ".storedata" store), "V2Backup", "V3Backup" or
    // "Unknown".
    std::string migrationType = "Unknown";
    std::optional<std::string> migrationIdentifier;
    std::optional<Date> migrationDate;
    bool needsMigration = true;

    // Nothing for a path that does not exist; else the info after loadInfo.
    static std::optional<BLDatabaseInfo> infoWithPath(const std::string& path);
    void loadInfo();
    // Same store: equal paths, or one path a prefix of the other (a store inside a package).
    bool operator==(const BLDatabaseInfo& other) const;
};

// The stores the user may mean: those of the recent documents, the older store in the
// application's folder and the old backup package, leaving out unknown kinds and paths
// already listed. Main thread; one shared object.
class BLDatabaseInfoManager {
public:
    static BLDatabaseInfoManager& shared();
    // Where the application's folders live (the user's data folder by default); tests
    // point it elsewhere. Empty restores the default.
    static void setApplicationSupportDirectory(std::string path);
    static std::string applicationSupportDirectory();

    // Collects the infos anew.
    const std::vector<BLDatabaseInfo>& collect();
    const std::vector<BLDatabaseInfo>& infos() const { return m_infos; }
    // With no document open: the newest info (by migrationDate) carrying
    // `migrationIdentifier` opens through the document controller. Null otherwise.
    BLDoc* openMigrated(const std::string& migrationIdentifier, std::string* error = nullptr);

private:
    void add(std::optional<BLDatabaseInfo> info);
    std::vector<BLDatabaseInfo> m_infos;
};

}  // namespace brassline
