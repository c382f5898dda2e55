#include "store/BLDocumentController.h"

#include <algorithm>
#include <cctype>
#include <filesystem>
#include <optional>

#include <sys/stat.h>

#include "core/Date.h"
#include "core/Log.h"
#include "store/BLDoc.h"
#include "store/BLUserDefaults.h"
#include "store/CompanyPackage.h"

namespace brassline {

namespace {

namespace fs = std::filesystem;

constexpr const char* kMaximumRecentDocumentCountKey = "maximumRecentDocumentCount";
constexpr int64_t kDefaultRecentDocumentCount = 10;

// One spelling per package, so that "a/../Acme.brassline/" and "Acme.brassline" are the
// same document and the same recent record.
std::string normalizedPath(std::string_view path) {
    std::error_code code;
    fs::path absolute = fs::absolute(fs::path(path), code);
    std::string text = (code ? fs::path(path) : absolute).lexically_normal().string();
    while (text.size() > 1 && text.back() == '/') {
        text.pop_back();
    }
    return text;
}

int hexValue(char c) {
    if (c >= '0' && c <= '9') {
        return c - '0';
    }
    if (c >= 'a' && c <= 'f') {
        return c - 'a' + 10;
    }
    return c >= 'A' && c <= 'F' ? c - 'A' + 10 : -1;
}

// Older versions keyed the records by "file:///..." URLs.
std::string pathFromKey(const std::string& key) {
    constexpr std::string_view prefix = "file://";
    if (key.rfind(prefix, 0) != 0) {
        return key;
    }
    std::string path;
    for (size_t i = prefix.size(); i < key.size(); ++i) {
        if (key[i] == '%' && i + 2 < key.size() && hexValue(key[i + 1]) >= 0 && hexValue(key[i + 2]) >= 0) {
            path.push_back(static_cast<char>(hexValue(key[i + 1]) * 16 + hexValue(key[i + 2])));
            i += 2;
        } else {
            path.push_back(key[i]);
        }
    }
    return normalizedPath(path);
}

// The user defaults file is JSON, where a date comes back as its ISO 8601 text.
std::optional<Date> dateOf(const Value& value) {
    if (value.date() != nullptr) {
        return *value.date();
    }
    if (value.string() != nullptr) {
        return Date::parseISO8601(*value.string());
    }
    return std::nullopt;
}

double lastOpened(const Value& record) {
    std::optional<Date> date = dateOf(record[BLDocumentController::kLastDateOpenedKey]);
    return date ? date->timeIntervalSinceReferenceDate() : -1e300;
}

bool fileExists(const std::string& path) {
    std::error_code code;
    return fs::exists(path, code);
}

Value volumeInfo(const std::string& path) {
    struct stat info {};
    if (::stat(path.c_str(), &info) != 0) {
        return Value(Value::Dictionary{});
    }
    return Value(Value::Dictionary{{"Device", Value(static_cast<int64_t>(info.st_dev))}});
}

// The records newest first.
std::vector<std::pair<std::string, Value>> byDate(const Value::Dictionary& records) {
    std::vector<std::pair<std::string, Value>> sorted(records.begin(), records.end());
    std::stable_sort(sorted.begin(), sorted.end(),
                     [](const auto& a, const auto& b) { return lastOpened(a.second) > lastOpened(b.second); });
    return sorted;
}

std::unique_ptr<BLDocumentController>& sharedInstance() {
    static std::unique_ptr<BLDocumentController> instance;
    return instance;
}

}  // namespace

BLDocumentController& BLDocumentController::shared() {
    std::unique_ptr<BLDocumentController>& instance = sharedInstance();
    if (!instance) {
        instance.reset(new BLDocumentController());
    }
    return *instance;
}

void BLDocumentController::resetSharedForTesting() {
    sharedInstance().reset();
}

void BLDocumentController::closeAllDocuments() {
    // Newest first, the reverse of opening.
    while (!m_documents.empty()) {
        m_documents.pop_back();
    }
}

BLDocumentController::~BLDocumentController() {
    closeAllDocuments();
}

BLDoc* BLDocumentController::documentForURL(const std::string& path) const {
    std::string wanted = normalizedPath(path);
    for (const auto& document : m_documents) {
        if (normalizedPath(document->fileURL()) == wanted) {
            return document.get();
        }
    }
    return nullptr;
}

std::unique_ptr<BLDoc> BLDocumentController::makeDocumentWithContentsOfURL(const std::string& path,
                                                                           std::string* error) {
    if (documentForURL(path) != nullptr) {
        if (error != nullptr) {
            *error = "\"" + CompanyPackage::displayName(path) + "\" is open already.";
        }
        return nullptr;
    }
    return BLDoc::open(path, error);
}

BLDoc* BLDocumentController::openDocumentWithContentsOfURL(const std::string& path, std::string* error) {
    if (!BLDoc::isValidLocation(path)) {
        if (error != nullptr) {
            *error = "\"" + path + "\" lies in a system update snapshot and can't be opened.";
        }
        logMessage("Refusing to open %@: invalid location", path);
        return nullptr;
    }
    if (BLDoc* open = documentForURL(path)) {
        logURL(open->fileURL());
        return open;
    }
    std::unique_ptr<BLDoc> document = makeDocumentWithContentsOfURL(path, error);
    if (!document) {
        return nullptr;
    }
    logURL(document->fileURL());
    return addDocument(std::move(document));
}

BLDoc* BLDocumentController::addDocument(std::unique_ptr<BLDoc> document) {
    if (!document) {
        return nullptr;
    }
    m_documents.push_back(std::move(document));
    return m_documents.back().get();
}

void BLDocumentController::closeDocument(BLDoc* document) {
    auto it = std::find_if(m_documents.begin(), m_documents.end(),
                           [document](const auto& open) { return open.get() == document; });
    if (it != m_documents.end()) {
        m_documents.erase(it);
    }
}

BLDoc* BLDocumentController::currentDocument() const {
    return m_documents.empty() ? nullptr : m_documents.back().get();
}

BLDoc* BLDocumentController::documentWithUID(std::string_view identifier, std::string* error) {
    if (identifier.empty()) {
        if (currentDocument() == nullptr && error != nullptr) {
            *error = "no company file is open";
        }
        return currentDocument();
    }
    auto sameIdentifier = [identifier](const std::string& other) {
        return other.size() == identifier.size() &&
               std::equal(other.begin(), other.end(), identifier.begin(), [](char a, char b) {
                   return std::tolower(static_cast<unsigned char>(a)) == std::tolower(static_cast<unsigned char>(b));
               });
    };
    for (const auto& document : m_documents) {
        if (sameIdentifier(document->documentIdentifier())) {
            return document.get();
        }
    }
    for (const auto& [path, record] : byDate(recentDocumentDictionaries())) {
        const Value& info = record[kDocumentInfoKey];
        if (sameIdentifier(info[CompanyPackage::kDocumentIdentifierKey].toString()) && fileExists(path)) {
            return openDocumentWithContentsOfURL(path, error);
        }
    }
    if (error != nullptr) {
        *error = "no company file with the identifier " + std::string(identifier) + " is known";
    }
    return nullptr;
}

Value::Dictionary BLDocumentController::recentDocumentDictionaries() const {
    Value stored = UserDefaults::standard().objectForKey(kRecentDocumentsKey);
    Value::Dictionary records;
    if (stored.dictionary() == nullptr) {
        return records;
    }
    for (const auto& [key, record] : *stored.dictionary()) {
        if (record.dictionary() == nullptr) {
            continue;
        }
        std::string path = pathFromKey(key);
        // A path key wins over the URL key of an older version for the same file.
        if (path == key || records.count(path) == 0) {
            records[path] = record;
        }
    }
    return records;
}

void BLDocumentController::writeRecent(Value::Dictionary records) {
    size_t limit = maximumRecentDocumentCount();
    if (records.size() > limit) {
        std::vector<std::pair<std::string, Value>> sorted = byDate(records);
        for (size_t i = limit; i < sorted.size(); ++i) {
            records.erase(sorted[i].first);
        }
    }
    UserDefaults::standard().setObject(records.empty() ? Value() : Value(std::move(records)), kRecentDocumentsKey);
}

void BLDocumentController::logURL(const std::string& path) {
    std::string key = normalizedPath(path);
    Value::Dictionary records = recentDocumentDictionaries();
    Value::Dictionary info;
    if (std::optional<PackageInfo> package = CompanyPackage::inspect(key)) {
        info = package->infoDictionary;
    }
    records[key] = Value(Value::Dictionary{{kVolumeInfoKey, volumeInfo(key)},
                                           {kLastDateOpenedKey, Value(Date::now())},
                                           {kDocumentInfoKey, Value(std::move(info))},
                                           {kFileExistsKey, Value(true)}});
    for (auto& [recentPath, record] : records) {
        Value::Dictionary updated = *record.dictionary();
        updated[kFileExistsKey] = Value(fileExists(recentPath));
        record = Value(std::move(updated));
    }
    writeRecent(std::move(records));
}

std::vector<std::string> BLDocumentController::recentDocumentURLs() const {
    std::vector<std::string> paths;
    for (const auto& [path, record] : byDate(recentDocumentDictionaries())) {
        if (paths.size() == maximumRecentDocumentCount()) {
            break;
        }
        paths.push_back(path);
    }
    return paths;
}

size_t BLDocumentController::maximumRecentDocumentCount() const {
    Value stored = UserDefaults::standard().objectForKey(kMaximumRecentDocumentCountKey);
    int64_t count = stored.isNull() ? kDefaultRecentDocumentCount : stored.toInt64();
    return std::max<size_t>(kMinimumRecentDocumentCount, count > 0 ? static_cast<size_t>(count) : 0);
}

void BLDocumentController::setMaximumRecentDocumentCount(size_t count) {
    UserDefaults::standard().setObject(Value(static_cast<int64_t>(count)), kMaximumRecentDocumentCountKey);
}

void BLDocumentController::clearRecentDocuments() {
    UserDefaults::standard().removeObject(kRecentDocumentsKey);
}

BLDoc* BLDocumentController::openLastDocument(std::string* error) {
    std::vector<std::pair<std::string, Value>> records = byDate(recentDocumentDictionaries());
    for (const auto& [path, record] : records) {
        // The flag may be stale: the file could have gone since it was written.
        if (record[kFileExistsKey].toBool() && fileExists(path)) {
            return openDocumentWithContentsOfURL(path, error);
        }
    }
    std::vector<std::string> recent = recentDocumentURLs();
    if (!recent.empty()) {
        return openDocumentWithContentsOfURL(recent.front(), error);
    }
    if (error != nullptr) {
        *error = "no recent company file to open";
    }
    return nullptr;
}

BLDoc* BLDocumentController::openLastDocumentIfNeeded(std::string* error) {
    return currentDocument() != nullptr ? currentDocument() : openLastDocument(error);
}

std::string BLDocumentController::lastDocumentName() const {
    std::vector<std::string> recent = recentDocumentURLs();
    return recent.empty() ? std::string() : fs::path(recent.front()).stem().string();
}

std::string BLDocumentController::lastDocumentUID() const {
    std::vector<std::pair<std::string, Value>> records = byDate(recentDocumentDictionaries());
    return records.empty()
               ? std::string()
               : records.front().second[kDocumentInfoKey][CompanyPackage::kDocumentIdentifierKey].toString();
}

void BLDocumentController::storeFiles() {
    Value::Array files;
    for (const auto& document : m_documents) {
        files.push_back(Value(Value::Dictionary{{"URL", Value(document->fileURL())}, {"Frame", Value("")}}));
    }
    UserDefaults::standard().setObject(files.empty() ? Value() : Value(std::move(files)), kDocumentsToReopenKey);
}

size_t BLDocumentController::restoreFiles() {
    Value stored = UserDefaults::standard().objectForKey(kDocumentsToReopenKey);
    if (stored.array() == nullptr) {
        return 0;
    }
    size_t opened = 0;
    const Value::Array& files = *stored.array();
    for (auto it = files.rbegin(); it != files.rend(); ++it) {
        std::string path = (*it)["URL"].toString();
        if (path.empty() || !fileExists(path) || documentForURL(path) != nullptr) {
            continue;
        }
        std::string error;
        if (openDocumentWithContentsOfURL(path, &error) != nullptr) {
            ++opened;
        } else {
            logMessage("restoreFiles: %@ doesn't open: %@", path, error);
        }
    }
    return opened;
}

}  // namespace brassline
