#include "money/BLCurrencyConverter.h"

#include "core/Log.h"
#include "core/Value.h"
#include "model/FetchRequest.h"
#include "model/ManagedObjectContext.h"
#include "model/UndoManager.h"
#include "model/entities/BLCurrency.h"
#include "money/BLExchangeRates.h"

namespace brassline {

bool BLCurrencyConverter::load() {
    // No service set is the normal case, not a failure worth a log line.
    if (exchangeRatesServiceURL().empty()) {
        return false;
    }
    std::string error;
    std::optional<std::string> body = exchangeRatesRequest("/api/openexchangerates.org/latest.json", &error);
    if (!body) {
        logMessage("Error fetching data: %@", error);
        return false;
    }
    std::optional<Value> parsed = Value::fromJSON(*body, &error);
    const Value::Dictionary* rates = parsed ? (*parsed)["rates"].dictionary() : nullptr;
    if (rates == nullptr) {
        logMessage("JSON Parsing Error: %@", error.empty() ? std::string("no rates in the answer") : error);
        return false;
    }
    std::map<std::string, double> dict;
    for (const auto& [code, rate] : *rates) {
        if (rate.isNumber()) {
            dict[code] = rate.toDouble();
        }
    }
    m_dict = std::move(dict);
    update();
    return true;
}

void BLCurrencyConverter::update() {
    if (m_dict.empty()) {
        return;
    }
    UndoManager* undo = m_context->undoManager();
    const bool wasEnabled = undo != nullptr && undo->isUndoRegistrationEnabled();
    if (wasEnabled) {
        undo->disableUndoRegistration();
    }
    std::vector<BLCurrency*> currencies;
    if (auto objects = m_context->executeFetchRequest(FetchRequest("Currency"))) {
        for (ManagedObject* object : *objects) {
            currencies.push_back(static_cast<BLCurrency*>(object));
        }
    }
    const BLCurrency* book = nullptr;
    for (const BLCurrency* currency : currencies) {
        if (currency->isDefaultValue()) {
            book = currency;
            break;
        }
    }
    auto bookRate = book != nullptr ? m_dict.find(BLBase::fixedAttribute(book->name())) : m_dict.end();
    if (bookRate != m_dict.end()) {
        for (BLCurrency* currency : currencies) {
            auto own = m_dict.find(BLBase::fixedAttribute(currency->name()));
            if (currency == book || own == m_dict.end()) {
                continue;
            }
            // Single precision is what the rates have always been stored with.
            const float rate = static_cast<float>(bookRate->second) / static_cast<float>(own->second);
            currency->setRate(Decimal::fromDouble(static_cast<double>(rate)));
        }
    }
    if (wasEnabled) {
        undo->enableUndoRegistration();
    }
}

}  // namespace brassline
