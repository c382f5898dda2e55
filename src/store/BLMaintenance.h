#pragma once

#include <cstddef>
#include <string_view>

namespace brassline {

class ManagedObjectContext;

// The repair operations of a company file that the store itself can do, run by the URL
// commands and on open. Each works on `context` (main or child), leaves the changes
// unsaved, logs what it changed and answers how many objects it touched.
class BLMaintenance {
public:
    // Currency, item group, payment type, language and tax group: with no default, the
    // one with the most usage objects becomes it; with several, that one of them stays.
    static size_t fixDefaults(ManagedObjectContext& context);
    // Deletes drafts that lost their client ("client.uid == nil && dateSent == nil").
    static size_t fixZombies(ManagedObjectContext& context);
    // Objects sharing a uid: all but the first (by object number) get a fresh uid.
    static size_t fixDuplicateUIDsForEntityName(ManagedObjectContext& context, std::string_view entityName);
    // Objects sharing a uid: all but the first (by dateCreation, then object number) go.
    static size_t deleteDuplicateUIDsForEntityName(ManagedObjectContext& context, std::string_view entityName);
    // fixMissingValues on every object of the entity ("Base": all).
    static size_t fixMissingValues(ManagedObjectContext& context, std::string_view entityName);
    // Drops every object's derived-value cache.
    static size_t fixCaches(ManagedObjectContext& context);
    // After a merge from another device: among "PermanentInvoiceRepetition" objects that
    // share a uid, the one with documents stays, else the first by sequence then
    // dateCreation (both descending); the others are deleted. Works in a child context
    // that is saved into `context`, which is then saved; false when a save fails.
    static bool cleanupPermanentInvoiceRepetitionDuplicates(ManagedObjectContext& context, size_t* deleted = nullptr);
};

}  // namespace brassline
