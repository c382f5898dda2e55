#pragma once

#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "core/Value.h"

namespace brassline {

class SQLiteConnection;

// The work behind the script globals, in plain values: the script host only marshals.
// Every call answers null, an empty list or a negative code on failure; none throws.
namespace scriptsupport {

// Path rules. A `file:` URL keeps a "#" of its path; other schemes stay as they are; a
// plain path becomes a file URL.
std::string convertPathIfNeeded(std::string_view text);
// The path of a "file:///" URL; any other text as it is.
std::string convertURLIfNeeded(std::string_view text);
// The path of a file URL, nothing for another scheme.
std::optional<std::string> filePathOfURL(std::string_view url);
std::string fileURLForPath(std::string_view path);
// Creates the parent folder of a file URL with all parents.
bool ensureDirectoryExistsForURL(std::string_view url);
// Creates the folder and all parents: 0, or the system's error code.
int createFolder(std::string_view url);

std::string xmlEncode(std::string_view text);
// Characters that may not stand in a file name become the replacement.
std::string sanitizeFileName(std::string_view text, std::string_view replacement);
std::string base64Encode(std::string_view text);
std::string md5(std::string_view text);
// "DE" gives "DEU"; unknown codes give "".
std::string iso2ToISO3(std::string_view code);
// The runs of digits in the text, as integers ("A12-3" gives 12 and 3).
Value::Array parseIntegerComponents(std::string_view text);
// Removes characters that XML 1.0 forbids.
std::string removeInvalidXMLCharacters(std::string_view text);
// The cleaned, re-indented XML with the branding comment, or nothing if it doesn't parse.
std::optional<std::string> sanitizeXML(std::string_view text);

// writeToURL: a string (an .xml path is cleaned first) or bytes, written atomically.
int writeToURL(const Value& value, std::string_view path);
bool writeFileAtomically(const std::string& path, std::string_view contents);

// Delimited text. The separator "\t" or ";" switches from commas; fields with the
// separator, quotes or line breaks are quoted.
std::string csvText(const Value& rows, char separator, std::string_view lineBreak);
int writeCSVToURL(const Value& rows, std::string_view path, int64_t encoding, std::string_view separator,
                  std::string_view lineBreak);
// Rows of fields; a separator among "," ";" and tab is detected from the first line.
Value::Array parseCSVString(std::string_view text);

// The file manager's reading side.
std::optional<std::string> contentsOfFile(std::string_view path);
Value::Array contentsOfDirectory(std::string_view path);
bool fileExists(std::string_view path);
bool isDirectory(std::string_view path);
Value fileAttributes(std::string_view path);
Value fileModificationDate(std::string_view path);
Value contentsOfPlistFile(std::string_view path);
std::string homeDirectory();
std::string temporaryDirectory();

// HTTP as loadURL describes it: always a string answer, errors as JSON with
// "brassline_error" (and "http_error" for a status of 300 or more).
std::string loadURL(std::string_view method, std::string_view url, const Value& headers, const Value& body,
                    bool withHeaders);
// Downloads to a file URL; false on any failure.
bool downloadURLToFile(std::string_view source, std::string_view destination);

// SQLite files for scripts.
std::unique_ptr<SQLiteConnection> openDatabase(std::string_view path);
// All rows as records keyed by column name; empty on any error.
Value::Array executeQuery(SQLiteConnection& database, std::string_view sql);

}  // namespace scriptsupport
}  // namespace brassline
