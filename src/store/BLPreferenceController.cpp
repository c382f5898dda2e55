#include "store/BLPreferenceController.h"

#include <vector>

#include "core/Localization.h"
#include "model/FetchRequest.h"
#include "model/ManagedObjectContext.h"
#include "model/entities/BLPreference.h"
#include "model/entities/ModelStrings.h"

namespace brassline {

namespace {

std::vector<std::string> components(std::string_view text) {
    std::vector<std::string> result;
    size_t start = 0;
    while (true) {
        size_t dot = text.find('.', start);
        result.emplace_back(text.substr(start, dot == std::string_view::npos ? dot : dot - start));
        if (dot == std::string_view::npos) {
            return result;
        }
        start = dot + 1;
    }
}

}  // namespace

std::string BLPreferenceController::uidForKeyPath(std::string_view keyPath, std::string_view representedObject) {
    std::string uid = kPreferenceUIDPrefix;
    if (!representedObject.empty()) {
        uid += std::string(representedObject) + ".";
    }
    return uid + std::string(keyPath);
}

BLPreference* BLPreferenceController::preferenceWithUid(const std::string& uid) const {
    return dynamic_cast<BLPreference*>(m_context.objectWithUid(BLPreference::entityDescription(), uid));
}

Value BLPreferenceController::valueForKeyPath(std::string_view keyPath) {
    if (auto it = m_cache.find(keyPath); it != m_cache.end()) {
        return it->second;
    }
    std::string uid = uidForKeyPath(keyPath);
    BLPreference* preference = preferenceWithUid(uid);
    if (preference == nullptr) {
        preference = createIfNeeded(uid);
    }
    Value value = preference != nullptr ? preference->payload() : Value();
    m_cache.emplace(std::string(keyPath), value);
    return value;
}

void BLPreferenceController::setValueForKeyPath(const Value& value, std::string_view keyPath) {
    m_cache[std::string(keyPath)] = value;
    std::string uid = uidForKeyPath(keyPath);
    BLPreference* preference = preferenceWithUid(uid);
    if (preference == nullptr) {
        preference = BLPreference::insertInManagedObjectContext(m_context);
        preference->setUid(uid);
    }
    preference->setPayload(value);
}

BLPreference* BLPreferenceController::createIfNeeded(const std::string& uid) {
    Value value;
    if (uid == "BLPref.partialInvoice.label") {
        value = Value(localizedString("Partial invoice"));
    } else if (uid == "BLPref.permanentInvoice.label") {
        value = Value(localizedString("Permanent invoice"));
    } else if (uid == "BLPref.finalInvoice.label") {
        value = Value(localizedString("Final invoice"));
    } else if (uid == "BLPref.stationary.useInMail") {
        BLPreference* backdrop = preferenceWithUid("BLPref.mail.backdrop");
        value = Value(backdrop != nullptr && !backdrop->payload().isNull());
    } else {
        return nullptr;
    }
    auto* preference = BLPreference::insertInManagedObjectContext(m_context);
    preference->setUid(uid);
    preference->setPayload(value);
    return preference;
}

void BLPreferenceController::refresh(std::string_view viewPrefix) {
    m_cache.clear();
    const size_t index = viewPrefix.empty() ? 1 : 2;
    std::vector<ManagedObject*> preferences =
        m_context.executeFetchRequest(FetchRequest("Preference")).value_or(std::vector<ManagedObject*>{});
    for (ManagedObject* object : preferences) {
        std::vector<std::string> parts = components(object->valueForKey("uid").toString());
        if (parts.size() <= index) {
            continue;
        }
        // Copied: an observer may add or remove observers.
        std::map<uint64_t, Observer> observers = m_observers;
        for (const auto& [token, observer] : observers) {
            observer(parts[index]);
        }
    }
}

uint64_t BLPreferenceController::addObserver(Observer observer) {
    uint64_t token = m_nextToken++;
    m_observers.emplace(token, std::move(observer));
    return token;
}

void BLPreferenceController::removeObserver(uint64_t token) {
    m_observers.erase(token);
}

}  // namespace brassline
