#include "store/CompanyPackage.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <system_error>

#include <fcntl.h>
#include <unistd.h>

#include "core/Log.h"
#include "store/StoreMessages.h"

namespace brassline {

namespace fs = std::filesystem;

namespace {

bool fail(std::string* error, std::string message) {
    logMessage("%@", message);
    if (error != nullptr) {
        *error = std::move(message);
    }
    return false;
}

// Inspection is also a probe (isCorrectFormat): the caller that refuses logs.
void refuse(std::string* error, std::string message) {
    if (error != nullptr) {
        *error = std::move(message);
    }
}

std::optional<Bytes> readFile(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    if (!in) {
        return std::nullopt;
    }
    Bytes data((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    if (in.bad()) {
        return std::nullopt;
    }
    return data;
}

bool writeAll(int fd, const std::string& text) {
    size_t written = 0;
    while (written < text.size()) {
        ssize_t count = ::write(fd, text.data() + written, text.size() - written);
        if (count < 0) {
            if (errno == EINTR) {
                continue;
            }
            return false;
        }
        written += static_cast<size_t>(count);
    }
    return true;
}

}  // namespace

std::string CompanyPackage::infoPath(const std::string& packagePath) {
    return (fs::path(packagePath) / kInfoFileName).string();
}

std::string CompanyPackage::databasePath(const std::string& packagePath) {
    return (fs::path(packagePath) / kDatabaseFileName).string();
}

std::string CompanyPackage::displayName(const std::string& path) {
    fs::path file(path);
    if (!file.has_filename()) {
        file = file.parent_path();
    }
    return file.filename().string();
}

std::optional<PackageInfo> CompanyPackage::inspect(const std::string& path, std::string* error) {
    const std::string name = displayName(path);
    std::error_code code;
    if (!fs::exists(path, code)) {
        refuse(error, formatMessage(kMissingPackageMessage, name));
        return std::nullopt;
    }
    fs::path folder(path);
    if (!folder.has_filename()) {
        folder = folder.parent_path();  // "Acme.brassline/" names the folder too.
    }
    if (!fs::is_directory(path, code) || folder.extension() != kExtension) {
        refuse(error, formatMessage(kNotAPackageMessage, name));
        return std::nullopt;
    }
    const std::string plistPath = infoPath(path);
    if (!fs::exists(plistPath, code)) {
        // Packages of the previous generation kept their store without Info.plist.
        if (fs::exists(fs::path(path) / kOlderStoreFileName, code)) {
            refuse(error, formatMessage(kOlderFormatMessage, name));
        } else if (fs::exists(fs::path(path) / kDatabaseFileName, code)) {
            // Earlier versions wrote Info.plist last, in place: a package with a database
            // and no Info.plist is one whose creation was cut short.
            refuse(error, formatMessage(kLeftoverPackageMessage, name));
        } else {
            refuse(error, formatMessage(kNotAPackageMessage, name));
        }
        return std::nullopt;
    }
    std::optional<Bytes> data = readFile(plistPath);
    if (!data) {
        refuse(error, formatMessage(kUnreadableInfoMessage, name, std::strerror(errno)));
        return std::nullopt;
    }
    std::string parseError;
    std::optional<Value> parsed = Value::fromPropertyList(*data, &parseError);
    if (!parsed || parsed->dictionary() == nullptr) {
        refuse(error, formatMessage(kUnreadableInfoMessage, name, parsed ? "not a dictionary" : parseError));
        return std::nullopt;
    }
    const Value::Dictionary& info = *parsed->dictionary();
    const Value& type = (*parsed)[kTypeKey];
    if (!type.isNull()) {
        std::string typeName = type.toString();
        if (typeName == "layout3" || typeName == "design") {
            refuse(error, kLayoutPackageMessage);
        } else if (typeName == "backup" || typeName == "brassline3backup" || typeName == "TWBackup") {
            refuse(error, formatMessage(kBackupPackageMessage, name));
        } else {
            refuse(error, formatMessage(kForeignTypeMessage, name, typeName));
        }
        return std::nullopt;
    }
    if (info.count(kEncryptionKey) != 0) {
        refuse(error, formatMessage(kEncryptedPackageMessage, name));
        return std::nullopt;
    }
    const Value& holdfast = (*parsed)[kHoldfastKey];
    if (holdfast.isNull()) {
        refuse(error, formatMessage(kOlderFormatMessage, name));
        return std::nullopt;
    }
    PackageInfo result;
    result.path = path;
    result.infoDictionary = info;
    result.documentIdentifier = (*parsed)[kDocumentIdentifierKey].toString();
    result.storeIdentifier = holdfast[kStoreIdentifierKey].toString();
    result.modelName = holdfast[kModelNameKey].toString();
    result.modelVersion = holdfast[kModelVersionKey].toInt64();
    result.formatVersion = holdfast[kFormatVersionKey].toInt64();
    if (holdfast.dictionary() == nullptr || result.modelName.empty() || result.modelVersion <= 0 ||
        result.formatVersion <= 0 || result.documentIdentifier.empty()) {
        refuse(error, formatMessage(kUnreadableInfoMessage, name, "the store description is incomplete"));
        return std::nullopt;
    }
    if (const std::string* migration = (*parsed)[kMigrationIdentifierKey].string()) {
        result.migrationIdentifier = *migration;
    }
    if (const Date* date = (*parsed)[kMigrationDateKey].date()) {
        result.migrationDate = *date;
    }
    return result;
}

bool CompanyPackage::isCorrectFormat(const std::string& path) {
    return inspect(path).has_value();
}

bool CompanyPackage::writeInfo(const std::string& packagePath, const Value::Dictionary& info, std::string* error) {
    const std::string name = displayName(packagePath);
    const std::string target = infoPath(packagePath);
    const std::string temporary = target + ".tmp-" + std::to_string(::getpid());
    std::string text = Value(info).toXMLPropertyList();
    if (text.empty()) {
        return fail(error, formatMessage(kWriteFailedMessage, name, "Info.plist could not be encoded"));
    }
    int fd = ::open(temporary.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
    if (fd < 0) {
        return fail(error, formatMessage(kWriteFailedMessage, name, std::strerror(errno)));
    }
    // The data must be on disk before the rename makes it the file: otherwise a crash
    // could leave a renamed but empty Info.plist.
    bool written = writeAll(fd, text) && ::fsync(fd) == 0;
    int savedErrno = errno;
    ::close(fd);
    if (!written || std::rename(temporary.c_str(), target.c_str()) != 0) {
        savedErrno = written ? errno : savedErrno;
        ::unlink(temporary.c_str());
        return fail(error, formatMessage(kWriteFailedMessage, name, std::strerror(savedErrno)));
    }
    // The rename itself lives in the directory.
    int directory = ::open(packagePath.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (directory >= 0) {
        ::fsync(directory);
        ::close(directory);
    }
    return true;
}

}  // namespace brassline
