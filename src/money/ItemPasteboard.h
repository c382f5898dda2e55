#pragma once

#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "core/Value.h"

namespace brassline {

class ManagedObjectContext;

// What the item editor copies and pastes: one value per pasteboard type. The shell maps
// it to the platform's pasteboard; the editor logic reads and writes only this. Main
// thread, owned by whoever copies.
class ItemPasteboard {
public:
    // This store's own items: {"storeIdentifier": text, "uris": [object URI text]}.
    static constexpr std::string_view kItemIdsType = "com.orvane.Brassline.Items.Ids";
    // Plain text; tab-separated rows become lines.
    static constexpr std::string_view kTextType = "public.utf8-plain-text";

    void clear() { m_values.clear(); }
    void setValue(std::string_view type, Value value) { m_values[std::string(type)] = std::move(value); }
    // Null when the type isn't on the pasteboard.
    const Value* value(std::string_view type) const;
    std::vector<std::string> types() const;

    // The URIs of the items copied from `context`'s store; empty when the pasteboard holds
    // no item ids or they come from another store.
    std::vector<std::string> itemURIsMatching(const ManagedObjectContext& context) const;

private:
    std::map<std::string, Value, std::less<>> m_values;
};

}  // namespace brassline
