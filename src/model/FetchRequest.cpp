#include "model/FetchRequest.h"

namespace brassline {

FetchRequest::FetchRequest(std::string entityName) : m_entityName(std::move(entityName)) {}

void FetchRequest::setPredicate(std::optional<Predicate> predicate) {
    m_predicate = std::move(predicate);
    m_uidEquals.reset();
    if (!m_predicate) {
        return;
    }
    // Recognised on the canonical text, once here rather than per fetch: `uid == "..."`
    // with no quote or escape inside, which is what the parser writes for a plain string.
    const std::string format = m_predicate->predicateFormat();
    constexpr std::string_view prefix = "uid == \"";
    if (format.size() > prefix.size() && format.compare(0, prefix.size(), prefix) == 0 && format.back() == '"') {
        std::string_view uid(format.data() + prefix.size(), format.size() - prefix.size() - 1);
        if (uid.find('"') == std::string_view::npos && uid.find('\\') == std::string_view::npos) {
            m_uidEquals = std::string(uid);
        }
    }
}

bool FetchRequest::setPredicateFormat(std::string_view format, const std::vector<Value>& arguments,
                                      std::string* error) {
    std::optional<Predicate> predicate = Predicate::parse(format, arguments, error);
    if (!predicate) {
        return false;
    }
    setPredicate(std::move(predicate));
    return true;
}

}  // namespace brassline
