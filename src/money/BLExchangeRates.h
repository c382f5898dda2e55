#pragma once

#include <functional>
#include <mutex>
#include <optional>
#include <string>

#include "core/Date.h"
#include "core/Value.h"

namespace brassline {

// The rate service: the host is the application default "ExchangeRatesServiceURL"
// (empty: no request is made). GETs `path` on it with a timeout and answers the body; on
// any failure nothing, with the reason in `error`.
std::optional<std::string> exchangeRatesRequest(const std::string& path, std::string* error);
// The host in use (the setting, else the test override); "" when none is set.
std::string exchangeRatesServiceURL();
// Overrides the setting (tests); an empty text returns to the setting.
void setExchangeRatesServiceURLForTesting(std::string url);
// Seconds a request may take before it counts as failed.
inline constexpr long kExchangeRatesTimeoutSeconds = 10;

// Historic rates by day: year "%ld", month "%02ld", day "%02ld" to a rates dictionary
// (code to rate against the service's base). One JSON file per year in the "Rates" folder
// of the application's folder, written atomically. Shared; guarded for any thread.
class BLExchangeRates {
public:
    static BLExchangeRates& sharedExchangeRates();
    // Forgets the shared object (tests).
    static void resetSharedExchangeRates();

    using Completion = std::function<void(const Value& rates)>;
    // The rates of the date's day: from memory, else from the year's file, else from the
    // month endpoint (then saved). The completion runs with the day's rates (null when the
    // month has no such day); on a failure it doesn't run and a line is logged.
    void ratesForDate(const Date& date, const Completion& completion);

    std::string ratesFilePathForYear(const std::string& year) const;
    // Writes the year's subtree, pretty-printed, through a temporary file and a rename.
    bool saveRatesForYear(const std::string& year);
    // Replaces the whole of `rates` by the year read from its file.
    bool loadRatesForYear(const std::string& year);

    Value rates() const;
    // Where the year files live; "" returns to <data home>/com.orvane.Brassline3/Rates.
    void setRatesDirectory(std::string directory);
    std::string ratesDirectory() const;

private:
    mutable std::mutex m_mutex;
    Value::Dictionary m_rates;
    std::string m_directory;
};

}  // namespace brassline
