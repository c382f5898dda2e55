#pragma once

#include "plugins/InterchangeRecord.h"

namespace brassline {

class BLBase;
class BLSendable;
class ManagedObject;
class ManagedObjectContext;

// The interchange record of any stored object: the keys of its class in their fixed
// order, each class adding to its base's (a plain base object gives an empty record).
// Reads the object on its context's thread; never changes it.
InterchangeRecord interchangeRecord(ManagedObject& object);
// The base form of a document used inside the system: entityName, layoutName and, for a
// follow-up, followUpName.
InterchangeRecord internalInterchangeRecord(BLSendable& document);

// A new object of the record's entity in `context`, set up, with the few keys a record
// gives back: name and notes (from "description") on items, and unitPrice, discount,
// quantity (from their "AsString" texts) and unit on lines. Null for an unknown or
// abstract entity, or a record without "entityName".
BLBase* objectFromInterchangeRecord(const InterchangeRecord& record, ManagedObjectContext& context);

}  // namespace brassline
