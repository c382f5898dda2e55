#pragma once

#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "core/Value.h"

namespace brassline {

class BLDoc;

// The open documents and the recent list. Owns every open BLDoc; the last one opened is
// the frontmost. Recent documents live in the user default "RecentDocumentDictionaries":
// path → {"Volume Info", "Last Date opened", "Document Info" (Info.plist), "File Exists"}.
// Failures answer null with the reason in `error` and a log line. Main thread.
class BLDocumentController {
public:
    static constexpr const char* kRecentDocumentsKey = "RecentDocumentDictionaries";
    static constexpr const char* kDocumentsToReopenKey = "DocumentsToReopen";
    static constexpr const char* kVolumeInfoKey = "Volume Info";
    static constexpr const char* kLastDateOpenedKey = "Last Date opened";
    static constexpr const char* kDocumentInfoKey = "Document Info";
    static constexpr const char* kFileExistsKey = "File Exists";
    static constexpr size_t kMinimumRecentDocumentCount = 5;

    ~BLDocumentController();
    static BLDocumentController& shared();
    // Closes every document and starts afresh (tests).
    static void resetSharedForTesting();

    // Opens the package at `path`, or answers the document already open there. Refuses
    // invalid locations and paths that are not company files; logs the URL.
    BLDoc* openDocumentWithContentsOfURL(const std::string& path, std::string* error = nullptr);
    // A new document for `path`; null when a document with that path is open already.
    std::unique_ptr<BLDoc> makeDocumentWithContentsOfURL(const std::string& path, std::string* error = nullptr);
    // Takes a document made elsewhere (a new file after set-up) into the open list.
    BLDoc* addDocument(std::unique_ptr<BLDoc> document);
    // Drops the document (its companions go with it).
    void closeDocument(BLDoc* document);
    void closeAllDocuments();
    BLDoc* documentForURL(const std::string& path) const;
    // The open document with that identifier, else a recent package with that
    // "DocumentIdentifier", opened; without an identifier the frontmost document.
    BLDoc* documentWithUID(std::string_view identifier, std::string* error = nullptr);
    BLDoc* currentDocument() const;
    size_t documentCount() const { return m_documents.size(); }
    BLDoc* documentAt(size_t index) const { return m_documents[index].get(); }

    // Rewrites the record of `path` (time, Info.plist) and refreshes "File Exists" of all.
    void logURL(const std::string& path);
    // The records by path; "file:///" keys of older versions read as paths.
    Value::Dictionary recentDocumentDictionaries() const;
    // Paths newest first by "Last Date opened", at most maximumRecentDocumentCount.
    std::vector<std::string> recentDocumentURLs() const;
    size_t maximumRecentDocumentCount() const;
    void setMaximumRecentDocumentCount(size_t count);
    void clearRecentDocuments();
    // Of the recent records whose file exists, the newest; with none, the first recent
    // URL. Null when nothing opens.
    BLDoc* openLastDocument(std::string* error = nullptr);
    BLDoc* openLastDocumentIfNeeded(std::string* error = nullptr);
    // The file name and identifier of the newest recent record ("" when none).
    std::string lastDocumentName() const;
    std::string lastDocumentUID() const;

    // At quit: the open documents' paths in "DocumentsToReopen". At launch: those whose
    // files exist reopen in reverse order; answers how many opened.
    void storeFiles();
    size_t restoreFiles();

private:
    BLDocumentController() = default;
    void writeRecent(Value::Dictionary records);

    std::vector<std::unique_ptr<BLDoc>> m_documents;
};

}  // namespace brassline
