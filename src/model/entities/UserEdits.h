#pragma once

#include <string>
#include <string_view>

namespace brassline {

class EntityDescription;
class ManagedObject;

// The answer of a check: empty when the edit may go on, else the user's message.
struct [[nodiscard]] EditCheck {
    std::string refusal;
    bool allowed() const { return refusal.empty(); }
};

// What the user may change by hand (the command line, the desktop's editors, records that
// scripts edit). An issued document is read-only until it is unlocked, and so are the
// items below it; what the program itself does to issued documents (settling, payments,
// the issue steps, meta values of plug-ins, repairs, merges from other devices) does not
// ask. Main thread, like the objects.

// The issued sendable that locks `object` for the user: itself, or the document its items
// hang under; null when nothing locks it.
const ManagedObject* lockingDocument(const ManagedObject& object);
// Setting `key` of `object` by hand. Keys that stay open on an issued document: its
// closing mark, delivery, attached documents, labels, to-do flag and plug-in values.
EditCheck checkUserEdit(const ManagedObject& object, std::string_view key);
// Deleting `object` by hand: refused below a locked document, and where canDelete says
// no (with the reason: issued, the default, in use). Items of a draft may always go;
// kinds without a rule of their own may go while nothing uses them.
EditCheck checkUserDeletion(const ManagedObject& object);
// Inserting an object of `entity` by hand under `parent` (null: at the top).
EditCheck checkUserInsertion(const EntityDescription& entity, const ManagedObject* parent);

}  // namespace brassline
