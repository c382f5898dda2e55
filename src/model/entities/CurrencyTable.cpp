#include "model/entities/CurrencyTable.h"

#include <fstream>
#include <iterator>
#include <memory>

#include "core/Localization.h"
#include "core/Log.h"

namespace brassline {

namespace {

std::unique_ptr<CurrencyTable>& sharedInstance() {
    static std::unique_ptr<CurrencyTable> instance;
    return instance;
}

Value readPropertyList(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    if (!file) {
        logMessage("Currency table: cannot read %@", path);
        return Value(Value::Dictionary{});
    }
    Bytes data((std::istreambuf_iterator<char>(file)), std::istreambuf_iterator<char>());
    std::string error;
    std::optional<Value> value = Value::fromPropertyList(data, &error);
    if (!value || value->dictionary() == nullptr) {
        logMessage("Currency table: %@ is not a dictionary: %@", path, error);
        return Value(Value::Dictionary{});
    }
    return *value;
}

}  // namespace

CurrencyTable& CurrencyTable::sharedTable() {
    auto& instance = sharedInstance();
    if (!instance) {
        instance = std::make_unique<CurrencyTable>();
    }
    return *instance;
}

void CurrencyTable::resetSharedTable() {
    sharedInstance().reset();
}

void CurrencyTable::load() {
    if (m_loaded) {
        return;
    }
    m_loaded = true;
    const std::string directory = localizationResourcesDirectory();
    m_dictionary = readPropertyList(directory + "/Locales.plist");
    m_currencies = readPropertyList(directory + "/Currencies.plist");
}

const Value& CurrencyTable::dictionary() {
    load();
    return m_dictionary;
}

const Value& CurrencyTable::currencies() {
    load();
    return m_currencies;
}

const Value& CurrencyTable::currencyRecord(std::string_view isoCode) {
    load();
    return m_currencies[isoCode];
}

}  // namespace brassline
