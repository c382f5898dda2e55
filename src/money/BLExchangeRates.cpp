#include "money/BLExchangeRates.h"

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <memory>
#include <sstream>

#include <curl/curl.h>

#include "core/Log.h"
#include "model/entities/ModelHooks.h"

namespace brassline {

namespace fs = std::filesystem;

namespace {

std::string& serviceURLOverride() {
    static std::string url;
    return url;
}

std::unique_ptr<BLExchangeRates>& sharedInstance() {
    static std::unique_ptr<BLExchangeRates> instance;
    return instance;
}

size_t appendBody(char* data, size_t size, size_t count, void* target) {
    static_cast<std::string*>(target)->append(data, size * count);
    return size * count;
}

std::string twoDigits(int value) {
    char text[8];
    std::snprintf(text, sizeof text, "%02d", value);
    return text;
}

std::string defaultRatesDirectory() {
    std::string base;
    if (const char* data = std::getenv("XDG_DATA_HOME"); data != nullptr && data[0] != '\0') {
        base = data;
    } else {
        const char* home = std::getenv("HOME");
        base = std::string(home != nullptr ? home : ".") + "/.local/share";
    }
    return base + "/com.orvane.Brassline3/Rates";
}

}  // namespace

std::string exchangeRatesServiceURL() {
    if (!serviceURLOverride().empty()) {
        return serviceURLOverride();
    }
    if (modelHooks().applicationDefault) {
        return modelHooks().applicationDefault("ExchangeRatesServiceURL").toString();
    }
    return {};
}

void setExchangeRatesServiceURLForTesting(std::string url) {
    serviceURLOverride() = std::move(url);
}

std::optional<std::string> exchangeRatesRequest(const std::string& path, std::string* error) {
    std::string host = exchangeRatesServiceURL();
    if (host.empty()) {
        if (error != nullptr) {
            *error = "no exchange rate service is set";
        }
        return std::nullopt;
    }
    while (!host.empty() && host.back() == '/') {
        host.pop_back();
    }
    const std::string url = host + path;
    std::unique_ptr<CURL, void (*)(CURL*)> handle(curl_easy_init(), curl_easy_cleanup);
    if (!handle) {
        if (error != nullptr) {
            *error = "cannot start a request";
        }
        return std::nullopt;
    }
    std::string body;
    char message[CURL_ERROR_SIZE] = {};
    curl_easy_setopt(handle.get(), CURLOPT_URL, url.c_str());
    curl_easy_setopt(handle.get(), CURLOPT_WRITEFUNCTION, appendBody);
    curl_easy_setopt(handle.get(), CURLOPT_WRITEDATA, &body);
    curl_easy_setopt(handle.get(), CURLOPT_TIMEOUT, kExchangeRatesTimeoutSeconds);
    curl_easy_setopt(handle.get(), CURLOPT_CONNECTTIMEOUT, kExchangeRatesTimeoutSeconds);
    curl_easy_setopt(handle.get(), CURLOPT_NOSIGNAL, 1L);
    curl_easy_setopt(handle.get(), CURLOPT_FAILONERROR, 1L);
    curl_easy_setopt(handle.get(), CURLOPT_ERRORBUFFER, message);
    // The latest rates must come from the service, never from a cache on the way.
    curl_slist* headers = curl_slist_append(nullptr, "Cache-Control: no-cache");
    curl_easy_setopt(handle.get(), CURLOPT_HTTPHEADER, headers);
    CURLcode result = curl_easy_perform(handle.get());
    curl_slist_free_all(headers);
    if (result != CURLE_OK) {
        if (error != nullptr) {
            *error = message[0] != '\0' ? std::string(message) : std::string(curl_easy_strerror(result));
        }
        return std::nullopt;
    }
    return body;
}

BLExchangeRates& BLExchangeRates::sharedExchangeRates() {
    auto& instance = sharedInstance();
    if (!instance) {
        instance = std::make_unique<BLExchangeRates>();
    }
    return *instance;
}

void BLExchangeRates::resetSharedExchangeRates() {
    sharedInstance().reset();
}

Value BLExchangeRates::rates() const {
    std::lock_guard lock(m_mutex);
    return Value(m_rates);
}

void BLExchangeRates::setRatesDirectory(std::string directory) {
    std::lock_guard lock(m_mutex);
    m_directory = std::move(directory);
}

std::string BLExchangeRates::ratesDirectory() const {
    std::lock_guard lock(m_mutex);
    return m_directory.empty() ? defaultRatesDirectory() : m_directory;
}

std::string BLExchangeRates::ratesFilePathForYear(const std::string& year) const {
    return ratesDirectory() + "/" + year + ".json";
}

bool BLExchangeRates::saveRatesForYear(const std::string& year) {
    Value subtree;
    {
        std::lock_guard lock(m_mutex);
        auto found = m_rates.find(year);
        subtree = found != m_rates.end() ? found->second : Value(Value::Dictionary{});
    }
    const std::string text = subtree.toJSON(true);
    if (text.empty()) {
        logMessage("Error serializing rates to JSON: %@", year);
        return false;
    }
    const std::string path = ratesFilePathForYear(year);
    std::error_code code;
    fs::create_directories(fs::path(path).parent_path(), code);
    // Written beside the target and renamed over it, so a reader never sees half a file.
    const std::string temporary = path + ".tmp";
    {
        std::ofstream file(temporary, std::ios::binary | std::ios::trunc);
        file << text;
        if (!file.flush()) {
            logMessage("Could not save rates to file: %@", path);
            return false;
        }
    }
    fs::rename(temporary, path, code);
    if (code) {
        logMessage("Could not save rates to file: %@", code.message());
        fs::remove(temporary, code);
        return false;
    }
    return true;
}

bool BLExchangeRates::loadRatesForYear(const std::string& year) {
    const std::string path = ratesFilePathForYear(year);
    std::error_code code;
    if (!fs::exists(path, code)) {
        logMessage("Rates file does not exist.");
        return false;
    }
    std::ifstream file(path, std::ios::binary);
    std::ostringstream text;
    if (!file || !(text << file.rdbuf())) {
        logMessage("Could not load rates data from file: %@", path);
        return false;
    }
    std::string error;
    std::optional<Value> parsed = Value::fromJSON(text.str(), &error);
    if (!parsed || parsed->dictionary() == nullptr) {
        logMessage("Error deserializing rates from JSON: %@", error.empty() ? path : error);
        return false;
    }
    std::lock_guard lock(m_mutex);
    m_rates = Value::Dictionary{{year, *parsed}};
    return true;
}

void BLExchangeRates::ratesForDate(const Date& date, const Completion& completion) {
    const std::string year = std::to_string(date.yearOfCommonEra());
    const std::string month = twoDigits(date.monthOfYear());
    const std::string day = twoDigits(date.dayOfMonth());
    bool haveYear = false;
    {
        std::lock_guard lock(m_mutex);
        haveYear = m_rates.count(year) != 0;
    }
    if (!haveYear) {
        loadRatesForYear(year);
    }
    {
        Value known = rates()[year][month][day];
        if (!known.isNull()) {
            if (completion) {
                completion(known);
            }
            return;
        }
    }
    std::string error;
    std::optional<std::string> body =
        exchangeRatesRequest("/api/exchangerates.php?yearmonth=" + year + "-" + month, &error);
    if (!body) {
        logMessage("Error fetching data: %@", error);
        return;
    }
    std::optional<Value> parsed = Value::fromJSON(*body, &error);
    if (!parsed || (*parsed)["rates"].dictionary() == nullptr) {
        logMessage("JSON Parsing Error: %@", error.empty() ? std::string("no rates in the answer") : error);
        return;
    }
    {
        std::lock_guard lock(m_mutex);
        Value::Dictionary yearRates;
        if (const Value::Dictionary* existing = m_rates[year].dictionary()) {
            yearRates = *existing;
        }
        yearRates[month] = (*parsed)["rates"];
        m_rates[year] = Value(std::move(yearRates));
    }
    saveRatesForYear(year);
    if (completion) {
        completion((*parsed)["rates"][day]);
    }
}

}  // namespace brassline
