#include "model/entities/BLCurrency.h"

#include <cmath>
#include <set>

#include <unicode/ucurr.h>
#include <unicode/uenum.h>
#include <unicode/uloc.h>
#include <unicode/unistr.h>

#include "core/Log.h"
#include "model/FetchRequest.h"
#include "model/ManagedObjectContext.h"
#include "model/entities/BLDocument.h"
#include "model/entities/CurrencyTable.h"
#include "model/entities/ModelHooks.h"
#include "model/entities/ModelStrings.h"

namespace brassline {

namespace {

// The current locale's currency: ISO code and symbol, empty when ICU knows none.
std::pair<std::string, std::string> localeCurrency() {
    UErrorCode status = U_ZERO_ERROR;
    UChar code[4] = {};
    int32_t length = ucurr_forLocale(uloc_getDefault(), code, 4, &status);
    if (U_FAILURE(status) || length != 3) {
        return {};
    }
    std::string isoCode;
    icu::UnicodeString(code, 3).toUTF8String(isoCode);
    UBool isChoiceFormat = false;
    int32_t symbolLength = 0;
    status = U_ZERO_ERROR;
    const UChar* symbol =
        ucurr_getName(code, uloc_getDefault(), UCURR_SYMBOL_NAME, &isChoiceFormat, &symbolLength, &status);
    std::string symbolText;
    if (U_SUCCESS(status) && symbol != nullptr) {
        icu::UnicodeString(symbol, symbolLength).toUTF8String(symbolText);
    }
    return {isoCode, symbolText};
}

// ISO 4217 minor units as ICU's currency data gives them; 2 for codes ICU doesn't know,
// as the platform's currency formatter does.
int minorUnits(const std::string& isoCode) {
    if (isoCode.size() != 3) {
        return 2;
    }
    icu::UnicodeString code = icu::UnicodeString::fromUTF8(isoCode);
    UErrorCode status = U_ZERO_ERROR;
    int32_t digits = ucurr_getDefaultFractionDigits(code.getTerminatedBuffer(), &status);
    return U_FAILURE(status) || digits < 0 ? 2 : digits;
}

// The name ICU gives a currency code in the current locale (symbol or long name).
std::string icuCurrencyName(const char* isoCode, UCurrNameStyle style) {
    icu::UnicodeString code = icu::UnicodeString::fromUTF8(isoCode);
    UBool isChoiceFormat = false;
    int32_t length = 0;
    UErrorCode status = U_ZERO_ERROR;
    const UChar* name =
        ucurr_getName(code.getTerminatedBuffer(), uloc_getDefault(), style, &isChoiceFormat, &length, &status);
    std::string text;
    if (U_SUCCESS(status) && name != nullptr) {
        icu::UnicodeString(name, length).toUTF8String(text);
    }
    return text;
}

std::vector<BLCurrency*> fetchCurrencies(ManagedObjectContext& context, std::string_view format,
                                         const std::vector<Value>& arguments) {
    FetchRequest request("Currency");
    if (!format.empty() && !request.setPredicateFormat(format, arguments)) {
        return {};
    }
    std::vector<BLCurrency*> result;
    if (auto objects = context.executeFetchRequest(request)) {
        for (ManagedObject* object : *objects) {
            result.push_back(static_cast<BLCurrency*>(object));
        }
    }
    return result;
}

}  // namespace

void BLCurrency::setupClass(EntityDescription& entity) {
    DefaultBehaviour behaviour;
    behaviour.didFindDefault = [](BLContainer& item) {
        auto& currency = static_cast<BLCurrency&>(item);
        if (currency.name()) {
            return;
        }
        auto [code, symbol] = localeCurrency();
        if (!code.empty()) {
            currency.setName(code);
        }
        if (!symbol.empty()) {
            currency.setSymbol(symbol);
        }
    };
    registerDefaultBehaviour(entity, std::move(behaviour));
    entity.registerDerivedProperty("fixedName", [](const ManagedObject& object) -> Value {
        return Value(static_cast<const BLCurrency&>(object).fixedName());
    });
    entity.registerDerivedProperty("shortName", [](const ManagedObject& object) -> Value {
        return Value(static_cast<const BLCurrency&>(object).shortName());
    });
    entity.registerDerivedProperty("symbolOrName", [](const ManagedObject& object) -> Value {
        return Value(static_cast<const BLCurrency&>(object).symbolOrName());
    });
}

void BLCurrency::setup() {
    BLBase::setup();
    if (!rate()) {
        setRate(Decimal(1));
    }
}

void BLCurrency::setIsDefault(std::optional<bool> value) {
    BLContainer::setIsDefault(value);
    if (value.value_or(false) && !isSyncing()) {
        setRate(Decimal(1));
        if (modelHooks().reloadCurrencyConverter && managedObjectContext() != nullptr) {
            modelHooks().reloadCurrencyConverter(*managedObjectContext());
        }
    }
}

RoundingBehavior BLCurrency::roundingBehaviorAccordingTo(const std::optional<Decimal>& reference) const {
    const std::string code = fixedAttribute(name());
    const Value& record = CurrencyTable::sharedTable().currencyRecord(code);
    const bool noRounding = record["noRounding"].toBool();
    // The key holds what the behaviour depends on, so a renamed currency never keeps the
    // digits of its old code.
    const std::string key = code + "\n" + fixedAttribute(format());
    if (!noRounding && m_cachedBehavior && m_cachedBehavior->key == key) {
        return m_cachedBehavior->behavior;
    }
    int digits = minorUnits(code);
    if (record.dictionary() != nullptr) {
        if (!record["maximumRoundingDigits"].isNull()) {
            digits = static_cast<int>(record["maximumRoundingDigits"].toInt64());
        }
        if (!record["minimumFractionDigits"].isNull()) {
            digits = static_cast<int>(record["minimumFractionDigits"].toInt64());
        }
    } else if (format() == std::optional<std::string>("nodecimals")) {
        digits = 0;
    }
    if (noRounding) {
        if (!reference) {
            return RoundingBehavior{};
        }
        return RoundingBehavior{reference->numberOfFractionDigits()};
    }
    RoundingBehavior behavior{digits};
    m_cachedBehavior = CachedBehavior{key, behavior};
    return behavior;
}

Decimal BLCurrency::roundCost(const Decimal& value, const std::optional<Decimal>& reference) const {
    if (name() == std::optional<std::string>("CHF")) {
        return decimalNumberByRoundingToCHF(value);
    }
    return roundingBehaviorAccordingTo(reference).apply(value);
}

Decimal BLCurrency::decimalNumberByRoundingToCHF(const Decimal& value) {
    return (value * Decimal(20)).rounded(0) / Decimal(20);
}

Decimal BLCurrency::decimalNumberByRoundingToSEK(const Decimal& value) {
    return value.rounded(0);
}

Decimal BLCurrency::convertValue(const Decimal& value, const BLCurrency* target) const {
    if (target == nullptr || target == this || rate().value_or(Decimal()).isZero()) {
        return value;
    }
    // Conversions go through binary floating point on purpose: converted amounts are
    // estimates, and the figures must match what earlier versions stored.
    double converted =
        value.toDouble() * rate().value_or(Decimal()).toDouble() / target->rate().value_or(Decimal()).toDouble();
    converted = std::round(converted * 100.0) / 100.0;
    if (!std::isfinite(converted)) {
        return Decimal::notANumber();
    }
    return target->roundCost(Decimal::fromDouble(converted));
}

Decimal BLCurrency::convertValueToDefaultCurrency(const Decimal& value) {
    if (isDefaultValue() || managedObjectContext() == nullptr) {
        return value;
    }
    return convertValue(value, defaultItemForContext(*managedObjectContext()));
}

std::string BLCurrency::fixedName() const {
    const std::string code = fixedAttribute(name());
    if (code == "EUR") {
        return "€";
    }
    if (code == "USD") {
        return "$";
    }
    return code;
}

std::string BLCurrency::symbolOrName() const {
    if (symbol() && !symbol()->empty()) {
        return *symbol();
    }
    return fixedAttribute(name());
}

void BLCurrency::migrateShortName(const std::string& shortName) {
    setName(shortName);
    setUid("currency." + shortName);
}

BLCurrency* BLCurrency::currencyWithISOCode(const std::string& isoCode, ManagedObjectContext& context) {
    std::vector<BLCurrency*> found = fetchCurrencies(context, "name == %@", {Value(isoCode)});
    if (!found.empty()) {
        return found.front();
    }
    BLCurrency* currency = insertInManagedObjectContext(context);
    if (currency == nullptr) {
        return nullptr;
    }
    currency->setName(isoCode);
    const Value& table = CurrencyTable::sharedTable().currencies();
    if (const Value::Dictionary* records = table.dictionary()) {
        // The table's keys are matched case-insensitively, as a LIKE on the name does.
        for (const auto& [code, record] : *records) {
            if (code.size() == isoCode.size() &&
                std::equal(code.begin(), code.end(), isoCode.begin(),
                           [](char a, char b) { return std::toupper(a) == std::toupper(b); })) {
                if (!record["symbol"].isNull()) {
                    currency->setSymbol(record["symbol"].toString());
                }
                break;
            }
        }
    }
    currency->setup();
    return currency;
}

BLCurrency* BLCurrency::defaultCurrencyForObject(ManagedObjectContext& context) {
    std::vector<BLCurrency*> found = fetchCurrencies(context, "isDefault == YES", {});
    if (!found.empty()) {
        return found.front();
    }
    auto* currency =
        static_cast<BLCurrency*>(BLBase::insertInManagedObjectContext(context, "Currency", kDefaultCurrencyUID));
    if (currency != nullptr && !currency->name()) {
        currency->setName(std::string(kDefaultCurrencyName));
    }
    return currency;
}

std::vector<Value::Dictionary> BLCurrency::currencies() {
    std::vector<Value::Dictionary> result;
    std::set<std::string> listed;
    UErrorCode status = U_ZERO_ERROR;
    UEnumeration* codes = ucurr_openISOCurrencies(UCURR_COMMON | UCURR_NON_DEPRECATED, &status);
    if (U_SUCCESS(status) && codes != nullptr) {
        const char* code = nullptr;
        while ((code = uenum_next(codes, nullptr, &status)) != nullptr && U_SUCCESS(status)) {
            Value::Dictionary entry;
            entry["name"] = Value(code);
            entry["symbol"] = Value(icuCurrencyName(code, UCURR_SYMBOL_NAME));
            entry["displayName"] = Value(icuCurrencyName(code, UCURR_LONG_NAME));
            result.push_back(std::move(entry));
            listed.insert(code);
        }
    }
    if (codes != nullptr) {
        uenum_close(codes);
    }
    if (const Value::Dictionary* records = CurrencyTable::sharedTable().currencies().dictionary()) {
        for (const auto& [code, record] : *records) {
            if (listed.count(code) != 0 || record["displayName"].isNull()) {
                continue;
            }
            Value::Dictionary entry;
            entry["name"] = Value(code);
            entry["symbol"] = record["symbol"].isNull() ? Value(code) : record["symbol"];
            entry["displayName"] = record["displayName"];
            result.push_back(std::move(entry));
        }
    }
    return result;
}

void BLCurrency::fixDuplicateCurrencies(ManagedObjectContext& context) {
    for (BLCurrency* currency : fetchCurrencies(context, "", {})) {
        if (currency->isDeleted() || !currency->name()) {
            continue;
        }
        std::vector<BLCurrency*> twins =
            fetchCurrencies(context, "(NOT SELF == %@) AND name LIKE %@", {Value(currency), Value(*currency->name())});
        if (twins.empty()) {
            continue;
        }
        twins.push_back(currency);
        BLCurrency* keeper = twins.front();
        for (BLCurrency* twin : twins) {
            if (twin->documents().size() > keeper->documents().size()) {
                keeper = twin;
            }
        }
        for (BLCurrency* twin : twins) {
            if (twin != keeper && !twin->isDeleted()) {
                logMessage("Merging duplicate currency %@", *currency->name());
                keeper->merge(twin);
            }
        }
    }
}

void BLCurrency::fixCurrencies(ManagedObjectContext& context) {
    BLCurrency* fallback = defaultItemForContext(context);
    if (fallback == nullptr) {
        return;
    }
    for (const char* entity : {"Estimate", "Invoice", "Client", "CatalogItem"}) {
        FetchRequest request(entity);
        if (!request.setPredicateFormat("currency.name == nil")) {
            continue;
        }
        if (auto objects = context.executeFetchRequest(request)) {
            for (ManagedObject* object : *objects) {
                static_cast<BLDocument*>(object)->setCurrency(fallback);
            }
        }
    }
}

}  // namespace brassline
