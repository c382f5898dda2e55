#include "model/entities/BLCurrency.h"

#include <unicode/ucurr.h>
#include <unicode/uloc.h>
#include <unicode/unistr.h>

#include "model/ManagedObjectContext.h"
#include "model/entities/ModelHooks.h"

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

}  // namespace brassline
