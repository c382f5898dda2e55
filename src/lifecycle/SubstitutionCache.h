#pragma once

#include <map>
#include <memory>
#include <optional>
#include <string>

#include "lifecycle/Substitution.h"
#include "model/RunLoop.h"

namespace brassline {

class ManagedObjectContext;

// Finished document dictionaries by the document's uid, so that the sections of one
// layout pass share one dictionary. Each entry is dropped 50 ms after it was stored, by
// the main run loop, and answers only for a document of the context it was made in while
// that context lives: its values point at that context's objects, and another open
// company file (or the same one opened again) has documents with the same uids. Main
// thread; objects without a uid are never cached.
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
        std::weak_ptr<ManagedObjectContext*> context;
        RunLoop::TimerId expiry;
    };
    std::map<std::string, Entry, std::less<>> m_cache;
};

}  // namespace brassline
