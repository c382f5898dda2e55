#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "core/Value.h"

namespace brassline {

// What Info.plist of a current company package tells.
struct PackageInfo {
    std::string path;  // The package folder.
    Value::Dictionary infoDictionary;
    std::string documentIdentifier;
    std::string storeIdentifier;
    std::string modelName;
    int64_t modelVersion = 0;
    int64_t formatVersion = 0;
    std::optional<std::string> migrationIdentifier;
    std::optional<Date> migrationDate;
};

// The folder "Name.brassline" of a company file: Info.plist and the store's database
// beside it. Only reads, except writeInfo, which replaces Info.plist atomically.
class CompanyPackage {
public:
    static constexpr std::string_view kExtension = ".brassline";
    static constexpr const char* kInfoFileName = "Info.plist";
    static constexpr const char* kDatabaseFileName = "Store.sqlite";
    static constexpr const char* kOlderStoreFileName = "Brassline3.storedata";
    // Info.plist keys.
    static constexpr const char* kHoldfastKey = "Holdfast";
    static constexpr const char* kDocumentIdentifierKey = "DocumentIdentifier";
    static constexpr const char* kMigrationIdentifierKey = "DocumentInfo.MigrationIdentifier";
    static constexpr const char* kMigrationDateKey = "DocumentInfo.MigrationDate";
    static constexpr const char* kEncryptionKey = "Encryption";
    static constexpr const char* kTypeKey = "type";
    static constexpr const char* kUserInfoKey = "UserInfo";
    // Keys of the "Holdfast" dictionary.
    static constexpr const char* kFormatVersionKey = "FormatVersion";
    static constexpr const char* kModelNameKey = "ModelName";
    static constexpr const char* kModelVersionKey = "ModelVersion";
    static constexpr const char* kStoreIdentifierKey = "StoreIdentifier";
    static constexpr int64_t kFormatVersion = 1;

    // Reads and checks Info.plist: the package's info, or nothing with the user's message
    // in `error` (a missing path, a plain file, a layout, a backup, an older or encrypted
    // package, an unreadable Info.plist). Writes and logs nothing.
    static std::optional<PackageInfo> inspect(const std::string& path, std::string* error = nullptr);
    // Whether `path` is a current package (inspect succeeds).
    static bool isCorrectFormat(const std::string& path);

    static std::string infoPath(const std::string& packagePath);
    static std::string databasePath(const std::string& packagePath);
    // The file name as the user knows it ("Acme.brassline").
    static std::string displayName(const std::string& path);

    // Replaces Info.plist with `info` (XML): written to a temporary file, flushed to disk,
    // then renamed over the old one, so a crash leaves the old or the new file whole.
    static bool writeInfo(const std::string& packagePath, const Value::Dictionary& info, std::string* error = nullptr);
};

}  // namespace brassline
