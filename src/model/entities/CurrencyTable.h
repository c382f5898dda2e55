#pragma once

#include <string>
#include <string_view>

#include "core/Value.h"

namespace brassline {

// The shared currency and locale tables: "Locales.plist" (`dictionary`) and "Currencies.plist"
// (`currencies`, ISO code to a record with the optional keys "displayName", "symbol",
// "noRounding", "maximumRoundingDigits", "minimumFractionDigits"). Read lazily from the
// resources folder; an unreadable file reads as an empty dictionary and logs a line.
class CurrencyTable {
public:
    static CurrencyTable& sharedTable();
    // Drops the tables read so far (tests, or after the resources folder changed).
    static void resetSharedTable();

    const Value& dictionary();
    const Value& currencies();
    // The record of one currency; the null value when the table has none.
    const Value& currencyRecord(std::string_view isoCode);

private:
    Value m_dictionary;
    Value m_currencies;
    bool m_loaded = false;
    void load();
};

}  // namespace brassline
