#pragma once

#include <map>
#include <optional>
#include <string>

#include "lifecycle/Substitution.h"
#include "model/RunLoop.h"

namespace brassline {

// Finished document dictionaries by the document's uid, so that the sections of one
// layout pass share one dictionary. Each entry is dropped 50 ms after it was stored, by
// the main run loop. Main thread; objects without a uid are never cached.
class BLSubstitutionCache {
public:
    static BLSubstitutionCache& sharedCache();
    // Drops every entry and its pending removal (tests).
    static void resetForTesting();

    std::optional<SubstitutionDictionary> substitionsForDocument(const BLSendable& document) const;
    void setSubstitions(const SubstitutionDictionary& dictionary, const BLSendable& document);

    static constexpr double kExpirySeconds = 0.05;

private:
    struct Entry {
        SubstitutionDictionary dictionary;
        RunLoop::TimerId expiry;
    };
    std::map<std::string, Entry, std::less<>> m_cache;
};

}  // namespace brassline
