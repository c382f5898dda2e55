#include "money/ItemPasteboard.h"

#include "model/ManagedObjectContext.h"

namespace brassline {

const Value* ItemPasteboard::value(std::string_view type) const {
    auto found = m_values.find(type);
    return found != m_values.end() ? &found->second : nullptr;
}

std::vector<std::string> ItemPasteboard::types() const {
    std::vector<std::string> result;
    for (const auto& entry : m_values) {
        result.push_back(entry.first);
    }
    return result;
}

std::vector<std::string> ItemPasteboard::itemURIsMatching(const ManagedObjectContext& context) const {
    std::vector<std::string> uris;
    const Value* ids = value(kItemIdsType);
    const Value::Dictionary* record = ids != nullptr ? ids->dictionary() : nullptr;
    if (record == nullptr) {
        return uris;
    }
    // Object URIs are numbers within one store: from another company file they would
    // name unrelated objects, so that store's items are no items of this one.
    auto store = record->find("storeIdentifier");
    auto list = record->find("uris");
    if (store == record->end() || list == record->end() || store->second.string() == nullptr ||
        *store->second.string() != context.storeIdentifier() || list->second.array() == nullptr) {
        return uris;
    }
    for (const Value& uri : *list->second.array()) {
        if (const std::string* text = uri.string()) {
            uris.push_back(*text);
        }
    }
    return uris;
}

}  // namespace brassline
