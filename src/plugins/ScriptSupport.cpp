#include "plugins/ScriptSupport.h"

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <sstream>

#include <curl/curl.h>
#include <glib.h>
#include <libxml/parser.h>
#include <libxml/tree.h>
#include <nlohmann/json.hpp>
#include <sys/stat.h>
#include <unicode/locid.h>

#include "core/Log.h"
#include "store/SQLiteConnection.h"

namespace brassline::scriptsupport {

namespace {

namespace fs = std::filesystem;

constexpr const char* kBrandingComment = " Created with Brassline ";
constexpr const char* kBoundary = "----Boundary1234567890";

int hexDigit(char c) {
    if (c >= '0' && c <= '9') {
        return c - '0';
    }
    if (c >= 'a' && c <= 'f') {
        return c - 'a' + 10;
    }
    if (c >= 'A' && c <= 'F') {
        return c - 'A' + 10;
    }
    return -1;
}

std::string percentDecoded(std::string_view text) {
    std::string out;
    out.reserve(text.size());
    for (size_t i = 0; i < text.size(); ++i) {
        if (text[i] == '%' && i + 2 < text.size() && hexDigit(text[i + 1]) >= 0 && hexDigit(text[i + 2]) >= 0) {
            out += static_cast<char>(hexDigit(text[i + 1]) * 16 + hexDigit(text[i + 2]));
            i += 2;
        } else {
            out += text[i];
        }
    }
    return out;
}

// Percent-escapes what may not stand in a URL's path (UTF-8 bytes one by one).
std::string percentEncodedPath(std::string_view path) {
    static const char* kHex = "0123456789ABCDEF";
    std::string out;
    for (unsigned char c : path) {
        if (std::isalnum(c) ||
            std::string_view("/-._~!$&'()*+,;=:@").find(static_cast<char>(c)) != std::string_view::npos) {
            out += static_cast<char>(c);
        } else {
            out += '%';
            out += kHex[c >> 4];
            out += kHex[c & 15];
        }
    }
    return out;
}

// Escapes what a URL may not carry as it stands, keeping its reserved characters.
std::string percentEscapedURL(std::string_view url) {
    static const char* kHex = "0123456789ABCDEF";
    std::string out;
    for (unsigned char c : url) {
        if (c <= 0x20 || c >= 0x7f || c == '"' || c == '<' || c == '>' || c == '\\' || c == '^' || c == '`' ||
            c == '{' || c == '|' || c == '}') {
            out += '%';
            out += kHex[c >> 4];
            out += kHex[c & 15];
        } else {
            out += static_cast<char>(c);
        }
    }
    return out;
}

bool isInvalidXMLCodePoint(uint32_t c) {
    return !(c == 0x9 || c == 0xA || c == 0xD || (c >= 0x20 && c <= 0xD7FF) || (c >= 0xE000 && c <= 0xFFFD) ||
             (c >= 0x10000 && c <= 0x10FFFF));
}

void removeEmptyNodes(xmlNodePtr node) {
    xmlNodePtr child = node->children;
    while (child != nullptr) {
        xmlNodePtr next = child->next;
        if (child->type == XML_ELEMENT_NODE) {
            removeEmptyNodes(child);
            if (child->children == nullptr && child->properties == nullptr) {
                xmlUnlinkNode(child);
                xmlFreeNode(child);
            }
        } else if (child->type == XML_TEXT_NODE && xmlIsBlankNode(child)) {
            xmlUnlinkNode(child);
            xmlFreeNode(child);
        }
        child = next;
    }
}

size_t appendBody(char* data, size_t size, size_t count, void* target) {
    static_cast<std::string*>(target)->append(data, size * count);
    return size * count;
}

size_t appendHeader(char* data, size_t size, size_t count, void* target) {
    std::string line(data, size * count);
    const size_t colon = line.find(':');
    if (colon != std::string::npos) {
        std::string value = line.substr(colon + 1);
        while (!value.empty() && (value.front() == ' ')) {
            value.erase(value.begin());
        }
        while (!value.empty() && (value.back() == '\r' || value.back() == '\n')) {
            value.pop_back();
        }
        (*static_cast<Value::Dictionary*>(target))[line.substr(0, colon)] = Value(value);
    }
    return size * count;
}

bool isPart(const Value& value) {
    const Value::Dictionary* part = value.dictionary();
    return part != nullptr && part->count("name") && part->count("filename") && part->count("content");
}

std::string jsonText(const nlohmann::json& json) {
    return json.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
}

nlohmann::json parsedOrNull(const std::string& text) {
    nlohmann::json parsed = nlohmann::json::parse(text, nullptr, false);
    return parsed.is_discarded() ? nlohmann::json() : parsed;
}

}  // namespace

std::string fileURLForPath(std::string_view path) {
    std::string absolute(path);
    if (absolute.empty() || absolute.front() != '/') {
        std::error_code error;
        absolute = fs::absolute(fs::path(absolute), error).string();
    }
    return "file://" + percentEncodedPath(absolute);
}

std::string convertPathIfNeeded(std::string_view text) {
    const size_t scheme = text.find("://");
    if (scheme == std::string_view::npos) {
        return fileURLForPath(text);
    }
    if (text.substr(0, scheme) != "file") {
        return std::string(text);
    }
    std::string_view rest = text.substr(scheme + 3);
    const size_t slash = rest.find('/');
    rest = slash == std::string_view::npos ? std::string_view() : rest.substr(slash);
    // A "#" read as the start of a fragment belongs to the file's name.
    std::string fragment;
    const size_t hash = rest.find('#');
    if (hash != std::string_view::npos) {
        fragment = "#" + percentDecoded(rest.substr(hash + 1));
        rest = rest.substr(0, hash);
    }
    return fileURLForPath(percentDecoded(rest) + fragment);
}

std::optional<std::string> filePathOfURL(std::string_view url) {
    if (url.rfind("file://", 0) != 0) {
        return std::nullopt;
    }
    std::string_view rest = url.substr(7);
    const size_t slash = rest.find('/');
    if (slash == std::string_view::npos) {
        return std::nullopt;
    }
    return percentDecoded(rest.substr(slash));
}

std::string convertURLIfNeeded(std::string_view text) {
    if (text.rfind("file:///", 0) == 0) {
        return filePathOfURL(text).value_or(std::string(text));
    }
    return std::string(text);
}

bool ensureDirectoryExistsForURL(std::string_view url) {
    std::optional<std::string> path = filePathOfURL(url);
    if (!path) {
        return false;
    }
    std::error_code error;
    fs::create_directories(fs::path(*path).parent_path(), error);
    return !error;
}

int createFolder(std::string_view url) {
    std::optional<std::string> path = filePathOfURL(url);
    if (!path) {
        return -1;
    }
    std::error_code error;
    fs::create_directories(*path, error);
    return error ? error.value() : 0;
}

std::string xmlEncode(std::string_view text) {
    std::string out;
    out.reserve(text.size());
    for (char c : text) {
        switch (c) {
            case '&':
                out += "&amp;";
                break;
            case '<':
                out += "&lt;";
                break;
            case '>':
                out += "&gt;";
                break;
            case '"':
                out += "&quot;";
                break;
            case '\'':
                out += "&apos;";
                break;
            default:
                out += c;
        }
    }
    return out;
}

std::string sanitizeFileName(std::string_view text, std::string_view replacement) {
    std::string out;
    for (unsigned char c : text) {
        if (c < 0x20 || std::string_view("/\\:*?\"<>|").find(static_cast<char>(c)) != std::string_view::npos) {
            out += replacement;
        } else {
            out += static_cast<char>(c);
        }
    }
    return out;
}

std::string base64Encode(std::string_view text) {
    gchar* encoded = g_base64_encode(reinterpret_cast<const guchar*>(text.data()), text.size());
    std::string result = encoded != nullptr ? encoded : "";
    g_free(encoded);
    return result;
}

std::string md5(std::string_view text) {
    gchar* digest =
        g_compute_checksum_for_data(G_CHECKSUM_MD5, reinterpret_cast<const guchar*>(text.data()), text.size());
    std::string result = digest != nullptr ? digest : "";
    g_free(digest);
    return result;
}

std::string iso2ToISO3(std::string_view code) {
    if (code.size() != 2) {
        return "";
    }
    const icu::Locale locale("", std::string(code).c_str());
    const char* iso3 = locale.getISO3Country();
    return iso3 != nullptr ? iso3 : "";
}

Value::Array parseIntegerComponents(std::string_view text) {
    Value::Array result;
    size_t i = 0;
    while (i < text.size()) {
        if (!std::isdigit(static_cast<unsigned char>(text[i]))) {
            ++i;
            continue;
        }
        int64_t number = 0;
        bool overflow = false;
        while (i < text.size() && std::isdigit(static_cast<unsigned char>(text[i]))) {
            overflow = overflow || number > (INT64_MAX - 9) / 10;
            number = overflow ? number : number * 10 + (text[i] - '0');
            ++i;
        }
        if (!overflow) {
            result.emplace_back(number);
        }
    }
    return result;
}

std::string removeInvalidXMLCharacters(std::string_view text) {
    std::string out;
    out.reserve(text.size());
    size_t i = 0;
    while (i < text.size()) {
        const auto lead = static_cast<unsigned char>(text[i]);
        size_t length = lead < 0x80 ? 1 : (lead >> 5) == 6 ? 2 : (lead >> 4) == 14 ? 3 : (lead >> 3) == 30 ? 4 : 0;
        if (length == 0 || i + length > text.size()) {
            ++i;  // A stray byte: not a character at all.
            continue;
        }
        uint32_t c = length == 1 ? lead : lead & (0x7f >> length);
        bool valid = true;
        for (size_t k = 1; k < length; ++k) {
            const auto next = static_cast<unsigned char>(text[i + k]);
            valid = valid && (next >> 6) == 2;
            c = (c << 6) | (next & 0x3f);
        }
        if (valid && !isInvalidXMLCodePoint(c)) {
            out.append(text.substr(i, length));
        }
        i += valid ? length : 1;
    }
    return out;
}

std::optional<std::string> sanitizeXML(std::string_view text) {
    const std::string cleaned = removeInvalidXMLCharacters(text);
    xmlDocPtr document = xmlReadMemory(cleaned.data(), static_cast<int>(cleaned.size()), nullptr, "UTF-8",
                                       XML_PARSE_NONET | XML_PARSE_NOERROR | XML_PARSE_NOWARNING | XML_PARSE_NOBLANKS);
    if (document == nullptr) {
        return std::nullopt;
    }
    xmlNodePtr root = xmlDocGetRootElement(document);
    if (root != nullptr) {
        removeEmptyNodes(root);
        xmlAddPrevSibling(root, xmlNewDocComment(document, BAD_CAST kBrandingComment));
    }
    xmlChar* buffer = nullptr;
    int size = 0;
    xmlDocDumpFormatMemoryEnc(document, &buffer, &size, "UTF-8", 1);
    std::string result(reinterpret_cast<const char*>(buffer), static_cast<size_t>(std::max(size, 0)));
    xmlFree(buffer);
    xmlFreeDoc(document);
    return result;
}

bool writeFileAtomically(const std::string& path, std::string_view contents) {
    const std::string temporary = path + ".brassline-tmp";
    {
        std::ofstream out(temporary, std::ios::binary | std::ios::trunc);
        if (!out) {
            return false;
        }
        out.write(contents.data(), static_cast<std::streamsize>(contents.size()));
        if (!out) {
            return false;
        }
    }
    std::error_code error;
    fs::rename(temporary, path, error);
    if (error) {
        fs::remove(temporary, error);
        return false;
    }
    return true;
}

int writeToURL(const Value& value, std::string_view path) {
    const std::string url = convertPathIfNeeded(path);
    std::optional<std::string> file = filePathOfURL(url);
    if (!file) {
        return -1;
    }
    ensureDirectoryExistsForURL(url);
    if (const std::string* text = value.string()) {
        std::string contents = *text;
        std::string extension = fs::path(*file).extension().string();
        std::transform(extension.begin(), extension.end(), extension.begin(),
                       [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
        if (extension == ".xml") {
            contents = sanitizeXML(contents).value_or(removeInvalidXMLCharacters(contents));
        }
        return writeFileAtomically(*file, contents) ? 0 : EIO;
    }
    if (const Bytes* bytes = value.bytes()) {
        const std::string contents(bytes->begin(), bytes->end());
        return writeFileAtomically(*file, contents) ? 0 : -1;
    }
    return -1;
}

std::string csvText(const Value& rows, char separator, std::string_view lineBreak) {
    std::string out;
    const Value::Array* list = rows.array();
    if (list == nullptr) {
        return out;
    }
    for (const Value& row : *list) {
        const Value::Array* fields = row.array();
        bool first = true;
        auto writeField = [&](const Value& field) {
            if (!first) {
                out += separator;
            }
            first = false;
            std::string text = field.date() ? field.date()->iso8601String() : field.toString();
            if (text.find_first_of(std::string{separator, '"', '\n', '\r'}) != std::string::npos) {
                std::string quoted = "\"";
                for (char c : text) {
                    quoted += c;
                    if (c == '"') {
                        quoted += '"';
                    }
                }
                text = quoted + "\"";
            }
            out += text;
        };
        if (fields != nullptr) {
            for (const Value& field : *fields) {
                writeField(field);
            }
        } else if (const Value::Dictionary* record = row.dictionary()) {
            for (const auto& [key, field] : *record) {
                writeField(field);
            }
        } else {
            writeField(row);
        }
        out += lineBreak;
    }
    return out;
}

int writeCSVToURL(const Value& rows, std::string_view path, int64_t encoding, std::string_view separator,
                  std::string_view lineBreak) {
    const std::string url = convertPathIfNeeded(path);
    std::optional<std::string> file = filePathOfURL(url);
    if (!file) {
        return -1;
    }
    ensureDirectoryExistsForURL(url);
    const char delimiter = separator == "\t" ? '\t' : separator == ";" ? ';' : ',';
    std::string text = csvText(rows, delimiter, lineBreak.empty() ? std::string_view("\n") : lineBreak);
    // Encodings other than UTF-8 (the platform's codes) are written as Latin-1 where they
    // ask for it (code 5); anything else stays UTF-8.
    if (encoding == 5) {
        gsize written = 0;
        gchar* latin = g_convert_with_fallback(text.data(), static_cast<gssize>(text.size()), "ISO-8859-1", "UTF-8",
                                               "?", nullptr, &written, nullptr);
        if (latin != nullptr) {
            text.assign(latin, written);
            g_free(latin);
        }
    }
    return writeFileAtomically(*file, text) ? 0 : -1;
}

Value::Array parseCSVString(std::string_view text) {
    Value::Array rows;
    if (text.empty()) {
        return rows;
    }
    const std::string_view firstLine = text.substr(0, text.find('\n'));
    char separator = ',';
    size_t best = 0;
    for (char candidate : {',', ';', '\t'}) {
        const auto count = static_cast<size_t>(std::count(firstLine.begin(), firstLine.end(), candidate));
        if (count > best) {
            best = count;
            separator = candidate;
        }
    }
    Value::Array row;
    std::string field;
    bool quoted = false;
    bool fieldStarted = false;
    auto endField = [&] {
        row.emplace_back(field);
        field.clear();
        fieldStarted = false;
    };
    auto endRow = [&] {
        endField();
        rows.emplace_back(std::move(row));
        row = Value::Array();
    };
    for (size_t i = 0; i < text.size(); ++i) {
        const char c = text[i];
        if (quoted) {
            if (c == '"' && i + 1 < text.size() && text[i + 1] == '"') {
                field += '"';
                ++i;
            } else if (c == '"') {
                quoted = false;
            } else {
                field += c;
            }
        } else if (c == '"' && !fieldStarted) {
            quoted = true;
            fieldStarted = true;
        } else if (c == separator) {
            endField();
        } else if (c == '\r') {
            continue;
        } else if (c == '\n') {
            endRow();
        } else {
            field += c;
            fieldStarted = true;
        }
    }
    if (fieldStarted || !field.empty() || !row.empty()) {
        endRow();
    }
    return rows;
}

std::optional<std::string> contentsOfFile(std::string_view path) {
    std::ifstream in{std::string(convertURLIfNeeded(path)), std::ios::binary};
    if (!in) {
        return std::nullopt;
    }
    std::ostringstream buffer;
    buffer << in.rdbuf();
    std::string text = buffer.str();
    // Text that is not UTF-8 is read as Latin-1, the usual other encoding of such files.
    if (!g_utf8_validate(text.data(), static_cast<gssize>(text.size()), nullptr)) {
        gsize written = 0;
        gchar* converted =
            g_convert(text.data(), static_cast<gssize>(text.size()), "UTF-8", "ISO-8859-1", nullptr, &written, nullptr);
        if (converted != nullptr) {
            text.assign(converted, written);
            g_free(converted);
        }
    }
    return text;
}

Value::Array contentsOfDirectory(std::string_view path) {
    Value::Array entries;
    std::error_code error;
    for (const fs::directory_entry& entry : fs::directory_iterator(convertURLIfNeeded(path), error)) {
        const std::string name = entry.path().filename().string();
        if (!name.empty() && name.front() != '.') {
            entries.emplace_back(entry.path().string());
        }
    }
    std::sort(entries.begin(), entries.end(),
              [](const Value& a, const Value& b) { return a.toString() < b.toString(); });
    return entries;
}

bool fileExists(std::string_view path) {
    std::error_code error;
    return fs::exists(convertURLIfNeeded(path), error);
}

bool isDirectory(std::string_view path) {
    std::error_code error;
    return fs::is_directory(convertURLIfNeeded(path), error);
}

Value fileModificationDate(std::string_view path) {
    struct stat info {};
    if (stat(convertURLIfNeeded(path).c_str(), &info) != 0) {
        return Value();
    }
    return Value(Date::fromUnixTime(static_cast<double>(info.st_mtim.tv_sec) + info.st_mtim.tv_nsec / 1e9));
}

Value fileAttributes(std::string_view path) {
    struct stat info {};
    if (stat(convertURLIfNeeded(path).c_str(), &info) != 0) {
        return Value();
    }
    Value::Dictionary attributes;
    attributes["NSFileSize"] = Value(static_cast<int64_t>(info.st_size));
    attributes["NSFileModificationDate"] =
        Value(Date::fromUnixTime(static_cast<double>(info.st_mtim.tv_sec) + info.st_mtim.tv_nsec / 1e9));
    attributes["NSFileType"] = Value(S_ISDIR(info.st_mode) ? "NSFileTypeDirectory" : "NSFileTypeRegular");
    attributes["NSFilePosixPermissions"] = Value(static_cast<int64_t>(info.st_mode & 07777));
    return Value(std::move(attributes));
}

Value contentsOfPlistFile(std::string_view path) {
    std::optional<std::string> text = contentsOfFile(path);
    if (!text) {
        return Value();
    }
    return Value::fromPropertyList(Bytes(text->begin(), text->end())).value_or(Value());
}

std::string homeDirectory() {
    return g_get_home_dir();
}

std::string temporaryDirectory() {
    std::string folder = g_get_tmp_dir();
    return folder.empty() || folder.back() == '/' ? folder : folder + "/";
}

std::string loadURL(std::string_view method, std::string_view url, const Value& headers, const Value& body,
                    bool withHeaders) {
    std::unique_ptr<CURL, void (*)(CURL*)> handle(curl_easy_init(), curl_easy_cleanup);
    if (!handle) {
        return jsonText({{"brassline_error", "Error"}});
    }
    const std::string escaped = percentEscapedURL(url);
    std::string payload;
    std::vector<std::string> headerLines;
    auto setHeader = [&headerLines](const std::string& name, const std::string& value) {
        std::erase_if(headerLines, [&name](const std::string& line) { return line.rfind(name + ":", 0) == 0; });
        headerLines.push_back(name + ": " + value);
    };
    const Value::Array* parts = body.array();
    const bool allParts = parts != nullptr && !parts->empty() && std::all_of(parts->begin(), parts->end(), isPart);
    if (isPart(body)) {
        payload = std::string("--") + kBoundary + "\r\n" + "Content-Disposition: form-data; name=\"" +
                  body["name"].toString() + "\"; filename=\"" + body["filename"].toString() + "\"\r\n" +
                  "Content-Type: text/xml\r\n\r\n" + body["content"].toString() + "\r\n--" + kBoundary + "--\r\n";
        logMessage("loadURL body: %@", payload);
    } else if (allParts) {
        for (const Value& part : *parts) {
            payload += std::string("--") + kBoundary + "\r\n" + "Content-Disposition: form-data; name=\"" +
                       part["name"].toString() + "\"; filename=\"" + part["filename"].toString() + "\"\r\n" +
                       "Content-Type: application/octet-stream\r\n\r\n";
            gsize size = 0;
            guchar* decoded = g_base64_decode(part["content"].toString().c_str(), &size);
            payload.append(reinterpret_cast<const char*>(decoded), size);
            g_free(decoded);
        }
        payload += std::string("--") + kBoundary + "--\r\n";
    } else if (body.dictionary() != nullptr || parts != nullptr) {
        setHeader("Accept", "application/json");
        setHeader("Content-Type", "application/json");
        payload = body.toJSON();
    } else if (const std::string* text = body.string()) {
        setHeader("Accept", "text/html; charset=UTF-8");
        setHeader("Content-Type", "text/html; charset=UTF-8");
        payload = *text;
    }
    if (isPart(body) || allParts) {
        setHeader("Content-Type", std::string("multipart/form-data; boundary=") + kBoundary);
        setHeader("Accept", "*/*");
    }
    if (const Value::Dictionary* extra = headers.dictionary()) {
        for (const auto& [name, value] : *extra) {
            setHeader(name, value.toString());
        }
    }
    curl_slist* list = nullptr;
    for (const std::string& line : headerLines) {
        list = curl_slist_append(list, line.c_str());
    }
    std::unique_ptr<curl_slist, void (*)(curl_slist*)> headerList(list, curl_slist_free_all);
    std::string received;
    Value::Dictionary responseHeaders;
    CURL* curl = handle.get();
    curl_easy_setopt(curl, CURLOPT_URL, escaped.c_str());
    curl_easy_setopt(curl, CURLOPT_CUSTOMREQUEST, std::string(method.empty() ? "GET" : method).c_str());
    curl_easy_setopt(curl, CURLOPT_TIMEOUT, 10L);
    curl_easy_setopt(curl, CURLOPT_NOSIGNAL, 1L);
    curl_easy_setopt(curl, CURLOPT_FOLLOWLOCATION, 1L);
    curl_easy_setopt(curl, CURLOPT_PROTOCOLS_STR, "http,https");
    curl_easy_setopt(curl, CURLOPT_HTTPHEADER, list);
    curl_easy_setopt(curl, CURLOPT_WRITEFUNCTION, appendBody);
    curl_easy_setopt(curl, CURLOPT_WRITEDATA, &received);
    curl_easy_setopt(curl, CURLOPT_HEADERFUNCTION, appendHeader);
    curl_easy_setopt(curl, CURLOPT_HEADERDATA, &responseHeaders);
    if (!payload.empty()) {
        curl_easy_setopt(curl, CURLOPT_POSTFIELDS, payload.data());
        curl_easy_setopt(curl, CURLOPT_POSTFIELDSIZE, static_cast<long>(payload.size()));
    }
    const CURLcode code = curl_easy_perform(curl);
    long status = 0;
    curl_easy_getinfo(curl, CURLINFO_RESPONSE_CODE, &status);
    if (code != CURLE_OK) {
        logMessage("loadURL: %@", curl_easy_strerror(code));
    }
    if (status < 300) {
        if (code == CURLE_COULDNT_RESOLVE_HOST || code == CURLE_COULDNT_CONNECT) {
            return jsonText({{"brassline_error", "No Internet Connection"}});
        }
        if (code == CURLE_OK && !received.empty()) {
            if (!withHeaders) {
                return received;
            }
            return jsonText({{"payload", received},
                             {"headers", nlohmann::json::parse(Value(responseHeaders).toJSON(), nullptr, false)}});
        }
        nlohmann::json error = {{"brassline_error", code == CURLE_OK ? nlohmann::json() : curl_easy_strerror(code)}};
        if (!received.empty()) {
            error["server_error"] = parsedOrNull(received);
            error["server_response"] = received;
        }
        return jsonText(error);
    }
    nlohmann::json error = {{"brassline_error", "Error"}, {"http_error", status}};
    if (!received.empty()) {
        error["server_error"] = parsedOrNull(received);
        error["server_response"] = received;
    }
    return jsonText(error);
}

bool downloadURLToFile(std::string_view source, std::string_view destination) {
    std::optional<std::string> file = filePathOfURL(destination);
    if (!file) {
        return false;
    }
    std::unique_ptr<CURL, void (*)(CURL*)> handle(curl_easy_init(), curl_easy_cleanup);
    if (!handle) {
        return false;
    }
    std::string received;
    const std::string url(source);
    curl_easy_setopt(handle.get(), CURLOPT_URL, url.c_str());
    curl_easy_setopt(handle.get(), CURLOPT_TIMEOUT, 120L);
    curl_easy_setopt(handle.get(), CURLOPT_NOSIGNAL, 1L);
    curl_easy_setopt(handle.get(), CURLOPT_FOLLOWLOCATION, 1L);
    curl_easy_setopt(handle.get(), CURLOPT_PROTOCOLS_STR, "http,https,file");
    curl_easy_setopt(handle.get(), CURLOPT_WRITEFUNCTION, appendBody);
    curl_easy_setopt(handle.get(), CURLOPT_WRITEDATA, &received);
    if (curl_easy_perform(handle.get()) != CURLE_OK) {
        return false;
    }
    ensureDirectoryExistsForURL(destination);
    return writeFileAtomically(*file, received);
}

std::unique_ptr<SQLiteConnection> openDatabase(std::string_view path) {
    auto database = std::make_unique<SQLiteConnection>();
    if (!database->open(convertURLIfNeeded(path), SQLiteConnection::Mode::Create)) {
        return nullptr;
    }
    return database;
}

Value::Array executeQuery(SQLiteConnection& database, std::string_view sql) {
    Value::Array rows;
    if (!database.isOpen()) {
        return rows;
    }
    SQLiteStatement statement = database.prepare(sql);
    if (!statement.isValid()) {
        return rows;
    }
    while (statement.step() == SQLiteStatement::StepResult::Row) {
        Value::Dictionary row;
        for (int column = 0; column < statement.columnCount(); ++column) {
            row[statement.columnName(column)] = statement.value(column);
        }
        rows.emplace_back(std::move(row));
    }
    return rows;
}

}  // namespace brassline::scriptsupport
