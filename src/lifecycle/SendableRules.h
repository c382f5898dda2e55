#pragma once

namespace brassline {

class BLPaymentType;
class BLSendable;

// Payment terms of a sendable, only in a main context (a child context of an import or
// script leaves them alone). An invoice gives up a typed payment type (direct debit and
// the like) for the client's, else the plain default ("type LIKE NULL AND isDefault ==
// 1"). An estimate takes the validity terms (type "BLEstimate") in place of payment terms.
void updatePaymentType(BLSendable& sendable);
// The payment type an estimate shows: the default of type "BLEstimate", else the first
// of that type; null when the file has none.
BLPaymentType* migratedPaymentTypeForDocument(BLSendable& sendable);

// Installs the sendable hooks of the life cycle into the model: updatePaymentType and
// writeDocument (the filing copy, without overwrite). Idempotent.
void installSendableHooks();

}  // namespace brassline
