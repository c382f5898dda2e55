#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "model/Predicate.h"
#include "model/SortDescriptor.h"

namespace brassline {

// What to fetch: an entity (with its subentities unless told otherwise), an optional
// predicate, sort descriptors and a limit (0: none). A predicate that is exactly
// `uid == "<text>"` is recognised when set, and such a fetch reads the uid index instead
// of scanning.
class FetchRequest {
public:
    explicit FetchRequest(std::string entityName);

    const std::string& entityName() const { return m_entityName; }
    bool includesSubentities() const { return m_includesSubentities; }
    void setIncludesSubentities(bool includes) { m_includesSubentities = includes; }

    const std::optional<Predicate>& predicate() const { return m_predicate; }
    void setPredicate(std::optional<Predicate> predicate);
    // Parses and sets; false (predicate unchanged) with the reason in `error` on bad text.
    bool setPredicateFormat(std::string_view format, const std::vector<Value>& arguments = {},
                            std::string* error = nullptr);

    const std::vector<SortDescriptor>& sortDescriptors() const { return m_sortDescriptors; }
    void setSortDescriptors(std::vector<SortDescriptor> descriptors) { m_sortDescriptors = std::move(descriptors); }
    size_t fetchLimit() const { return m_fetchLimit; }
    void setFetchLimit(size_t limit) { m_fetchLimit = limit; }

    // The uid of a `uid == "<text>"` predicate, empty for any other predicate.
    const std::optional<std::string>& uidEquals() const { return m_uidEquals; }

private:
    std::string m_entityName;
    bool m_includesSubentities = true;
    std::optional<Predicate> m_predicate;
    std::vector<SortDescriptor> m_sortDescriptors;
    size_t m_fetchLimit = 0;
    std::optional<std::string> m_uidEquals;
};

}  // namespace brassline
