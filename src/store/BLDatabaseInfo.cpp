#include "store/BLDatabaseInfo.h"

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>

#include "core/Log.h"
#include "store/BLDoc.h"
#include "store/BLDocumentController.h"
#include "store/CompanyPackage.h"
#include "store/SQLiteConnection.h"

namespace brassline {

namespace {

namespace fs = std::filesystem;

std::optional<Value::Dictionary> readInfoPlist(const std::string& packagePath) {
    std::ifstream in(CompanyPackage::infoPath(packagePath), std::ios::binary);
    if (!in) {
        return std::nullopt;
    }
    Bytes data((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    std::optional<Value> value = Value::fromPropertyList(data);
    if (!value || value->dictionary() == nullptr) {
        return std::nullopt;
    }
    return *value->dictionary();
}

// The model version an older store keeps in its own metadata: the "modelVersion" row of
// "_metadata", else the database header's user version. Opened read-only, so looking at a
// store never changes it. Nothing when the file is no readable database.
std::optional<int64_t> storedModelVersion(const std::string& path) {
    SQLiteConnection db;
    if (!db.open(path, SQLiteConnection::Mode::ReadOnly)) {
        logMessage("The store %@ can't be read: %@", path, db.lastError());
        return std::nullopt;
    }
    if (db.tableExists("_metadata")) {
        if (std::optional<int64_t> version =
                db.queryInteger("SELECT CAST(value AS INTEGER) FROM _metadata WHERE key = 'modelVersion'")) {
            return version;
        }
    }
    std::optional<int64_t> version = db.queryInteger("PRAGMA user_version");
    if (!version) {
        logMessage("The store %@ tells no model version: %@", path, db.lastError());
    }
    return version;
}

std::string defaultApplicationSupport() {
    if (const char* data = std::getenv("XDG_DATA_HOME"); data != nullptr && data[0] != '\0') {
        return data;
    }
    const char* home = std::getenv("HOME");
    return std::string(home != nullptr ? home : ".") + "/.local/share";
}

std::string& applicationSupportOverride() {
    static std::string path;
    return path;
}

}  // namespace

std::optional<BLDatabaseInfo> BLDatabaseInfo::infoWithPath(const std::string& path) {
    std::error_code code;
    if (path.empty() || !fs::exists(path, code)) {
        return std::nullopt;
    }
    BLDatabaseInfo info;
    info.path = path;
    info.loadInfo();
    return info;
}

void BLDatabaseInfo::loadInfo() {
    std::optional<Value::Dictionary> plist = readInfoPlist(path);
    infoDictionary = plist.value_or(Value::Dictionary{});
    const Value info(infoDictionary);
    profileUID = info[CompanyPackage::kDocumentIdentifierKey].toString();
    if (plist && !info[CompanyPackage::kHoldfastKey].isNull()) {
        migrationType = "None";
        needsMigration = false;
        modelVersion = info[CompanyPackage::kHoldfastKey][CompanyPackage::kModelVersionKey].toInt64();
        if (const std::string* identifier = info[CompanyPackage::kMigrationIdentifierKey].string()) {
            migrationIdentifier = *identifier;
        }
        if (const Date* date = info[CompanyPackage::kMigrationDateKey].date()) {
            migrationDate = *date;
        }
        return;
    }
    needsMigration = true;
    migrationType = "Unknown";
    std::string type = info[CompanyPackage::kTypeKey].toString();
    if (!plist && fs::path(path).extension() == ".storedata") {
        migrationType = "V3SQL";
        modelVersion = storedModelVersion(path).value_or(0);
    } else if (type == "backup") {
        migrationType = "V2Backup";
    } else if (type == "brassline3backup") {
        migrationType = "V3Backup";
    }
}

bool BLDatabaseInfo::operator==(const BLDatabaseInfo& other) const {
    return path.rfind(other.path, 0) == 0 || other.path.rfind(path, 0) == 0;
}

BLDatabaseInfoManager& BLDatabaseInfoManager::shared() {
    static BLDatabaseInfoManager manager;
    return manager;
}

void BLDatabaseInfoManager::setApplicationSupportDirectory(std::string path) {
    applicationSupportOverride() = std::move(path);
}

std::string BLDatabaseInfoManager::applicationSupportDirectory() {
    return applicationSupportOverride().empty() ? defaultApplicationSupport() : applicationSupportOverride();
}

void BLDatabaseInfoManager::add(std::optional<BLDatabaseInfo> info) {
    if (!info || info->migrationType == "Unknown") {
        return;
    }
    for (const BLDatabaseInfo& known : m_infos) {
        if (known == *info) {
            return;
        }
    }
    m_infos.push_back(std::move(*info));
}

const std::vector<BLDatabaseInfo>& BLDatabaseInfoManager::collect() {
    m_infos.clear();
    for (const std::string& path : BLDocumentController::shared().recentDocumentURLs()) {
        add(BLDatabaseInfo::infoWithPath(path));
    }
    std::string support = applicationSupportDirectory();
    add(BLDatabaseInfo::infoWithPath(support + "/com.orvane.Brassline3/Data.brassline/Brassline3.storedata"));
    add(BLDatabaseInfo::infoWithPath(support + "/Brassline/Backup.brassline"));
    return m_infos;
}

BLDoc* BLDatabaseInfoManager::openMigrated(const std::string& migrationIdentifier, std::string* error) {
    BLDocumentController& controller = BLDocumentController::shared();
    if (controller.documentCount() > 0 || migrationIdentifier.empty()) {
        return nullptr;
    }
    const BLDatabaseInfo* newest = nullptr;
    for (const BLDatabaseInfo& info : m_infos) {
        if (info.migrationIdentifier != migrationIdentifier) {
            continue;
        }
        if (newest == nullptr || info.migrationDate.value_or(Date()) > newest->migrationDate.value_or(Date())) {
            newest = &info;
        }
    }
    if (newest == nullptr) {
        if (error != nullptr) {
            *error = "no migrated company file with the identifier " + migrationIdentifier;
        }
        return nullptr;
    }
    logMessage("Opening the migrated company file %@", newest->path);
    return controller.openDocumentWithContentsOfURL(newest->path, error);
}

}  // namespace brassline
