#pragma once

#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "core/Value.h"

namespace brassline {

class BLSendable;
class ManagedObject;

// One file of an e-invoice payload: written beside the filing copy under `name`.
struct EInvoiceFile {
    std::string name;
    std::string content;
};

// The steps of later subsystems inside the filing copy. Each is empty until its subsystem
// installs it; an empty step is skipped (and said so in the log), never faked. Main thread.
struct FilingHooks {
    // Layout: lays the document out anew and answers the PDF bytes; nothing when it can't.
    std::function<std::optional<std::string>(BLSendable&)> layoutPDF;
    // PDF: whether stored bytes open as a PDF. Empty: bytes that start "%PDF-" open.
    std::function<bool(const std::string& pdf)> pdfOpens;
    // PDF: the bytes with `content` attached under `name`; nothing when that fails.
    std::function<std::optional<std::string>(const std::string& pdf, std::string_view name, const std::string& content)>
        attachFile;
    // PDF: the document's pages set on the backdrop's, keeping the document's attributes.
    std::function<std::optional<std::string>(const std::string& pdf, const std::string& backdrop)>
        compositeOnBackground;
    // PDF: the bytes without keywords in the document information.
    std::function<std::string(const std::string& pdf)> removeKeywords;
    // E-invoices: the frozen form, with the invoice XML embedded when the client needs one.
    std::function<std::string(BLSendable&, const std::string& pdf)> addEInvoiceIfNeeded;
    // E-invoices: the payload files of the document; nothing when there is none.
    std::function<std::optional<std::vector<EInvoiceFile>>(BLSendable&)> processDocument;
    // Interchange records: the record of one object inside changesDictionary. Empty: its
    // stored attributes as a plain dictionary (plainRecord).
    std::function<Value::Dictionary(ManagedObject&)> interchangeObject;
};

FilingHooks& filingHooks();
// Empties every filing hook (tests).
void resetFilingHooks();

// What a write did; `message` says why nothing (or not everything) was written.
struct [[nodiscard]] FilingResult {
    enum class Outcome { Written, Kept, Skipped, Failed };
    Outcome outcome = Outcome::Skipped;
    std::string path;
    std::string message;
    bool written() const { return outcome == Outcome::Written; }
};

// The PDF of a sendable: the frozen storage when it opens; a storage that does not open is
// dropped and the document laid out anew (layoutPDF). Nothing when no layout can make one.
std::optional<std::string> PDFDocument(BLSendable& sendable);

// The document, its client (with the client's custom values), currency, custom values,
// payments and items as records; an object without uid gets one first.
Value::Dictionary changesDictionary(BLSendable& sendable);
// The stored attributes of an object by name ("entity" its entity name), absent ones left
// out, bytes and transient values too.
Value::Dictionary plainRecord(ManagedObject& object);

// The file name (no slashes, "untitled" when empty) and the full path without extension,
// below the user default "documentsRoot" (~/Documents when unset), from the patterns
// "documents.filename" and "documents.directory".
std::string documentName(BLSendable& sendable);
std::string documentPath(BLSendable& sendable);
// The attachment name of a mail: the display name, or documentName under the user
// default "useFilingNameForMails"; line feeds, "/", ":" and '"' become "-"; ".pdf" added.
std::string mailNameWithExtension(BLSendable& sendable);
// The rule on a given name: line feeds, "/", ":" and '"' become "-", then ".pdf".
std::string mailNameWithExtension(std::string_view name);

// Writes the PDF with "Brassline.json" ({"changes": changesDictionary}) attached to
// `path` atomically, file dates set to dateSent (or now). With `updateStorage`, the plain
// form (without backdrop) is frozen into the storage under the sync flag. An e-invoice
// payload's last file goes beside it. Nothing is written without a PDF.
FilingResult writeDocumentToPath(BLSendable& sendable, const std::string& path, bool updateStorage,
                                 bool addMailBackdrop);
// The filing copy at documentPath + ".pdf": only for an issued document with the setting
// "SaveDocumentsAutomatically" on; an existing file is kept unless `overwrite`.
FilingResult writeDocument(BLSendable& sendable, bool overwrite);

}  // namespace brassline
