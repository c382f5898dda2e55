#include "lifecycle/FilingCopy.h"

#include <cerrno>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <filesystem>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "core/Localization.h"
#include "core/Log.h"
#include "core/UniqueId.h"
#include "lifecycle/Numbering.h"
#include "model/BLSyncHelper.h"
#include "model/ManagedObjectContext.h"
#include "model/entities/BLClient.h"
#include "model/entities/BLCurrency.h"
#include "model/entities/BLCustomValue.h"
#include "model/entities/BLPayment.h"
#include "model/entities/BLPreference.h"
#include "model/entities/BLSendable.h"
#include "model/entities/BLSendableStorage.h"
#include "store/BLDoc.h"
#include "store/BLUserDefaults.h"

namespace brassline {

namespace {

constexpr const char* kSaveDocumentsAutomatically = "SaveDocumentsAutomatically";
constexpr const char* kDocumentsRoot = "documentsRoot";
constexpr const char* kDefaultDocumentsRoot = "~/Documents";
constexpr const char* kUseFilingNameForMails = "useFilingNameForMails";
constexpr const char* kUseBackdropPreference = "stationary.useInDocuments";
constexpr const char* kBackdropPreference = "mail.backdrop";
constexpr const char* kChangesAttachmentName = "Brassline.json";

FilingHooks& hooksStorage() {
    static FilingHooks hooks;
    return hooks;
}

// A per-device setting of the document's company file, else the plain user default.
Value documentSetting(const ManagedObject& object, std::string_view key) {
    if (ManagedObjectContext* context = object.managedObjectContext()) {
        if (BLDoc* document = BLDoc::documentForContext(*context)) {
            Value value = document->userDefaults().objectForKey(key);
            if (!value.isNull()) {
                return value;
            }
        }
    }
    return UserDefaults::standard().objectForKey(key);
}

Value preference(const ManagedObject& object, std::string_view key) {
    ManagedObjectContext* context = object.managedObjectContext();
    return context != nullptr ? BLPreference::preferenceValue(*context, key) : Value();
}

bool pdfOpens(const std::string& bytes) {
    if (filingHooks().pdfOpens) {
        return filingHooks().pdfOpens(bytes);
    }
    return bytes.starts_with("%PDF-");
}

std::string bytesText(const Value& value) {
    const Bytes* bytes = value.bytes();
    return bytes != nullptr ? std::string(bytes->begin(), bytes->end()) : std::string();
}

void ensureUid(ManagedObject& object) {
    auto* base = dynamic_cast<BLBase*>(&object);
    if (base != nullptr && base->uid().value_or("").empty()) {
        base->setUid(uniqueBase64String());
    }
}

Value::Dictionary recordOf(ManagedObject& object) {
    ensureUid(object);
    if (filingHooks().interchangeObject) {
        return filingHooks().interchangeObject(object);
    }
    return plainRecord(object);
}

template <typename Range>
Value recordsOf(const Range& objects) {
    Value::Array records;
    for (auto* object : objects) {
        if (object != nullptr) {
            records.emplace_back(recordOf(*object));
        }
    }
    return Value(std::move(records));
}

// Depth first, parents before their children, as the lines stand in the document.
void collectInterchangeItems(const BLContainer& container, Value::Array& records) {
    for (BLContainer* child : container.childs()) {
        records.emplace_back(recordOf(*child));
        collectInterchangeItems(*child, records);
    }
}

// The whole file or nothing: a crash or a full disk leaves the old file (or none), never
// a truncated PDF that a later "keep the existing file" would then keep for good.
bool writeAtomically(const std::string& path, const std::string& bytes, std::string& error) {
    std::string temporary = path + ".XXXXXX";
    int descriptor = ::mkstemp(temporary.data());
    if (descriptor < 0) {
        error = std::strerror(errno);
        return false;
    }
    size_t written = 0;
    while (written < bytes.size()) {
        ssize_t step = ::write(descriptor, bytes.data() + written, bytes.size() - written);
        if (step < 0) {
            if (errno == EINTR) {
                continue;
            }
            break;
        }
        written += static_cast<size_t>(step);
    }
    bool complete = written == bytes.size() && ::fsync(descriptor) == 0;
    if (!complete) {
        error = std::strerror(errno);
    }
    ::fchmod(descriptor, 0644);
    ::close(descriptor);
    if (!complete || ::rename(temporary.c_str(), path.c_str()) != 0) {
        if (complete) {
            error = std::strerror(errno);
        }
        ::unlink(temporary.c_str());
        return false;
    }
    return true;
}

// Linux keeps no settable creation date; access and modification carry the issue date.
void setFileDates(const std::string& path, Date date) {
    double seconds = date.timeIntervalSince1970();
    timespec times[2];
    times[0].tv_sec = static_cast<time_t>(std::floor(seconds));
    times[0].tv_nsec = static_cast<long>((seconds - std::floor(seconds)) * 1e9);
    times[1] = times[0];
    if (::utimensat(AT_FDCWD, path.c_str(), times, 0) != 0) {
        logMessage("Cannot set the dates of %@: %@", path, std::string(std::strerror(errno)));
    }
}

}  // namespace

FilingHooks& filingHooks() {
    return hooksStorage();
}

void resetFilingHooks() {
    hooksStorage() = FilingHooks();
}

std::optional<std::string> PDFDocument(BLSendable& sendable) {
    if (BLSendableStorage* storage = sendable.storage()) {
        if (const Bytes* data = storage->data()) {
            std::string bytes(data->begin(), data->end());
            if (pdfOpens(bytes)) {
                return bytes;
            }
            // A frozen copy that no longer opens is worth nothing; the layout makes it anew.
            logMessage("The frozen PDF of %@ does not open; it is laid out anew", sendable.uid().value_or(""));
            sendable.setStorage(nullptr);
        }
    }
    if (!filingHooks().layoutPDF) {
        logMessage("No layout can make the PDF of %@ yet", sendable.uid().value_or(""));
        return std::nullopt;
    }
    return filingHooks().layoutPDF(sendable);
}

Value::Dictionary plainRecord(ManagedObject& object) {
    Value::Dictionary record;
    record["entity"] = Value(object.entityName());
    for (const AttributeDescription* attribute : object.entity().attributes()) {
        if (attribute->isTransient || attribute->type == AttributeType::Data) {
            continue;
        }
        Value value = object.valueForKey(attribute->name);
        if (!value.isNull()) {
            record[attribute->name] = value;
        }
    }
    return record;
}

Value::Dictionary changesDictionary(BLSendable& sendable) {
    Value::Dictionary changes;
    changes["document"] = Value(recordOf(sendable));
    if (BLClient* client = sendable.client()) {
        Value::Dictionary record = recordOf(*client);
        record["customValues"] = recordsOf(client->customValues());
        changes["client"] = Value(std::move(record));
    }
    if (BLCurrency* currency = sendable.currency()) {
        changes["currency"] = Value(recordOf(*currency));
    }
    changes["customValues"] = recordsOf(sendable.customValues());
    changes["payments"] = recordsOf(sendable.payments());
    Value::Array items;
    collectInterchangeItems(sendable, items);
    changes["items"] = Value(std::move(items));
    return changes;
}

std::string documentName(BLSendable& sendable) {
    ManagedObjectContext* context = sendable.managedObjectContext();
    if (context == nullptr) {
        return localizedString("untitled");
    }
    Numbering numbering(*context);
    return documentName(numbering, sendable);
}

std::string documentPath(BLSendable& sendable) {
    Value root = documentSetting(sendable, kDocumentsRoot);
    std::string rootText = root.string() != nullptr && !root.string()->empty() ? *root.string() : kDefaultDocumentsRoot;
    ManagedObjectContext* context = sendable.managedObjectContext();
    if (context == nullptr) {
        return (std::filesystem::path(rootText) / localizedString("untitled")).string();
    }
    Numbering numbering(*context);
    return documentPath(numbering, sendable, rootText);
}

std::string mailNameWithExtension(BLSendable& sendable) {
    return mailNameWithExtension(documentSetting(sendable, kUseFilingNameForMails).toBool() ? documentName(sendable)
                                                                                            : sendable.displayName());
}

std::string mailNameWithExtension(std::string_view text) {
    std::string name(text);
    for (char& c : name) {
        if (c == '\n' || c == '/' || c == ':' || c == '"') {
            c = '-';
        }
    }
    return name + ".pdf";
}

FilingResult writeDocumentToPath(BLSendable& sendable, const std::string& path, bool updateStorage,
                                 bool addMailBackdrop) {
    FilingResult result;
    result.path = path;
    std::optional<std::string> plain = PDFDocument(sendable);
    if (!plain) {
        result.message = "no PDF can be made for this document yet (no layout), nothing is written";
        logMessage("Filing copy of %@: %@", sendable.uid().value_or(""), result.message);
        return result;
    }
    const FilingHooks& hooks = filingHooks();
    std::string bytes = *plain;
    if (addMailBackdrop) {
        std::string backdrop = bytesText(preference(sendable, kBackdropPreference));
        if (!backdrop.empty() && pdfOpens(backdrop)) {
            if (!hooks.compositeOnBackground) {
                logMessage("No PDF writer to set %@ on the backdrop", sendable.uid().value_or(""));
            } else if (std::optional<std::string> composed = hooks.compositeOnBackground(bytes, backdrop)) {
                bytes = std::move(*composed);
            }
        }
    }
    Value::Dictionary wrapper;
    wrapper["changes"] = Value(changesDictionary(sendable));
    std::string json = Value(std::move(wrapper)).toJSON(true);
    if (!hooks.attachFile) {
        logMessage("No PDF writer attaches %@ yet; %@ is filed without it", std::string(kChangesAttachmentName),
                   sendable.uid().value_or(""));
    } else if (std::optional<std::string> attached = hooks.attachFile(bytes, kChangesAttachmentName, json)) {
        bytes = std::move(*attached);
    } else {
        logMessage("Attaching %@ to %@ failed", std::string(kChangesAttachmentName), sendable.uid().value_or(""));
    }
    if (hooks.removeKeywords) {
        bytes = hooks.removeKeywords(bytes);
    }

    std::error_code code;
    std::filesystem::create_directories(std::filesystem::path(path).parent_path(), code);
    ManagedObjectContext* context = sendable.managedObjectContext();
    if (updateStorage && context != nullptr) {
        // The frozen form is the plain one: stationery is for the filed and mailed copies.
        std::string frozen = hooks.addEInvoiceIfNeeded ? hooks.addEInvoiceIfNeeded(sendable, *plain) : *plain;
        SyncingScope syncing;
        BLSendableStorage* storage = sendable.storage();
        if (storage == nullptr) {
            storage = BLSendableStorage::insertInManagedObjectContext(*context);
        }
        if (storage != nullptr) {
            storage->setData(Bytes(frozen.begin(), frozen.end()));
            sendable.setStorage(storage);
        }
    }
    std::string error;
    if (!writeAtomically(path, bytes, error)) {
        result.outcome = FilingResult::Outcome::Failed;
        result.message = "cannot write " + path + ": " + error;
        logMessage("Filing copy: %@", result.message);
        return result;
    }
    setFileDates(path, sendable.dateSent().value_or(Date::now()));
    result.outcome = FilingResult::Outcome::Written;
    if (hooks.processDocument) {
        std::optional<std::vector<EInvoiceFile>> files = hooks.processDocument(sendable);
        if (files && !files->empty()) {
            const EInvoiceFile& last = files->back();
            std::string beside = (std::filesystem::path(path).parent_path() / last.name).string();
            if (!writeAtomically(beside, last.content, error)) {
                result.message = "the e-invoice file " + beside + " is not written: " + error;
                logMessage("Filing copy: %@", result.message);
            }
        }
    }
    return result;
}

FilingResult writeDocument(BLSendable& sendable, bool overwrite) {
    FilingResult result;
    if (!sendable.dateSent()) {
        result.message = "the document is a draft";
        return result;
    }
    if (!documentSetting(sendable, kSaveDocumentsAutomatically).toBool()) {
        result.message = "documents are not saved automatically (SaveDocumentsAutomatically is off)";
        return result;
    }
    std::string path = documentPath(sendable) + ".pdf";
    std::error_code code;
    std::filesystem::create_directories(std::filesystem::path(path).parent_path(), code);
    if (!overwrite && std::filesystem::exists(path, code)) {
        result.outcome = FilingResult::Outcome::Kept;
        result.path = path;
        result.message = "an existing filing copy is kept";
        return result;
    }
    bool backdrop = preference(sendable, kUseBackdropPreference).toBool();
    return writeDocumentToPath(sendable, path, true, backdrop);
}

}  // namespace brassline
