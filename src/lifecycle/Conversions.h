#pragma once

#include <functional>

namespace brassline {

class BLEstimate;
class BLInvoice;
class BLSendable;

// Conversions between sendables. Each clones under the global sync flag, so no setter of
// the copy derives anything from half-copied values, sets the copy's follow-up values and
// lowers the flag before the tax and payment-type steps. Each answers the new draft in the
// source's context, or null (with a log line) when the source can't be cloned. Main thread.

// Estimate to invoice: options become titles (so they are not billed), the estimate is
// marked accepted, the invoice refers to the estimate's number and takes the client's
// layout and pay interval; the lead stays only under "KeepLeadOnConversion".
BLInvoice* createInvoice(BLEstimate& estimate);
// Invoice to estimate beside it, with the client's estimate layout.
BLEstimate* createEstimate(BLInvoice& invoice);
// A credit note: the same lines with every quantity negated (groups included), no lead,
// not recurring, referring to the invoice's number. dateDue and completeMode stay the
// source's: a note of a settled invoice starts settled.
BLInvoice* createCreditNote(BLInvoice& invoice);
// A fresh draft of the same kind beside the source (BLInvoice/BLEstimate duplicate).
BLSendable* duplicateSendable(BLSendable& sendable);

// The recurring subsystem's part of createRecurring: given the source and the clone (made
// without "documents", "name" and "storage", still under the sync flag), it schedules the
// copy. Empty until that subsystem installs it.
using RecurringSetUp = std::function<void(BLInvoice& source, BLInvoice& copy)>;
void setRecurringSetUp(RecurringSetUp setUp);
// The next invoice of a recurring one; null (and nothing cloned) while no recurring
// subsystem is installed.
BLInvoice* createRecurring(BLInvoice& invoice);

// Multiplies each line's quantity by -1, through groups and titles down the tree; a line
// with children of its own (a summary) is negated once, not again below.
void invertQuantities(BLSendable& sendable);

}  // namespace brassline
